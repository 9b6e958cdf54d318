#pragma once

// What the process makes of the limits that it was started with. Before any other thread begins.
namespace tessarin::processLimits {

// Lets the process have as many files open as it may, up to 16,384. A shell's usual 1,024 are there for
// programs that wait with select(), which nothing here does; a recording that is paused very often needs
// more.
void allowManyFiles();

// Lets a write that is beyond the largest size of a file fail like any other, where it would end the process:
// a recording ends in order then, and keeps what it has.
void failBeyondLargestFile();

} // namespace tessarin::processLimits
