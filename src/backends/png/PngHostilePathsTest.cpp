// A still is told where to go by another process.

#include "backends/png/PngFileWriter.hpp"
#include "support/HostileFiles.hpp"

#include <gtest/gtest.h>

#include <array>
#include <cerrno>
#include <system_error>

namespace tessarin::png {
namespace {

using namespace tessarin::testing;
using namespace std::string_literals;

// The error number of the failed open, 0 for a written file.
int openError(const std::string& path) {
  static constexpr std::array<std::uint8_t, 4> pixel{};
  PictureView picture;
  picture.data = pixel.data();
  picture.width = picture.height = 1;
  picture.stride = 4;
  try {
    PngFileWriter(machineFileSystem()).write(picture, path);
    return 0;
  } catch (const FileFailure& failure) {
    EXPECT_EQ(failure.operation(), FileOperation::open) << path;
    return failure.errorNumber();
  }
}

TEST(PngHostilePaths, OnlyAFileIsWrittenTo) {
  const HostileFiles hostile;
  for (const HostileFiles::File& file : hostile.all()) {
    SCOPED_TRACE(file.name);
    const TemporaryDirectory directory;
    const std::string path = directory / "shot.png";
    file.put(path);
    const PathState before = PathState::of(path);
    EXPECT_TRUE(endsInTime([&] {
      if (file.kind == HostileFiles::Kind::regular) {
        EXPECT_EQ(openError(path), 0) << "a file is replaced in place, whatever it held";
        EXPECT_LT(std::filesystem::file_size(path), 1000u);
      } else {
        EXPECT_EQ(openError(path), EINVAL);
        EXPECT_EQ(PathState::of(path), before) << "it is left";
      }
    }));
    EXPECT_TRUE(hostile.isOutsideUntouched());
  }
}

TEST(PngHostilePaths, TheFolderMustBeThere) {
  const HostileFiles hostile;
  for (const HostileFiles::File& file : hostile.all()) {
    SCOPED_TRACE(file.name);
    const TemporaryDirectory directory;
    const std::string folder = directory / "folder";
    file.put(folder);
    const PathState before = PathState::of(folder);
    std::error_code loop; // of a link to itself
    const bool isFolder = std::filesystem::is_directory(folder, loop);
    EXPECT_TRUE(endsInTime([&] { EXPECT_EQ(openError(folder + "/shot.png") == 0, isFolder); }));
    EXPECT_EQ(PathState::of(folder), before);
    EXPECT_EQ(std::filesystem::exists(folder + "/shot.png", loop), isFolder);
    if (isFolder)
      std::filesystem::remove(folder + "/shot.png");
    EXPECT_TRUE(hostile.isOutsideUntouched());
  }
}

TEST(PngHostilePaths, NamesThatAreNone) {
  const TemporaryDirectory directory;
  directory.write("file.png", "as it was");
  const struct {
    const char* what;
    std::string path;
    int errorNumber;
  } rows[] = {
      {"empty", "", ENOENT},
      {"a slash behind a new name", directory / "new.png/", EINVAL},
      {"a slash behind a file", directory / "file.png/", EINVAL},
      {"below a file", directory / "file.png/shot.png", ENOTDIR},
      {"NUL inside", directory / "file.png\0.png"s, EINVAL},
      {"the longest name", directory / (std::string(251, 'n') + ".png"), 0},
      {"a byte more", directory / (std::string(252, 'n') + ".png"), ENAMETOOLONG},
      {"no text", directory / "\xff\xfe.png", 0},
      {"line feed", directory / "a\nb.png", 0},
  };
  for (const auto& row : rows)
    EXPECT_EQ(openError(row.path), row.errorNumber) << row.what;
  EXPECT_EQ(directory.read("file.png"), "as it was");
  EXPECT_FALSE(std::filesystem::exists(directory / "new.png"));
}

// The system takes paths of 4096 bytes with the NUL at their end.
TEST(PngHostilePaths, TheLongestPath) {
  const TemporaryDirectory directory;
  const std::string folder = deepDirectory(directory.path(), 4000);
  const auto path = [&](std::size_t bytes) {
    return folder + "/" + std::string(bytes - folder.size() - 5, 'n') + ".png";
  };
  ASSERT_EQ(path(4095).size(), 4095u);
  EXPECT_EQ(openError(path(4095)), 0);
  EXPECT_TRUE(std::filesystem::is_regular_file(path(4095)));
  EXPECT_EQ(openError(path(4096)), ENAMETOOLONG);
  EXPECT_EQ(openError("/" + std::string(100'000, 'n') + ".png"), ENAMETOOLONG);
}

} // namespace
} // namespace tessarin::png
