#pragma once

#include "base/FileSystem.hpp"
#include "project/VideoEditExportRequest.hpp"

#include <string>

// The file in which a request rests that is too large for a command line. The host writes it into the
// session's "exports" directory under a name of its own, and removes it again.
namespace tessarin::VideoEditRequestFile {

// The request in the file, with the care due to a path that came from another process: the name and its
// directory are checked, no link is followed, and only a regular file of at most 4 MiB of the user's own is
// read, which may not change meanwhile. The request has passed its own check, and belongs to the session in
// whose directory it lies.
//
// Throws Failure<VideoEditExportError>, invalidProject, or what the request's own check throws; FileFailure
// when the directory cannot be asked for, and json::DecodingFailure for the text.
VideoEditExportRequestDTO read(FileSystem& files, const std::string& path);

} // namespace tessarin::VideoEditRequestFile
