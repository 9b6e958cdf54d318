#pragma once

#include <optional>

// The signals by which a system, a terminal or a host asks the process to end: SIGTERM, SIGINT and SIGHUP.
namespace tessarin::endSignals {

// Keeps them from ending the process, any number of them, for good: what is at work decides when it ends. To
// be called before another thread starts, since threads inherit it. Yields a descriptor that is readable from
// the first such signal on and stays open to the process's end. A signal that the parent has the process
// ignore stays ignored; nothing where that is all of them, or where no descriptor can be had and the signals
// therefore keep their effect.
std::optional<int> hold();

} // namespace tessarin::endSignals
