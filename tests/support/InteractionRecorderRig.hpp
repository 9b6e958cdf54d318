#pragma once

#include "support/FaultyFileSystem.hpp"
#include "support/ManualQueue.hpp"
#include "support/ScriptedInteractions.hpp"
#include "support/TemporaryDirectory.hpp"
#include "trace/InteractionEventFile.hpp"
#include "trace/InteractionEventRecorder.hpp"

#include <chrono>
#include <memory>
#include <string>
#include <variant>
#include <vector>

namespace tessarin::testing {

using Shortcut = std::vector<std::string>;

// A recorder over a scripted pointer and keyboard, a clock and a queue turned by hand, and a real directory.
// For tests that link the trace room. The capture rectangle is 1000 by 500 points at (100, 200), and the
// pointer begins at its top left corner.
struct InteractionRecorderRig {
  InteractionRecorderRig() { source.moveTo(100, 200); }

  void make() {
    recorder =
        std::make_unique<InteractionEventRecorder>(setup, source, clock, files, scheduler.queueFactory());
  }
  void observe() {
    make();
    recorder->startObserving();
    scheduler.advance(std::chrono::nanoseconds::zero()); // the first tick
  }
  // Recording from now on, the active time at 0.
  void begin() {
    observe();
    recorder->startSegment(0, std::nullopt);
  }

  std::string text() const { return directory.read("interaction-events.jsonl"); }
  std::vector<InteractionEventDTO> events() { return InteractionEventFile::load(files, path); }

  template<class Event> std::vector<Event> eventsOf() {
    std::vector<Event> found;
    for (const InteractionEventDTO& event : events())
      if (const auto* one = std::get_if<Event>(&event.event))
        found.push_back(*one);
    return found;
  }
  template<class Event> std::vector<std::int64_t> timesOf() {
    std::vector<std::int64_t> times;
    for (const Event& event : eventsOf<Event>())
      times.push_back(event.timestampMs);
    return times;
  }
  std::vector<Shortcut> shortcuts() {
    std::vector<Shortcut> found;
    for (const InteractionShortcutEvent& event : eventsOf<InteractionShortcutEvent>())
      found.push_back(event.keys);
    return found;
  }

  TemporaryDirectory directory;
  const std::string path = directory / "interaction-events.jsonl";
  FaultyFileSystem files{machineFileSystem()};
  ManualClock clock{std::chrono::seconds(1000)};
  ManualScheduler scheduler{clock};
  ScriptedInteractions source{clock};
  std::vector<RecordingShortcutUpdate> updates;
  InteractionRecorderSetup setup = {
      .outputDirectory = directory.path(),
      .captureRect = {100, 200, 1000, 500},
      .recordsCursor = true,
      .recordsClicks = true,
      .recordsShortcuts = true,
      .cursorRenderedInSource = false,
      .shortcutHandler = [this](const RecordingShortcutUpdate& update) { updates.push_back(update); }};
  std::unique_ptr<InteractionEventRecorder> recorder;
};

} // namespace tessarin::testing
