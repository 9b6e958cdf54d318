#pragma once

#include "base/Json.hpp"
#include "model/Errors.hpp"

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <utility>

// The one reply of a job. Plain values, any thread.
namespace tessarin {

// The payload of commands that only report completion.
struct OperationPayload {
  bool completed = true;

  static constexpr auto fields() {
    return json::table(json::field("completed", &OperationPayload::completed));
  }
  bool operator==(const OperationPayload&) const = default;
};

template<class T> struct NativeResponse {
  std::int64_t schemaVersion = 1;
  bool ok = false;
  std::optional<T> data;                   // on success only
  std::optional<NativeErrorPayload> error; // on failure only

  static constexpr auto fields() {
    return json::table(json::field("schemaVersion", &NativeResponse::schemaVersion),
                       json::field("ok", &NativeResponse::ok), json::field("data", &NativeResponse::data),
                       json::field("error", &NativeResponse::error));
  }
  bool operator==(const NativeResponse&) const = default;
};

namespace exitStatus {
inline constexpr std::int32_t success = 0;
inline constexpr std::int32_t failed = 1;  // accepted, but the work failed
inline constexpr std::int32_t refused = 2; // the caller's input
} // namespace exitStatus

// What a run yields to the process: the bytes for standard output, perhaps none, and the exit status.
struct NativeExecution {
  std::string output;
  std::int32_t exitCode = exitStatus::success;

  bool operator==(const NativeExecution&) const = default;
};

// Stands in for a response that has no JSON form.
inline constexpr std::string_view unencodableResponse =
    R"({"schemaVersion":1,"ok":false,"error":{"code":"internalError",)"
    R"("message":"The native response could not be encoded.","recoverable":true}})";

// The one way for a response to become bytes. Never throws for what the response holds.
template<class T> NativeExecution encode(const NativeResponse<T>& response, std::int32_t exitCode) {
  try {
    return {json::encode(response), exitCode};
  } catch (const json::EncodingFailure&) {
    return {std::string(unencodableResponse), exitStatus::failed};
  }
}

template<class T> NativeExecution succeeded(T payload) {
  return encode(NativeResponse<T>{.ok = true, .data = std::move(payload), .error = std::nullopt},
                exitStatus::success);
}

} // namespace tessarin
