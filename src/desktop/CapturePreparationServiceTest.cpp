#include "desktop/CapturePreparationService.hpp"

#include "base/FileSystem.hpp"
#include "support/FaultyFileSystem.hpp"
#include "support/ManualClock.hpp"
#include "support/TemporaryDirectory.hpp"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cerrno>
#include <chrono>
#include <filesystem>

namespace tessarin {
namespace {

using namespace std::chrono_literals;
using testing::ElementsAre;
using testing::IsEmpty;

namespace fs = std::filesystem;

const std::string sessionID = "0B8C6A52-3C5A-4F1B-9E43-1F2D3C4B5A69";
const RunningApplication editor{"org.editor", 100, "Editor"};
const RunningApplication host{"org.host", 200, "Host"};

// A machine that takes its time by the clock, and writes pictures that tell their display.
class ScriptedMachine final : public DesktopContent,
                              public StillCapturer,
                              public PngWriter,
                              public ApplicationActivator {
 public:
  ScriptedMachine(ManualClock& clock, FileSystem& files) : clock_(clock), files_(files) {}

  ShareableContent scripted;
  bool hasAccess = true;
  bool isReadable = true;
  int snapshots = 0;
  std::vector<ContentFilter> filters;
  std::vector<StillConfiguration> configurations;
  std::vector<std::string> writtenPaths;
  std::optional<std::size_t> failingCapture;
  std::optional<std::size_t> failingWrite;
  std::optional<std::size_t> emptyPicture;

  bool hasScreenCaptureAccess() override { return hasAccess; }
  ShareableContent content() override {
    ++snapshots;
    clock_.advance(2500us);
    if (!isReadable)
      throw DesktopFailure();
    return scripted;
  }
  double pointPixelScale(const ContentFilter&) override { return 2; }
  Picture captureImage(const ContentFilter& filter, const StillConfiguration& how) override {
    if (failingCapture == filters.size())
      throw CaptureFailure();
    const bool isEmpty = emptyPicture == filters.size();
    filters.push_back(filter);
    configurations.push_back(how);
    clock_.advance(10ms);
    return {{nullptr, isEmpty ? 0 : static_cast<std::int32_t>(how.width),
             static_cast<std::int32_t>(how.height), 0, PixelFormat::bgrx8},
            nullptr};
  }
  void write(const PictureView& picture, const std::string& path) override {
    if (failingWrite == writtenPaths.size())
      throw FileFailure(FileOperation::write, ENOSPC);
    writtenPaths.push_back(path);
    const std::string text = std::to_string(picture.width);
    files_.open(path, OpenMode::createTruncated)->write(0, std::as_bytes(std::span(text)));
  }
  std::optional<bool> isActive(std::int32_t) override { return std::nullopt; }
  void activate(std::int32_t) override {}

 private:
  ManualClock& clock_;
  FileSystem& files_;
};

class CapturePreparationServiceTest : public testing::Test {
 protected:
  CapturePreparationServiceTest() {
    fs::create_directory(session);
    setDisplays(2);
    machine.scripted.windows = {window(8, editor), window(9, host), window(10, editor)};
    machine.scripted.applications = {editor, host};
  }

  // Side by side, each a little wider than the one before, with two pixels a point.
  void setDisplays(std::uint32_t count) {
    machine.scripted.displays.clear();
    for (std::uint32_t i = 0; i < count; ++i)
      machine.scripted.displays.push_back({.displayID = 70 - i,
                                           .frame = {1000.0 * i, 0, 100.0 + i, 50},
                                           .pointPixelScale = 2,
                                           .isMain = i == 0});
  }
  static ShareableWindow window(std::uint32_t id, const RunningApplication& owner) {
    return {.windowID = id,
            .frame = {10, 10, 20, 20},
            .title = std::nullopt,
            .windowLayer = 0,
            .isOnScreen = true,
            .owningApplication = owner};
  }

  CapturePreparationPayload prepare() {
    return CapturePreparationService(
               {.capture = {machine, machine, machine, machine, [](std::chrono::milliseconds) { FAIL(); }},
                .files = files,
                .clock = clock,
                .parentProcessIdentifier = [this] { return parent(); }})
        .prepare({1, sessionID, session});
  }
  NativeServiceError failure() {
    try {
      (void)prepare();
    } catch (const NativeServiceError& error) {
      return error;
    }
    ADD_FAILURE() << "nothing was thrown";
    return {};
  }
  std::vector<std::string> names() const {
    std::vector<std::string> result;
    for (const auto& entry : fs::directory_iterator(session))
      result.push_back(entry.path().filename());
    std::sort(result.begin(), result.end());
    return result;
  }

  TemporaryDirectory directory;
  const std::string session = directory / sessionID;
  FaultyFileSystem files{machineFileSystem()};
  ManualClock clock{5s};
  ScriptedMachine machine{clock, files};
  std::function<std::int32_t()> parent = [] { return host.processID; };
};

TEST_F(CapturePreparationServiceTest, GivesTheDesktopAndAPictureOfEachDisplay) {
  const CapturePreparationPayload payload = prepare();
  EXPECT_THAT(payload.captures, ElementsAre(PreparedDisplayCapture{"70", {session + "/0.png", 200, 100, 2}},
                                            PreparedDisplayCapture{"69", {session + "/1.png", 202, 100, 2}}));
  EXPECT_EQ(payload.context.permission, PermissionStatus::granted);
  ASSERT_EQ(payload.context.displays.size(), 2U);
  EXPECT_EQ(payload.context.displays[1].id, "69");
  EXPECT_EQ(payload.context.windows.size(), 2U);
  EXPECT_THAT(names(), ElementsAre("0.png", "1.png"));
  EXPECT_EQ(directory.read(sessionID + "/0.png"), "200");
  EXPECT_EQ(directory.read(sessionID + "/1.png"), "202");
}

TEST_F(CapturePreparationServiceTest, TakesEveryDisplayWholeFromOneSnapshot) {
  (void)prepare();
  EXPECT_EQ(machine.snapshots, 1);
  EXPECT_THAT(machine.writtenPaths, ElementsAre(session + "/0.pending.png", session + "/1.pending.png"));
  EXPECT_THAT(machine.filters, ElementsAre(ContentFilter{ContentFilter::Kind::display, 70, 0, {}},
                                           ContentFilter{ContentFilter::Kind::display, 69, 0, {}}));
  EXPECT_EQ(machine.configurations[1].sourceRect, (RectDTO{0, 0, 101, 50}));
  EXPECT_EQ(machine.configurations[1].width, 202);
  EXPECT_TRUE(machine.configurations[1].shouldBeOpaque);
  EXPECT_FALSE(machine.configurations[1].showsCursor);
}

TEST_F(CapturePreparationServiceTest, TellsTheTimesOfSnapshotAndPictures) {
  const CapturePreparationPayload payload = prepare();
  EXPECT_EQ(payload.discoveryMs, 2.5);
  EXPECT_EQ(payload.captureMs, 20);
}

TEST_F(CapturePreparationServiceTest, DoesNotOfferTheWindowsOfTheParent) {
  const auto ids = [](const CapturePreparationPayload& payload) {
    std::vector<std::string> result;
    for (const WindowInfoDTO& window : payload.context.windows)
      result.push_back(window.id);
    return result;
  };
  EXPECT_THAT(ids(prepare()), ElementsAre("8", "10"));
  for (const ContentFilter& filter : machine.filters)
    EXPECT_THAT(filter.excludedApplications, IsEmpty()) << "it is in the pictures";
}

TEST_F(CapturePreparationServiceTest, AsksForTheParentAtEveryWindow) {
  // A parent that ends has another take its place.
  machine.scripted.windows = {window(8, editor), window(9, host), window(10, editor), window(11, host)};
  int asked = 0;
  bool isFiltering = false;
  parent = [&] { return !isFiltering || ++asked <= 2 ? host.processID : editor.processID; };
  files.setObserver([&](const FaultyFileSystem::Event& event) {
    isFiltering = event.operation == FileOperation::rename && event.target.ends_with("/1.png");
  });
  const CapturePreparationPayload payload = prepare();
  EXPECT_EQ(asked, 4);
  ASSERT_EQ(payload.context.windows.size(), 2U);
  EXPECT_EQ(payload.context.windows[0].id, "8");
  EXPECT_EQ(payload.context.windows[1].id, "11");
}

TEST_F(CapturePreparationServiceTest, ABadDirectoryIsRefusedBeforeTheDesktopIsLookedAt) {
  directory.write(sessionID + "/.DS_Store", "");
  EXPECT_EQ(failure(), (NativeServiceError{NativeErrorCode::outputFailed,
                                           "The screenshot could not be written to its temporary output."}));
  fs::remove_all(session);
  EXPECT_THROW((void)prepare(), FileFailure);
  EXPECT_EQ(machine.snapshots, 0);
}

TEST_F(CapturePreparationServiceTest, AFailureOfTheSnapshotPassesUp) {
  machine.hasAccess = false;
  EXPECT_EQ(failure(),
            (NativeServiceError{NativeErrorCode::permissionDenied,
                                "Screen Recording permission is required to capture the display."}));
  machine.hasAccess = true;
  machine.isReadable = false;
  EXPECT_EQ(failure(), (NativeServiceError{NativeErrorCode::contentUnavailable,
                                           "Shareable screen content is temporarily unavailable."}));
  EXPECT_THAT(names(), IsEmpty());
}

TEST_F(CapturePreparationServiceTest, ServesOneToSixteenDisplays) {
  for (const std::uint32_t count : {1U, 16U}) {
    setDisplays(count);
    EXPECT_EQ(prepare().captures.size(), count);
    EXPECT_EQ(names().size(), count);
    EXPECT_EQ(fs::exists(session + "/15.png"), count == 16);
    fs::remove_all(session);
    fs::create_directory(session);
  }
}

TEST_F(CapturePreparationServiceTest, NoDisplayOrMoreThanSixteenAreUnavailable) {
  for (const std::uint32_t count : {0U, 17U}) {
    setDisplays(count);
    EXPECT_EQ(failure(), (NativeServiceError{NativeErrorCode::contentUnavailable,
                                             "Shareable screen content is temporarily unavailable."}));
    EXPECT_THAT(machine.filters, IsEmpty());
    EXPECT_THAT(names(), IsEmpty());
  }
}

TEST_F(CapturePreparationServiceTest, TheFirstFailureLeavesWhatIsFinishedAndNothingElse) {
  setDisplays(4);
  const NativeServiceError captureFailed{NativeErrorCode::captureFailed,
                                         "The screenshot could not be captured. Try the selection again."};
  machine.failingCapture = 2;
  EXPECT_EQ(failure(), captureFailed);
  EXPECT_THAT(names(), ElementsAre("0.png", "1.png"));
  EXPECT_EQ(machine.filters.size(), 2U) << "nothing behind the failure is tried";
}

TEST_F(CapturePreparationServiceTest, AnEmptyPictureIsProtectedContent) {
  machine.emptyPicture = 1;
  EXPECT_EQ(failure(), (NativeServiceError{NativeErrorCode::protectedContent,
                                           "The selected content cannot be captured."}));
  EXPECT_THAT(names(), ElementsAre("0.png"));
}

TEST_F(CapturePreparationServiceTest, AFullDiskIsAFailedOutput) {
  machine.failingWrite = 1;
  EXPECT_EQ(failure(), (NativeServiceError{NativeErrorCode::outputFailed,
                                           "The screenshot could not be written to its temporary output."}));
  EXPECT_THAT(names(), ElementsAre("0.png"));
}

TEST_F(CapturePreparationServiceTest, AFileThatCannotBeMovedIsTheSystemsErrorAndGoes) {
  files.failNth(FileOperation::rename, 2, EIO);
  EXPECT_THROW((void)prepare(), FileFailure);
  EXPECT_THAT(names(), ElementsAre("0.png"));
}

TEST_F(CapturePreparationServiceTest, AFileThatSomebodyElsePutThereIsNotReplaced) {
  files.setObserver([&](const FaultyFileSystem::Event& event) {
    if (event.operation == FileOperation::rename && event.target.ends_with("/1.png"))
      directory.write(sessionID + "/1.png", "somebody else's");
  });
  EXPECT_THROW((void)prepare(), FileFailure);
  EXPECT_THAT(names(), ElementsAre("0.png", "1.png"));
  EXPECT_EQ(directory.read(sessionID + "/1.png"), "somebody else's");
}

} // namespace
} // namespace tessarin
