#pragma once

#include "trace/InteractionEventDTO.hpp"

#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

namespace tessarin {

class FileSystem;

// The file of an interaction trace: UTF-8, one event a line in order of time, each ended by one line feed.
// Stateless, any thread.
namespace InteractionEventFile {

inline constexpr std::string_view name = "interaction-events.jsonl";
inline constexpr std::size_t maximumBytes = 33'554'432;
inline constexpr std::size_t maximumEvents = 400'000;
inline constexpr std::size_t maximumLineBytes = 2048; // on reading, without the line feed

// Whether an event may stand in a trace: a time of 0 or more, a place within the capture rectangle, and of
// keys only a shortcut.
bool isValid(const InteractionEventDTO& event);

// All events, in the order of the file. What stands behind the last line feed was cut short by a crash and is
// ignored. Everything else has to be right: otherwise throws Failure<VideoEditExportError>, invalidProject.
std::vector<InteractionEventDTO> parse(std::string_view bytes);

// Of a regular file of at most `maximumBytes` that is no link. Fails as parse() does.
std::vector<InteractionEventDTO> load(FileSystem& files, const std::string& path);

} // namespace InteractionEventFile

} // namespace tessarin
