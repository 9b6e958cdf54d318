// tessarin-session-report DIRECTORY...
//
// Prints what each session directory holds. Only reads. Ends with 0 when everything was found whole, with 1
// when something is damaged, torn or missing, with 2 when it is used wrongly.

#include "report/SessionReport.hpp"

#include <cstdio>
#include <filesystem>

int main(int count, char** words) {
  if (count < 2) {
    std::fputs("usage: tessarin-session-report DIRECTORY...\n", stderr);
    return 2;
  }
  bool isWhole = true;
  for (int i = 1; i < count; ++i) {
    std::error_code error;
    const std::filesystem::path directory = std::filesystem::absolute(words[i], error).lexically_normal();
    const tessarin::SessionReport report =
        tessarin::reportOnSession(tessarin::machineFileSystem(), error ? words[i] : directory.string());
    std::fputs(report.text.c_str(), stdout);
    isWhole = isWhole && report.isWhole;
  }
  return isWhole ? 0 : 1;
}
