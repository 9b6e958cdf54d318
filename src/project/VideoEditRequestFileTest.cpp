#include "project/VideoEditRequestFile.hpp"

#include "model/MediaErrors.hpp"
#include "project/EditProjectTesting.hpp"
#include "support/FailureOf.hpp"
#include "support/FaultyFileSystem.hpp"
#include "support/TemporaryDirectory.hpp"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cerrno>
#include <filesystem>
#include <fstream>
#include <sys/stat.h>
#include <unistd.h>

namespace tessarin {
namespace {

using namespace editTesting;
using Outcome = std::optional<VideoEditExportError>;

constexpr Outcome passes = std::nullopt;
constexpr Outcome fails = VideoEditExportError::invalidProject;
constexpr std::size_t mostBytes = 4'194'304;

const std::string name = ".tessarin-edit-request-7D1C9C2E-5B6A-4C3D-8E9F-0A1B2C3D4E5F.json";

// A session's directory on the disk, and a request that lies in it.
class VideoEditRequestFileTest : public testing::Test {
 protected:
  VideoEditRequestFileTest() {
    std::filesystem::create_directories(exports);
    request.sessionID = sessionID;
    request.project = plainProject();
    request.project.source.path = directory / sessionID + "/recording.mp4";
    request.outputPath = exports + "/edit.mp4";
  }

  void write(const std::string& to, std::string_view bytes) { std::ofstream(to, std::ios::binary) << bytes; }
  // The request, with blanks behind it up to a size.
  void writeRequest(std::size_t size = 0) {
    std::string bytes = json::encode(request);
    bytes.resize(std::max(size, bytes.size()), ' ');
    write(path, bytes);
  }

  Outcome outcomeOf(const std::string& of) {
    return failureOf<VideoEditExportError>([&] { (void)VideoEditRequestFile::read(files, of); });
  }
  Outcome outcome() { return outcomeOf(path); }

  TemporaryDirectory directory;
  const std::string exports = directory / sessionID + "/exports";
  const std::string path = exports + "/" + name;
  VideoEditExportRequestDTO request;
  FaultyFileSystem files{machineFileSystem()};
};

TEST_F(VideoEditRequestFileTest, YieldsTheRequestAndLeavesTheFile) {
  writeRequest();
  EXPECT_EQ(VideoEditRequestFile::read(files, path), request);
  EXPECT_TRUE(std::filesystem::exists(path));
}

TEST_F(VideoEditRequestFileTest, NeedsItsPath) {
  writeRequest();
  const std::string uuid = name.substr(23, 36);
  const std::string others[] = {
      "tessarin-edit-request-" + uuid + ".json",
      ".tessarin-edit-request-" + uuid + ".JSON",
      ".tessarin-edit-request-" + uuid + ".json.tmp",
      ".tessarin-edit-request-" + uuid.substr(1) + ".json",
      ".tessarin-edit-request-{" + uuid + "}.json",
      ".tessarin-edit-request-.json",
      ".tessarin-edit-request-",
      ".tessarin-edit-request.json",
      "x" + name,
      "edit.mp4",
  };
  for (const std::string& other : others) {
    write(exports + "/" + other, json::encode(request));
    EXPECT_EQ(outcomeOf(exports + "/" + other), fails) << other;
  }
  std::filesystem::create_directories(directory / sessionID + "/more");
  write(directory / sessionID + "/more/" + name, json::encode(request));
  write(directory / sessionID + "/" + name, json::encode(request));
  for (const std::string& other :
       {std::string(), std::string("/"), path.substr(1), exports + "/../exports/" + name,
        exports + "/./" + name, directory / sessionID + "/more/" + name, directory / sessionID + "/" + name,
        path + std::string(1, '\0')})
    EXPECT_EQ(outcomeOf(other), fails) << other;
  EXPECT_EQ(outcomeOf(exports + "//" + name), passes);
  std::string lower = name;
  for (char& character : lower)
    character = static_cast<char>(std::tolower(static_cast<unsigned char>(character)));
  write(exports + "/" + lower, json::encode(request));
  EXPECT_EQ(outcomeOf(exports + "/" + lower), passes);
  // Of none of the others was anything asked of the disk.
  EXPECT_EQ(files.count(FileOperation::open), 2U);
}

TEST_F(VideoEditRequestFileTest, NeedsARealDirectory) {
  writeRequest();
  const std::string moved = directory / "moved";
  std::filesystem::rename(exports, moved);
  std::filesystem::create_directory_symlink(moved, exports);
  EXPECT_EQ(outcome(), fails);
  EXPECT_EQ(outcomeOf(exports + "//" + name), fails);
  std::filesystem::remove(exports);
  write(exports, "a file");
  EXPECT_EQ(outcome(), fails);
  EXPECT_EQ(files.count(FileOperation::open), 0U);
}

TEST_F(VideoEditRequestFileTest, PassesOnWhatAskingForTheDirectoryFailsBy) {
  writeRequest();
  files.failNth(FileOperation::info, 1, EACCES);
  const auto errorOf = [&] {
    try {
      (void)VideoEditRequestFile::read(files, path);
    } catch (const FileFailure& failure) {
      EXPECT_EQ(failure.operation(), FileOperation::info);
      return failure.errorNumber();
    }
    return 0;
  };
  EXPECT_EQ(errorOf(), EACCES);
  EXPECT_EQ(errorOf(), 0);
  std::filesystem::remove_all(exports);
  EXPECT_EQ(errorOf(), ENOENT);
}

TEST_F(VideoEditRequestFileTest, NeedsARegularFile) {
  EXPECT_EQ(outcome(), fails); // none at all
  std::filesystem::create_directory(path);
  EXPECT_EQ(outcome(), fails);
  std::filesystem::remove(path);
  const std::string elsewhere = directory.write("elsewhere", json::encode(request));
  std::filesystem::create_symlink(elsewhere, path);
  EXPECT_EQ(outcome(), fails);
  std::filesystem::remove(path);
  // Nobody writes to it, so a reader that waits for somebody never ends.
  ASSERT_EQ(::mkfifo(path.c_str(), 0600), 0);
  EXPECT_EQ(outcome(), fails);
}

// Lets every file look like another user's.
class ForeignFiles final : public FileSystem {
 public:
  explicit ForeignFiles(FileSystem& below) : below_(below) {}

  std::unique_ptr<OpenFile> open(const std::string& path, OpenMode mode, std::uint32_t permissions) override {
    return std::make_unique<File>(below_.open(path, mode, permissions));
  }
  std::optional<FileInfo> info(const std::string& path) override { return below_.info(path); }
  void rename(const std::string&, const std::string&) override {}
  void renameExclusive(const std::string&, const std::string&) override {}
  void remove(const std::string&) override {}
  void makeDirectory(const std::string&) override {}
  void syncDirectory(const std::string&) override {}
  std::optional<std::vector<std::string>> list(const std::string&, std::size_t) override {
    return std::nullopt;
  }
  std::uint64_t availableBytes(const std::string&) override { return 0; }

 private:
  class File final : public OpenFile {
   public:
    explicit File(std::unique_ptr<OpenFile> below) : below_(std::move(below)) {}
    FileInfo info() const override {
      FileInfo foreign = below_->info();
      foreign.isOwn = false;
      return foreign;
    }
    std::size_t read(std::uint64_t offset, std::span<std::byte> into) const override {
      return below_->read(offset, into);
    }
    void write(std::uint64_t, std::span<const std::byte>) override {}
    void truncate(std::uint64_t) override {}
    void sync() override {}
    void copyFrom(const OpenFile&, std::uint64_t, std::uint64_t, std::uint64_t) override {}
    bool cloneFrom(const OpenFile&) override { return false; }

   private:
    std::unique_ptr<OpenFile> below_;
  };

  FileSystem& below_;
};

TEST_F(VideoEditRequestFileTest, NeedsAFileOfItsOwnUser) {
  writeRequest();
  ForeignFiles foreign(files);
  EXPECT_EQ(failureOf<VideoEditExportError>([&] { (void)VideoEditRequestFile::read(foreign, path); }), fails);
  EXPECT_EQ(outcome(), passes);
}

TEST_F(VideoEditRequestFileTest, NeedsAFileOfOneByteToFourMebibytes) {
  writeRequest(mostBytes);
  EXPECT_EQ(VideoEditRequestFile::read(files, path), request);
  writeRequest(mostBytes + 1);
  files.clearLog();
  EXPECT_EQ(outcome(), fails);
  EXPECT_EQ(files.count(FileOperation::read), 0U);
  write(path, "");
  EXPECT_EQ(outcome(), fails);
  EXPECT_EQ(files.count(FileOperation::read), 0U);
}

TEST_F(VideoEditRequestFileTest, ReadsInPieces) {
  writeRequest(300'000);
  files.inject({.operation = FileOperation::read, .times = 100, .shortenedTo = 1000});
  EXPECT_EQ(VideoEditRequestFile::read(files, path), request);
  EXPECT_GE(files.count(FileOperation::read), 100U);
}

TEST_F(VideoEditRequestFileTest, RefusesAFileThatChangesMeanwhile) {
  // So many bytes more or fewer while the second piece is read.
  for (const std::int64_t change : {-300'000, -1, 1, 100'000, 4'200'000}) {
    writeRequest(300'000);
    bool isChanged = false;
    std::size_t reads = 0;
    files.setObserver([&](const FaultyFileSystem::Event& event) {
      if (event.operation != FileOperation::read || ++reads != 2)
        return;
      isChanged = true;
      std::filesystem::resize_file(path, static_cast<std::uintmax_t>(300'000 + change));
    });
    EXPECT_EQ(outcome(), fails) << change;
    EXPECT_TRUE(isChanged);
    files.setObserver({});
  }
}

TEST_F(VideoEditRequestFileTest, StopsOneByteAfterTheMost) {
  writeRequest(mostBytes);
  files.setObserver([&](const FaultyFileSystem::Event& event) {
    if (event.operation == FileOperation::read)
      std::filesystem::resize_file(path, mostBytes * 2);
  });
  files.clearLog();
  EXPECT_EQ(outcome(), fails);
  EXPECT_EQ(files.count(FileOperation::read), mostBytes / 65'536 + 1);
}

TEST_F(VideoEditRequestFileTest, RefusesAFileThatCannotBeRead) {
  writeRequest(300'000);
  files.failNth(FileOperation::open, 1, EACCES);
  EXPECT_EQ(outcome(), fails);
  files.failNth(FileOperation::info, 2, EIO); // the first is of the directory
  EXPECT_EQ(outcome(), fails);
  for (const std::size_t nth : {1, 3, 6}) {
    files.failNth(FileOperation::read, nth, EIO);
    EXPECT_EQ(outcome(), fails) << nth;
  }
  EXPECT_EQ(outcome(), passes);
}

TEST_F(VideoEditRequestFileTest, PassesOnThatItIsNoJson) {
  std::string cut = json::encode(request);
  cut.pop_back();
  for (const std::string& text :
       {cut, std::string("{}"), std::string(" "), std::string("\xff"), cut + "}}", std::string(1, '\0')}) {
    write(path, text);
    EXPECT_THROW((void)VideoEditRequestFile::read(files, path), json::DecodingFailure) << text;
  }
}

TEST_F(VideoEditRequestFileTest, BelongsToItsSession) {
  const std::string other = "0B8C6A52-3C5A-4F1B-9E43-000000000000";
  const VideoEditExportRequestDTO good = request;
  request.sessionID = other;
  writeRequest();
  EXPECT_EQ(outcome(), fails);
  // Whole in itself, but of another session.
  request.project.source.sessionID = other;
  request.project.source.path = directory / other + "/recording.mp4";
  request.outputPath = directory / other + "/exports/edit.mp4";
  ASSERT_NO_THROW((void)request.validated());
  writeRequest();
  EXPECT_EQ(outcome(), fails);

  request = good;
  for (const std::string& output :
       {"/elsewhere/" + sessionID + "/exports/edit.mp4", exports + "/more/edit.mp4",
        directory / sessionID + "/edit.mp4", exports.substr(1) + "/edit.mp4"}) {
    request.outputPath = output;
    writeRequest();
    EXPECT_EQ(outcome(), fails) << output;
  }
  request.outputPath = directory / sessionID + "//exports//other.mp4";
  writeRequest();
  EXPECT_EQ(outcome(), passes);
}

TEST_F(VideoEditRequestFileTest, PassesItsOwnCheck) {
  const VideoEditExportRequestDTO good = request;
  request.outputPath = exports + "/edit.gif";
  writeRequest();
  EXPECT_EQ(outcome(), VideoEditExportError::invalidRequest);
  request = good;
  request.project.revision = -1;
  writeRequest();
  EXPECT_EQ(outcome(), VideoEditExportError::invalidProject);
  request = good;
  request.project.crop.x = 0.5;
  writeRequest();
  EXPECT_EQ(outcome(), VideoEditExportError::invalidCrop);
}

// How many descriptors this process has open.
std::size_t openDescriptors() {
  std::size_t count = 0;
  for ([[maybe_unused]] const auto& each : std::filesystem::directory_iterator("/proc/self/fd"))
    ++count;
  return count;
}

TEST_F(VideoEditRequestFileTest, ClosesTheFileHoweverItEnds) {
  const std::size_t before = openDescriptors();
  writeRequest();
  EXPECT_EQ(outcome(), passes);
  files.failNth(FileOperation::read, 1, EIO);
  EXPECT_EQ(outcome(), fails);
  write(path, "");
  EXPECT_EQ(outcome(), fails);
  write(path, "[]");
  EXPECT_THROW((void)VideoEditRequestFile::read(files, path), json::DecodingFailure);
  EXPECT_EQ(openDescriptors(), before);
}

} // namespace
} // namespace tessarin
