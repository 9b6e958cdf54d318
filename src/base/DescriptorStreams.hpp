#pragma once

#include <chrono>
#include <cstddef>
#include <functional>
#include <span>
#include <string_view>

// Bytes to and from other processes.
namespace tessarin {

// Takes bytes whole, or throws.
using OutputSink = std::function<void(std::string_view bytes)>;

// Writes to a descriptor that is not owned: one call where the system takes the bytes whole, more only for
// what it left over. Waits where the descriptor would not block. Throws FileFailure. The process must
// ignore SIGPIPE for a reader that has gone to be a failure rather than the end.
OutputSink descriptorSink(int descriptor);

// The same for a reader that must keep up: one that takes nothing for that long counts as gone for good,
// which is the failure ETIMEDOUT of this call and, without another wait, of every later one. One thread at
// a time.
OutputSink impatientDescriptorSink(int descriptor, std::chrono::milliseconds patience);

// Reads what there is, at least a byte and at most the span's size, and waits for it; 0 at the end. Throws
// FileFailure.
using InputSource = std::function<std::size_t(std::span<char> into)>;

// Reads from a descriptor that is not owned. A signal in between changes nothing.
InputSource descriptorSource(int descriptor);

} // namespace tessarin
