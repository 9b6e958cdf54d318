#include "recording/RecordingContentFilter.hpp"

namespace tessarin {

ContentFilter recordingContentFilter(const ValidatedRecordingRequest& validated,
                                     const ContentSnapshot& snapshot) {
  const auto display = snapshot.displaysByID.find(validated.display.id);
  if (display == snapshot.displaysByID.end())
    throw serviceErrors::contentUnavailable();
  ContentFilter filter;
  filter.displayID = display->second.displayID;
  if (!validated.window) {
    filter.excludedApplications = snapshot.excludedApplications;
    return filter;
  }
  const auto window = snapshot.windowsByID.find(validated.window->id);
  if (window == snapshot.windowsByID.end())
    throw serviceErrors::contentUnavailable();
  filter.kind = ContentFilter::Kind::desktopIndependentWindow;
  filter.windowID = window->second.windowID;
  return filter;
}

ContentFilter excludingOverlays(ContentFilter filter, const RunningApplication& application) {
  std::vector<RunningApplication>& excluded = filter.excludedApplications;
  std::erase_if(excluded,
                [&](const RunningApplication& other) { return other.processID == application.processID; });
  excluded.insert(excluded.begin(), application);
  return filter;
}

} // namespace tessarin
