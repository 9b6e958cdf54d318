#include "command/MainThreadMode.hpp"

#include <gtest/gtest.h>

namespace tessarin {
namespace {

TEST(MainThreadMode, OnlyARecordingAndALoneTranslationGetAnApplication) {
  using enum MainThreadMode;
  const struct {
    std::vector<std::string> arguments;
    MainThreadMode mode;
  } cases[] = {
      {{}, port},
      {{""}, port},
      {{"record"}, application},
      {{"record", "--request-json", "e30="}, application},
      {{"record", "anything", "at", "all"}, application},
      {{"Record"}, port},
      {{"records"}, port},
      {{"list", "record"}, port},
      {{"translate-text"}, application},
      {{"translate-text", "extra"}, port},
      {{"translate-text", ""}, port},
      {{"capture-worker"}, port},
      {{"capture-worker", "extra"}, port},
      {{"status"}, port},
  };
  for (const auto& each : cases)
    EXPECT_EQ(mainThreadMode(each.arguments), each.mode) << (each.arguments.empty() ? "" : each.arguments[0]);
}

} // namespace
} // namespace tessarin
