#pragma once

#include <string_view>

// The paths of an edit obey one layout: the session's directory, named by its UUID, holds the recording and
// what belongs to it, and a directory "exports" in it holds outputs and request files. Paths are looked at by
// their components, so repeated slashes make no difference. Pure, any thread.
namespace tessarin {

inline constexpr std::string_view editExportsDirectoryName = "exports";
inline constexpr std::string_view editCameraFileName = "camera.mp4";
inline constexpr std::string_view editInteractionFileName = "interaction-events.jsonl";

// Absolute, without a component ".." and without a NUL.
bool isPlainAbsolutePath(std::string_view path);
// The same, and of a file whose extension is "mp4" in either case.
bool isPlainMoviePath(std::string_view path);

// The name of the directory that is so many levels above the path's last component, counted from 1; empty
// where there is none.
std::string_view nameAbove(std::string_view path, std::size_t levels);

// Whether both are absolute and lie in the same directory.
bool haveSameParent(std::string_view a, std::string_view b);
// Whether both are absolute and name the same entry.
bool areSamePath(std::string_view a, std::string_view b);

} // namespace tessarin
