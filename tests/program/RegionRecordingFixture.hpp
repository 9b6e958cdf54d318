#pragma once

#include "DesktopFixture.hpp"
#include "RecordedFiles.hpp"
#include "RecordingProcess.hpp"

#include "support/TemporaryDirectory.hpp"

#include <algorithm>
#include <filesystem>
#include <functional>
#include <memory>
#include <string>
#include <vector>

namespace tessarin {

// Recordings by the built program of a small window that counts, without sound.
class RegionRecordingFixture : public DesktopFixture {
 protected:
  static inline const std::string sessionID = "0B8C6A52-3C5A-4F1B-9E43-1F2D3C4B5A69";

  RegionRecordingFixture() { std::filesystem::create_directory(session()); }

  std::string session() const { return directory / sessionID; }
  std::string segment(int index) const {
    return session() + "/segments/segment-000" + std::to_string(index) + ".mp4";
  }

  std::string request() const {
    return R"({"sessionId":")" + sessionID + R"(","kind":"region","displayId":")" + display +
           R"(","rectPoints":{"x":0,"y":0,"width":320,"height":240},"outputDirectory":")" + session() +
           R"(","settings":{"microphone":false,"systemAudio":false,"camera":false,)"
           R"("cameraPosition":"bottomRight","showsCursor":false,"showMouseClicks":false,"frameRate":15,)"
           R"("quality":"standard","outputScale":"original"}})";
  }

  RecordingProcess record(const std::string& ignoredSignals = "") const {
    const RecordingProcess::Environment environment = {{"DISPLAY", desktop.display()}};
    return {sessionID, request(), environment, directory / "diagnostics", ignoredSignals};
  }

  // The manifest lists so many segments, each readable to the length that it tells, and nothing is beside
  // it that should have gone.
  void expectSegments(std::size_t count) const {
    const std::vector<ManifestSegment> segments = manifestSegments(session());
    ASSERT_EQ(segments.size(), count);
    for (std::size_t i = 0; i < count; ++i) {
      EXPECT_EQ(segments[i].path, segment(static_cast<int>(i)));
      EXPECT_EQ(static_cast<std::int64_t>(std::filesystem::file_size(segments[i].path)),
                segments[i].sizeBytes);
      const std::vector<double> times = pictureTimes(segments[i].path);
      EXPECT_TRUE(std::is_sorted(times.begin(), times.end(), std::less_equal<>()));
      EXPECT_NEAR(times.back() * 1000, static_cast<double>(segments[i].durationMs), 300);
      EXPECT_EQ(decodedPictures(segments[i].path), static_cast<int>(times.size()));
    }
    EXPECT_FALSE(std::filesystem::exists(session() + "/native-manifest.json.tmp"));
  }

  const std::string display = displayID();
  TemporaryDirectory directory;
  const std::unique_ptr<TestClient> animation =
      desktop.client({"--style", "override", "--paint", "counter", "--fps", "15", "--size", "320x240"});
};

} // namespace tessarin
