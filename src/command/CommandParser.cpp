#include "command/CommandParser.hpp"

#include "base/Failure.hpp"
#include "base/Text.hpp"

#include <algorithm>
#include <array>
#include <cstddef>
#include <optional>

namespace tessarin {

std::string_view messageOf(CommandParserError error) {
  switch (error) {
  case CommandParserError::invalidArguments:
    return "Invalid native helper arguments.";
  case CommandParserError::invalidRequestEncoding:
    return "The capture request is not valid base64 data.";
  case CommandParserError::pathMustBeAbsolute:
    return "Media paths must be absolute.";
  }
  return {};
}

namespace CommandParser {

namespace {

constexpr std::size_t longestPath = 4096; // bytes
constexpr std::size_t longestRecognitionRequest = 8192;
constexpr std::size_t longestPreparationRequest = 16384;

// Checks of values. A path is UTF-8 always.

bool isAbsolute(std::string_view value) {
  return isAbsolutePath(value) && isValidUtf8(value);
}
bool isShortAbsolute(std::string_view value) {
  return value.size() <= longestPath && isAbsolute(value);
}
bool isShortClean(std::string_view value) {
  return value.size() <= longestPath && isCleanAbsoluteMediaPath(value) && isValidUtf8(value);
}
bool isBase64(std::string_view value) {
  return decodedBase64(value).has_value();
}
bool isRequest(std::string_view value) {
  return !value.empty() && isBase64(value);
}
bool isRecognitionRequest(std::string_view value) {
  return value.size() <= longestRecognitionRequest && isBase64(value);
}
bool isPreparationRequest(std::string_view value) {
  return value.size() <= longestPreparationRequest && isRequest(value);
}
bool isHdrFormat(std::string_view value) {
  return json::fromName<HdrImageFormat>(value).has_value();
}
bool isLanguage(std::string_view value) {
  return value == "en-US" || value == "zh-CN";
}
bool isAudioRole(std::string_view value) {
  return value == "microphone" || value == "system" || value == "mixed";
}

// What the tokens in the places of values yield once they have passed.

using Values = std::array<std::string, 3>;
using Maker = NativeCommand (*)(const Values&);

template<class Command> NativeCommand make(const Values& values) {
  if constexpr (requires { Command{values[0]}; })
    return Command{values[0]};
  else
    return Command{};
}
template<bool excludeParentApplication> NativeCommand makeList(const Values&) {
  return commands::List{excludeParentApplication};
}
NativeCommand makeRenderHdr(const Values& values) {
  return commands::RenderHdr{values[0],
                             json::fromName<HdrImageFormat>(values[1]).value_or(HdrImageFormat::heic)};
}
NativeCommand makeTranscribeCaptions(const Values& values) {
  return commands::TranscribeCaptions{values[0], values[1], values[2]};
}

struct Form {
  std::string_view tokens; // separated by blanks; a question mark takes any token as a value
  std::array<bool (*)(std::string_view), 3> checks; // one for each value
  CommandParserError refusal;                       // for a bad value
  Maker make;
};

using enum CommandParserError;
namespace c = commands;

// The grammar. The first form whose words and number of tokens fit is the one; there is no going back from
// a bad value. Differences between the checks and refusals of forms that look alike are meant: hosts rely
// on them.
constexpr Form forms[] = {
    {"render-hdr --directory ? --format ?", {isShortClean, isHdrFormat}, invalidArguments, makeRenderHdr},
    {"copy-hdr --directory ?", {isShortClean}, invalidArguments, make<c::CopyHdr>},
    {"render-hdr --directory ?", {isShortAbsolute}, invalidArguments, makeRenderHdr},
    {"translate-text", {}, invalidArguments, make<c::TranslateText>},
    {"recognize-text --request-json ?",
     {isRecognitionRequest},
     invalidRequestEncoding,
     make<c::RecognizeText>},
    {"warm-text-recognition", {}, invalidArguments, make<c::WarmTextRecognition>},
    {"recognize-qr --request-json ?", {isRecognitionRequest}, invalidRequestEncoding, make<c::RecognizeQr>},
    {"status", {}, invalidArguments, make<c::Status>},
    {"microphone-status", {}, invalidArguments, make<c::MicrophoneStatus>},
    {"request-microphone-permission", {}, invalidArguments, make<c::RequestMicrophonePermission>},
    {"camera-status", {}, invalidArguments, make<c::CameraStatus>},
    {"request-camera-permission", {}, invalidArguments, make<c::RequestCameraPermission>},
    {"interaction-permission-status", {}, invalidArguments, make<c::InteractionPermissionStatus>},
    {"request-interaction-permission", {}, invalidArguments, make<c::RequestInteractionPermission>},
    {"speech-permission-status", {}, invalidArguments, make<c::SpeechPermissionStatus>},
    {"request-speech-permission", {}, invalidArguments, make<c::RequestSpeechPermission>},
    {"recording-input-devices", {}, invalidArguments, make<c::RecordingInputDevices>},
    {"sample-recording-system-audio --request-json ?",
     {isRequest},
     invalidRequestEncoding,
     make<c::SampleRecordingSystemAudio>},
    {"recording-available-bytes", {}, invalidArguments, make<c::RecordingAvailableBytes>},
    {"list", {}, invalidArguments, makeList<false>},
    {"list --exclude-parent-application", {}, invalidArguments, makeList<true>},
    {"prepare-capture --request-json ?",
     {isPreparationRequest},
     invalidRequestEncoding,
     make<c::PrepareCapture>},
    {"capture --request-json ?", {isRequest}, invalidRequestEncoding, make<c::Capture>},
    {"record --request-json ?", {isRequest}, invalidRequestEncoding, make<c::Record>},
    {"recover-recording --request-json ?", {isRequest}, invalidRequestEncoding, make<c::RecoverRecording>},
    {"inspect-edit-source --request-json ?", {isRequest}, invalidRequestEncoding, make<c::InspectEditSource>},
    {"audio-waveform --request-json ?", {isRequest}, invalidRequestEncoding, make<c::AudioWaveform>},
    {"export-edit --request-json ?", {isRequest}, invalidRequestEncoding, make<c::ExportEdit>},
    {"prepare-narration --request-file ?",
     {isShortAbsolute},
     pathMustBeAbsolute,
     make<c::PrepareNarrationFile>},
    {"transcribe-captions --request-file ? --language ? --audio ?",
     {isShortAbsolute, isLanguage, isAudioRole},
     invalidRequestEncoding,
     makeTranscribeCaptions},
    {"export-edit --request-file ?", {isShortAbsolute}, pathMustBeAbsolute, make<c::ExportEditFile>},
    {"export-gif --request-json ?", {isRequest}, invalidRequestEncoding, make<c::ExportGIF>},
    {"thumbnail --request-json ?", {isRequest}, invalidRequestEncoding, make<c::Thumbnail>},
    {"copy --path ?", {isAbsolute}, pathMustBeAbsolute, make<c::Copy>},
    {"copy-file --path ?", {isAbsolute}, pathMustBeAbsolute, make<c::CopyFile>},
    {"share --path ?", {isAbsolute}, pathMustBeAbsolute, make<c::Share>},
};

// The values of the tokens when words and count fit the form.
std::optional<Values> matched(const Form& form, const std::vector<std::string>& arguments) {
  Values values;
  std::size_t valueCount = 0;
  std::string_view rest = form.tokens;
  for (const std::string& argument : arguments) {
    if (rest.empty())
      return std::nullopt;
    const std::string_view expected = rest.substr(0, rest.find(' '));
    rest.remove_prefix(std::min(expected.size() + 1, rest.size()));
    if (expected == "?")
      values[valueCount++] = argument;
    else if (expected != argument)
      return std::nullopt;
  }
  return rest.empty() ? std::optional(values) : std::nullopt;
}

} // namespace

NativeCommand parse(const std::vector<std::string>& arguments) {
  for (const Form& form : forms) {
    const auto values = matched(form, arguments);
    if (!values)
      continue;
    for (std::size_t i = 0; i < form.checks.size(); ++i)
      if (form.checks[i] != nullptr && !form.checks[i]((*values)[i]))
        fail(form.refusal);
    return form.make(*values);
  }
  fail(invalidArguments);
}

} // namespace CommandParser

} // namespace tessarin
