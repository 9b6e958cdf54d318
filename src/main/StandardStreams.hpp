#pragma once

#include <functional>
#include <string_view>

// What the process does with its standard descriptors and with the signal of a broken pipe.
namespace tessarin::standardStreams {

// Opens each standard descriptor that the parent left closed on nothing, so that no file or socket of this
// process ever takes its number. To read from such an input, or to write to such an output, fails as if it
// were closed; diagnostics vanish.
void occupy();

// Takes the signal of a broken pipe away while the job works: the display server or the host may go at any
// time, and a recording must be finished all the same.
void ignoreBrokenPipes();

// Writes a reply and then, by itself, a line feed to standard output. The signal of a broken pipe is back
// in force, so a host that has gone ends the process here. Other failures are ignored: there is nobody to
// tell.
void writeReply(std::string_view reply);

// Writes text as it stands to the terminal on standard error; null where that is no terminal.
std::function<void(std::string_view)> terminal();

} // namespace tessarin::standardStreams
