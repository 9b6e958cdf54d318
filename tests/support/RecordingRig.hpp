#pragma once

#include "base/SafeFile.hpp"
#include "recording/ControlInput.hpp"
#include "recording/RecordingEventWriter.hpp"
#include "recording/RecordingService.hpp"
#include "support/FaultyFileSystem.hpp"
#include "support/LittleMovie.hpp"
#include "support/ManualQueue.hpp"
#include "support/RecordingRequests.hpp"
#include "support/ScriptedDevices.hpp"
#include "support/ScriptedInteractions.hpp"
#include "support/ScriptedMediaWriter.hpp"
#include "support/ScriptedPanels.hpp"
#include "support/ScriptedScreenStream.hpp"
#include "support/ScriptedTypesetter.hpp"
#include "support/TemporaryDirectory.hpp"

#include <unistd.h>

#include <algorithm>
#include <cstddef>
#include <deque>
#include <functional>
#include <mutex>
#include <optional>
#include <regex>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

namespace tessarin::testing {

// A desktop of one display, one window on it, and the panels of the session.
class SampleDesktop final : public DesktopContent {
 public:
  explicit SampleDesktop(const ScriptedPanelFactory& panels) : panels_(panels) {}

  bool hasAccess = true;
  bool isUnreadable = false;
  std::int32_t ownerPID = sampleWindow().ownerPID;
  RunningApplication self{"recorder", 777, "Recorder"}; // owns the panels
  bool hidesPanels = false;

  bool hasScreenCaptureAccess() override { return hasAccess; }
  ShareableContent content() override {
    if (isUnreadable)
      throw DesktopFailure();
    const RunningApplication editor{"editor", ownerPID, sampleWindow().ownerName};
    ShareableContent content;
    content.displays = {{77, sampleDisplay().framePoints, 1, true}};
    content.windows = {{4194310, sampleWindow().framePoints, sampleWindow().title, 0, true, editor}};
    content.applications = {editor};
    if (!hidesPanels)
      for (const ShareableWindow& panel : panels_.windows(self))
        content.windows.push_back(panel);
    return content;
  }

 private:
  const ScriptedPanelFactory& panels_;
};

// A queue that is early: what it is to do later it does at once.
class ImpatientQueue final : public SerialQueue {
 public:
  explicit ImpatientQueue(std::unique_ptr<SerialQueue> queue) : queue_(std::move(queue)) {}
  void async(Task task) override { queue_->async(std::move(task)); }
  void sync(const Task& task) override { queue_->sync(task); }
  bool isCurrent() const override { return queue_->isCurrent(); }
  std::unique_ptr<QueueTimer> after(Duration, Task task) override {
    task();
    return nullptr;
  }
  std::unique_ptr<QueueTimer> every(Duration first, Duration interval, Task task) override {
    return queue_->every(first, interval, std::move(task));
  }

 private:
  std::unique_ptr<SerialQueue> queue_;
};

// Joins whose sound needs coding anew fail, where a test expects none.
class NoReencoder final : public AudioReencoder {
 public:
  void reencode(const std::vector<AudioPiece>&, const std::string&) override {
    throw std::runtime_error("no sound is to be coded anew");
  }
};

// A whole recording session on scripted ports and real files. The session runs on the calling thread; each
// time that it has announced to be recording or paused, that is, is about to read a line, it runs the next
// of the test's steps on that thread. Behind the last step its input ends.
class RecordingRig {
 public:
  using Milliseconds = std::chrono::milliseconds;

  RecordingRig() {
    request.outputDirectory = directory / sampleSessionID;
    ask(CaptureKind::display);
    files.makeDirectory(request.outputDirectory);
    streams.prepare = [](ScriptedScreenStream& stream) { stream.presentPicture = 1; };
    media.prepare = [this](ScriptedMediaFile& file, std::size_t) { produceMovie(file); };
    devices.prepare = [this](ScriptedDevice& device, ScriptedDevices::Source source) {
      device.onStart = [this, &device, source] { deliverFirst(device, source); };
    };
    if (::pipe(pipe_) != 0)
      throw std::runtime_error("no pipe");
  }
  ~RecordingRig() {
    endInput();
    ::close(pipe_[0]);
  }
  RecordingRig(const RecordingRig&) = delete;
  RecordingRig& operator=(const RecordingRig&) = delete;

  std::int32_t run() {
    ControlInput input(pipe_[0]);
    RecordingEventWriter events([this](std::string_view line) { tookEvent(line); });
    const auto mainQueue = makeQueue("main");
    return RecordingService({.contentService = *contentService,
                             .desktop = desktop,
                             .streams = streams,
                             .devices = devices,
                             .authorization = authorization,
                             .media = media,
                             .reencoder = reencoder,
                             .interactions = interactions,
                             .panels = panels,
                             .typesetter = typesetter,
                             .files = files,
                             .clock = clock,
                             .makeQueue = makeQueue,
                             .mainQueue = *mainQueue,
                             .sleep = sleep,
                             .diagnostics = [this](const std::string& line) { addDiagnostics(line); },
                             .hasListenEventAccess = [this] { return hasListenEventAccess; }})
        .run(request, input, events);
  }

  // Real threads, and real time while a device is waited for.
  void useThreads() {
    makeQueue = makeThreadQueue;
    sleep = [](std::chrono::milliseconds time) { std::this_thread::sleep_for(time); };
  }
  void use(bool systemAudio, bool microphone, bool camera) {
    request.settings.systemAudio = systemAudio;
    request.settings.microphone = microphone;
    request.settings.camera = camera;
  }

  // A trace of all that a person does, and badges of shortcuts. The pointer is in the middle of the display.
  void useTrace() {
    request.settings.showsCursor = true;
    request.settings.showMouseClicks = true;
    request.settings.recordKeyboardShortcuts = true;
    hasListenEventAccess = true;
    interactions.moveTo(100 + 960, 50 + 540);
  }
  // Control and C, a shortcut.
  void pressShortcut() {
    constexpr std::uint16_t keyC = 46;
    interactions.key(keyC, {.control = true});
  }

  // Of another kind of capture, of its sample, in the same directory and without a trace.
  void ask(CaptureKind kind) {
    const std::string outputDirectory = request.outputDirectory;
    request = sampleRequest(kind);
    request.outputDirectory = outputDirectory;
    request.settings.showsCursor = false;
  }

  // Steps of a session.
  void then(std::function<void()> step) { steps_.push_back(std::move(step)); }
  void thenSend(const std::string& command) {
    then([this, command] { send(command); });
  }
  // The clock goes on, and the stream and every device that runs deliver at 30 times a second.
  void record(Milliseconds time) {
    const auto start = clock.elapsed();
    for (std::int64_t i = 1; i <= time.count() * 30 / 1000; ++i) {
      const auto before = MediaTime::nanoseconds(clock.elapsed().count());
      clock.set(start + std::chrono::nanoseconds(i * 1'000'000'000 / 30));
      deliverFromDevices(before);
      stream().deliver(++picture_, clock.now());
    }
    clock.set(start + time);
  }
  void send(const std::string& command) {
    sendLine(R"({"schemaVersion":2,"command":")" + command + R"(","sessionId":")" + sampleSessionID + "\"}");
  }
  void sendLine(const std::string& line) {
    const std::string bytes = line + "\n";
    if (::write(pipe_[1], bytes.data(), bytes.size()) != static_cast<ssize_t>(bytes.size()))
      throw std::runtime_error("the control line was not taken whole");
  }
  void endInput() {
    if (pipe_[1] >= 0)
      ::close(pipe_[1]);
    pipe_[1] = -1;
  }

  ScriptedScreenStream& stream() { return *streams.streams.at(0); }
  ScriptedDevice& microphone() { return *devices.microphones.at(0); }
  ScriptedDevice& camera() { return *devices.cameras.at(0); }
  ScriptedDevice& systemAudio() { return *devices.systemAudios.at(0); }
  ScriptedMediaFile& segment(std::size_t index) { return *media.files.at(index); }
  // Files of the session directory.
  std::string path(const std::string& name) const { return request.outputDirectory + "/" + name; }
  void write(const std::string& name, const std::string& text) const {
    directory.write(sampleSessionID + "/" + name, text);
  }
  std::string read(const std::string& name) const { return directory.read(sampleSessionID + "/" + name); }

  // What was told, with DIR for the session directory, ID for the session, and SIZE for sizes.
  std::vector<std::string> events() {
    const std::lock_guard lock(lock_);
    return events_;
  }
  std::vector<std::string> diagnostics() {
    const std::lock_guard lock(lock_);
    return diagnostics_;
  }
  // The lines that end a failed session.
  std::string lastEvent() { return events().empty() ? "" : events().back(); }
  std::string lastDiagnostics() { return diagnostics().empty() ? "" : diagnostics().back(); }
  // As it went over the wire.
  std::string rawEvent(std::size_t index) {
    const std::lock_guard lock(lock_);
    return rawEvents_.at(index);
  }

  // Everything in the session directory, sorted, folders with a slash at their end.
  std::vector<std::string> entries() {
    std::vector<std::string> found;
    collect(directory / sampleSessionID, "", found);
    std::sort(found.begin(), found.end());
    return found;
  }

  TemporaryDirectory directory;
  RecordingRequestDTO request = sampleRequest();
  ManualClock clock{std::chrono::seconds(10)};
  ManualScheduler scheduler{clock};
  QueueFactory makeQueue = scheduler.queueFactory();
  ScriptedPanelFactory panels;
  SampleDesktop desktop{panels};
  ScriptedInteractions interactions{clock};
  ScriptedTypesetter typesetter;
  std::optional<ContentService> contentService{desktop};
  FaultyFileSystem files{machineFileSystem()};
  ScriptedScreenStreamFactory streams{clock};
  ScriptedDevices devices;
  ScriptedCaptureAuthorization authorization;
  ScriptedMediaFileWriterFactory media;
  NoReencoder reencoder;
  Sleeper sleep = [this](std::chrono::milliseconds time) { scheduler.advance(time); };
  SizeDTO cameraSize{64, 48}; // pixels
  bool hasListenEventAccess = false;
  // Called with each event as it is written; what it throws the write throws.
  std::function<void(const std::string&)> onEvent;

  // A file that appears when it is begun, is a movie when it is finished, and goes when it is cancelled.
  void produceMovie(ScriptedMediaFile& file) {
    file.onStart = [this](ScriptedMediaFile& it) { files.open(it.options.path, OpenMode::createExclusive); };
    file.onFinish = [this](ScriptedMediaFile& it) { writeTracks(it); };
    file.onCancel = [this](ScriptedMediaFile& it) { removeQuietly(files, it.options.path); };
  }
  MediaTime lengthening = MediaTime::zero(); // by how much files come out longer than what was written
  std::vector<MediaTime> trackLengthenings;  // likewise, of single tracks by their index

 private:
  // Pictures end a thirtieth of a second behind the last one of the screen, and so does all sound.
  void writeTracks(ScriptedMediaFile& file) {
    std::vector<LittleTrack> tracks;
    for (std::size_t i = 0; i < file.trackCount; ++i) {
      MediaTime end = file.appended.back().time + MediaTime(1, 30) + lengthening;
      if (i < trackLengthenings.size())
        end = end + trackLengthenings[i];
      if (file.track(i).audio) {
        tracks.push_back(littleSound(end));
        continue;
      }
      tracks.push_back({container::TrackKind::video, {}, end});
      for (const ScriptedMediaTrack::Append& append : file.track(i).appended)
        tracks.back().times.push_back(append.time);
    }
    writeLittleMovie(files, file.options.path, tracks, OpenMode::createTruncated);
  }

  // Sound comes when it has been heard, so it began before.
  void deliverFirst(ScriptedDevice& device, ScriptedDevices::Source source) {
    if (source == ScriptedDevices::Source::camera)
      deliverCameraFrame(device);
    else
      device.deliver(steadySample(0.5F, 240, clock.now() - MediaTime::milliseconds(5)));
    scheduler.runPending();
  }

  void deliverCameraFrame(ScriptedDevice& device) {
    device.deliver(numberedCameraFrame(picture_, static_cast<std::int32_t>(cameraSize.width),
                                       static_cast<std::int32_t>(cameraSize.height), clock.now()));
  }

  // A thirtieth of a second of sound, from the time given, and a picture of now.
  void deliverFromDevices(MediaTime soundTime) {
    constexpr std::size_t frameCount = 1600;
    for (const auto* const sources : {&devices.systemAudios, &devices.microphones})
      for (const auto& device : *sources)
        device->deliver(steadySample(0.5F, frameCount, soundTime));
    for (const auto& device : devices.cameras)
      deliverCameraFrame(*device);
    scheduler.runPending();
  }

  void tookEvent(std::string_view line) {
    const std::string text = std::string(line.substr(0, line.size() - 1));
    {
      const std::lock_guard lock(lock_);
      rawEvents_.emplace_back(line);
      events_.push_back(normalised(text));
    }
    if (onEvent)
      onEvent(text);
    if (text.find(R"("phase":"recording")") == std::string::npos &&
        text.find(R"("phase":"paused")") == std::string::npos)
      return;
    if (steps_.empty())
      return endInput();
    const std::function<void()> step = steps_.front();
    steps_.pop_front();
    step();
  }

  std::string normalised(std::string text) const {
    const auto replaceAll = [&](const std::string& what, const std::string& by) {
      for (std::size_t at = text.find(what); at != std::string::npos; at = text.find(what, at + by.size()))
        text.replace(at, what.size(), by);
    };
    replaceAll(request.outputDirectory, "DIR");
    replaceAll(request.sessionID, "ID");
    return std::regex_replace(text, std::regex("\"sizeBytes\":[1-9][0-9]*"), "\"sizeBytes\":SIZE");
  }

  void addDiagnostics(const std::string& line) {
    const std::lock_guard lock(lock_);
    diagnostics_.push_back(line);
  }

  void collect(const std::string& folder, const std::string& prefix, std::vector<std::string>& found) {
    const auto names = machineFileSystem().list(folder, 1000);
    for (const std::string& name : names.value()) {
      const bool isFolder = machineFileSystem().info(folder + "/" + name)->kind == FileKind::directory;
      const std::string entry = prefix + name + (isFolder ? "/" : "");
      found.push_back(entry);
      if (isFolder)
        collect(folder + "/" + name, entry, found);
    }
  }

  int pipe_[2] = {-1, -1};
  std::deque<std::function<void()>> steps_;
  std::uint8_t picture_ = 1;
  std::mutex lock_; // guards the rest
  std::vector<std::string> events_;
  std::vector<std::string> rawEvents_;
  std::vector<std::string> diagnostics_;
};

} // namespace tessarin::testing
