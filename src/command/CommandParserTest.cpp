#include "command/CommandParser.hpp"

#include "base/Failure.hpp"

#include <gtest/gtest.h>

#include <optional>

namespace tessarin {
namespace {

namespace c = commands;
using Arguments = std::vector<std::string>;

constexpr auto invalidArguments = CommandParserError::invalidArguments;
constexpr auto invalidRequestEncoding = CommandParserError::invalidRequestEncoding;
constexpr auto pathMustBeAbsolute = CommandParserError::pathMustBeAbsolute;

std::string shown(const Arguments& arguments) {
  std::string text;
  for (const auto& argument : arguments)
    text += "[" + (argument.size() > 60 ? std::to_string(argument.size()) + " bytes" : argument) + "]";
  return text;
}

void expectCommand(const Arguments& arguments, const NativeCommand& expected) {
  try {
    EXPECT_TRUE(CommandParser::parse(arguments) == expected) << shown(arguments);
  } catch (const Failure<CommandParserError>& failure) {
    ADD_FAILURE() << shown(arguments) << " is refused: " << messageOf(failure.value());
  }
}

void expectRefusal(const Arguments& arguments, CommandParserError expected) {
  try {
    (void)CommandParser::parse(arguments);
    ADD_FAILURE() << shown(arguments) << " is accepted";
  } catch (const Failure<CommandParserError>& failure) {
    EXPECT_EQ(failure.value(), expected) << shown(arguments);
  }
}

std::string path(std::size_t length) {
  return "/" + std::string(length - 1, 'p');
}

const std::string request = "e30="; // {}

TEST(CommandParser, HasItsTexts) {
  EXPECT_EQ(messageOf(invalidArguments), "Invalid native helper arguments.");
  EXPECT_EQ(messageOf(invalidRequestEncoding), "The capture request is not valid base64 data.");
  EXPECT_EQ(messageOf(pathMustBeAbsolute), "Media paths must be absolute.");
}

TEST(CommandParser, TakesEveryForm) {
  const struct {
    Arguments arguments;
    NativeCommand command;
  } cases[] = {
      {{"render-hdr", "--directory", "/d", "--format", "png"}, c::RenderHdr{"/d", HdrImageFormat::png}},
      {{"render-hdr", "--directory", "/d", "--format", "jpeg"}, c::RenderHdr{"/d", HdrImageFormat::jpeg}},
      {{"render-hdr", "--directory", "/d", "--format", "heic"}, c::RenderHdr{"/d", HdrImageFormat::heic}},
      {{"copy-hdr", "--directory", "/d"}, c::CopyHdr{"/d"}},
      {{"render-hdr", "--directory", "/d"}, c::RenderHdr{"/d", HdrImageFormat::heic}},
      {{"translate-text"}, c::TranslateText{}},
      {{"recognize-text", "--request-json", request}, c::RecognizeText{request}},
      {{"warm-text-recognition"}, c::WarmTextRecognition{}},
      {{"recognize-qr", "--request-json", request}, c::RecognizeQr{request}},
      {{"status"}, c::Status{}},
      {{"microphone-status"}, c::MicrophoneStatus{}},
      {{"request-microphone-permission"}, c::RequestMicrophonePermission{}},
      {{"camera-status"}, c::CameraStatus{}},
      {{"request-camera-permission"}, c::RequestCameraPermission{}},
      {{"interaction-permission-status"}, c::InteractionPermissionStatus{}},
      {{"request-interaction-permission"}, c::RequestInteractionPermission{}},
      {{"speech-permission-status"}, c::SpeechPermissionStatus{}},
      {{"request-speech-permission"}, c::RequestSpeechPermission{}},
      {{"recording-input-devices"}, c::RecordingInputDevices{}},
      {{"sample-recording-system-audio", "--request-json", request}, c::SampleRecordingSystemAudio{request}},
      {{"recording-available-bytes"}, c::RecordingAvailableBytes{}},
      {{"list"}, c::List{false}},
      {{"list", "--exclude-parent-application"}, c::List{true}},
      {{"prepare-capture", "--request-json", request}, c::PrepareCapture{request}},
      {{"capture", "--request-json", request}, c::Capture{request}},
      {{"record", "--request-json", request}, c::Record{request}},
      {{"recover-recording", "--request-json", request}, c::RecoverRecording{request}},
      {{"inspect-edit-source", "--request-json", request}, c::InspectEditSource{request}},
      {{"audio-waveform", "--request-json", request}, c::AudioWaveform{request}},
      {{"export-edit", "--request-json", request}, c::ExportEdit{request}},
      {{"prepare-narration", "--request-file", "/f"}, c::PrepareNarrationFile{"/f"}},
      {{"transcribe-captions", "--request-file", "/f", "--language", "en-US", "--audio", "mixed"},
       c::TranscribeCaptions{"/f", "en-US", "mixed"}},
      {{"transcribe-captions", "--request-file", "/f", "--language", "zh-CN", "--audio", "microphone"},
       c::TranscribeCaptions{"/f", "zh-CN", "microphone"}},
      {{"transcribe-captions", "--request-file", "/f", "--language", "zh-CN", "--audio", "system"},
       c::TranscribeCaptions{"/f", "zh-CN", "system"}},
      {{"export-edit", "--request-file", "/f"}, c::ExportEditFile{"/f"}},
      {{"export-gif", "--request-json", request}, c::ExportGIF{request}},
      {{"thumbnail", "--request-json", request}, c::Thumbnail{request}},
      {{"copy", "--path", "/f"}, c::Copy{"/f"}},
      {{"copy-file", "--path", "/f"}, c::CopyFile{"/f"}},
      {{"share", "--path", "/f"}, c::Share{"/f"}},
  };
  for (const auto& each : cases) {
    expectCommand(each.arguments, each.command);

    // The token count is part of a form, and so is every word at its place.
    Arguments longer = each.arguments;
    longer.emplace_back("extra");
    expectRefusal(longer, invalidArguments);
    for (std::size_t i = 0; i < each.arguments.size(); i += i == 0 ? 1 : 2) {
      Arguments changed = each.arguments;
      changed[i] += "x";
      expectRefusal(changed, invalidArguments);
      changed[i].clear();
      expectRefusal(changed, invalidArguments);
    }
  }
}

TEST(CommandParser, RefusesWhatIsNoForm) {
  for (const Arguments& arguments : {
           Arguments{},
           {""},
           {"capture-worker"},
           {"capture-worker", "extra"},
           {"record"},
           {"capture"},
           {"capture", "--request-json"},
           {"LIST"},
           {"list", "--exclude"},
           {"list", "--exclude-parent-application", "extra"},
           {"list", ""},
           {"translate-text", "extra"},
           {"share", "relative/path"},
           {"share", "--path=/f"},
           {"capture", "--request-json=" + request},
           {"--request-json", request, "capture"},
           {"capture", "--request", request},
           {"export-gif", "--request-file", "/f"},
           {"render-hdr", "--format", "png", "--directory", "/d"},
           {"render-hdr", "--directory", "/d", "--format"},
           {"copy-hdr", "--directory", "/d", "--format", "png"},
           {"transcribe-captions", "--request-file", "/f", "--audio", "mixed", "--language", "en-US"},
           {"-h"},
           {"--help"},
           {"list --exclude-parent-application"},
           {"?"},
       })
    expectRefusal(arguments, invalidArguments);
}

TEST(CommandParser, DemandsACleanDirectoryOnlyWhereTheFormatIsNamed) {
  for (const char* const directory : {"/tmp/a/../b", "/tmp/./b", "/..", "/."}) {
    expectCommand({"render-hdr", "--directory", directory}, c::RenderHdr{directory, HdrImageFormat::heic});
    expectRefusal({"render-hdr", "--directory", directory, "--format", "png"}, invalidArguments);
    expectRefusal({"copy-hdr", "--directory", directory}, invalidArguments);
  }
  for (const char* const directory : {"/tmp/a..b", "/", "/tmp//b/", "/...", "/tmp/.hidden"}) {
    expectCommand({"render-hdr", "--directory", directory, "--format", "png"},
                  c::RenderHdr{directory, HdrImageFormat::png});
    expectCommand({"copy-hdr", "--directory", directory}, c::CopyHdr{directory});
  }
}

TEST(CommandParser, ReportsABadDirectoryAsInvalidArguments) {
  for (const char* const directory : {"", "d", "./d", "~/d", " /d"}) {
    expectRefusal({"render-hdr", "--directory", directory, "--format", "png"}, invalidArguments);
    expectRefusal({"render-hdr", "--directory", directory}, invalidArguments);
    expectRefusal({"copy-hdr", "--directory", directory}, invalidArguments);
  }
  for (const char* const format : {"", "gif", "PNG", "jpg", "png "})
    expectRefusal({"render-hdr", "--directory", "/d", "--format", format}, invalidArguments);
}

TEST(CommandParser, BoundsTheLengthOfSomePathsInBytes) {
  const struct {
    std::vector<std::string> before;
    std::vector<std::string> after;
    std::optional<CommandParserError> refusal; // of a longer path
  } cases[] = {
      {{"render-hdr", "--directory"}, {"--format", "png"}, invalidArguments},
      {{"render-hdr", "--directory"}, {}, invalidArguments},
      {{"copy-hdr", "--directory"}, {}, invalidArguments},
      {{"prepare-narration", "--request-file"}, {}, pathMustBeAbsolute},
      {{"transcribe-captions", "--request-file"},
       {"--language", "en-US", "--audio", "mixed"},
       invalidRequestEncoding},
      {{"export-edit", "--request-file"}, {}, pathMustBeAbsolute},
      {{"copy", "--path"}, {}, std::nullopt},
      {{"copy-file", "--path"}, {}, std::nullopt},
      {{"share", "--path"}, {}, std::nullopt},
  };
  const auto with = [](const auto& each, const std::string& value) {
    Arguments arguments = each.before;
    arguments.push_back(value);
    arguments.insert(arguments.end(), each.after.begin(), each.after.end());
    return arguments;
  };
  // The last one has 4096 letters in more bytes.
  const std::string tooLong[] = {path(4097), path(100000), path(4094) + "\xC3\xA4\xC3\xA4"};
  for (const auto& each : cases) {
    EXPECT_NO_THROW((void)CommandParser::parse(with(each, path(4096))));
    EXPECT_NO_THROW((void)CommandParser::parse(with(each, path(4094) + "\xC3\xA4")));
    for (const std::string& value : tooLong)
      if (each.refusal)
        expectRefusal(with(each, value), *each.refusal);
      else
        EXPECT_NO_THROW((void)CommandParser::parse(with(each, value)));
  }
}

TEST(CommandParser, ReportsARelativePathAsItsFormDoes) {
  for (const char* const relative : {"", "f", "./f", "~/f", "~", "relative/path"}) {
    expectRefusal({"prepare-narration", "--request-file", relative}, pathMustBeAbsolute);
    expectRefusal({"export-edit", "--request-file", relative}, pathMustBeAbsolute);
    expectRefusal({"copy", "--path", relative}, pathMustBeAbsolute);
    expectRefusal({"copy-file", "--path", relative}, pathMustBeAbsolute);
    expectRefusal({"share", "--path", relative}, pathMustBeAbsolute);
    expectRefusal(
        {"transcribe-captions", "--request-file", relative, "--language", "en-US", "--audio", "mixed"},
        invalidRequestEncoding);
  }
  for (const char* const unclean : {"/a/../b", "/./b"}) {
    expectCommand({"copy", "--path", unclean}, c::Copy{unclean});
    expectCommand({"export-edit", "--request-file", unclean}, c::ExportEditFile{unclean});
  }
}

TEST(CommandParser, ReportsABadLanguageOrAudioRoleAsABadEncoding) {
  for (const char* const language : {"", "fr-FR", "en-us", "en", "zh-CN "})
    expectRefusal({"transcribe-captions", "--request-file", "/x", "--language", language, "--audio", "mixed"},
                  invalidRequestEncoding);
  for (const char* const role : {"", "both", "Mixed", "mic"})
    expectRefusal({"transcribe-captions", "--request-file", "/x", "--language", "en-US", "--audio", role},
                  invalidRequestEncoding);
}

const char* const requestCommands[] = {
    "recognize-text", "recognize-qr",      "sample-recording-system-audio", "prepare-capture", "capture",
    "record",         "recover-recording", "inspect-edit-source",           "audio-waveform",  "export-edit",
    "export-gif",     "thumbnail"};

TEST(CommandParser, TakesOnlyStrictBase64) {
  for (const char* const command : requestCommands) {
    for (const char* const good : {"AAAA", "AA==", "AAA=", "+/+/", "e30K"})
      EXPECT_NO_THROW((void)CommandParser::parse({command, "--request-json", good}))
          << command << " " << good;
    for (const char* const bad :
         {"A", "AA", "AAA", "AAAA=", "A===", "====", "AA=A", "AAAA\n", "AA AA", "-_-_", "AAAA AAAA", " AAAA",
          "\xC3\xA4"
          "AA",
          "AA==AA==", "{}", "~~~~"})
      expectRefusal({command, "--request-json", bad}, invalidRequestEncoding);
  }
}

TEST(CommandParser, TakesAnEmptyRequestOnlyForRecognition) {
  for (const std::string command : requestCommands)
    if (command == "recognize-text" || command == "recognize-qr")
      EXPECT_NO_THROW((void)CommandParser::parse({command, "--request-json", ""}));
    else
      expectRefusal({command, "--request-json", ""}, invalidRequestEncoding);
}

TEST(CommandParser, BoundsTheLengthOfSomeRequests) {
  for (const std::string command : requestCommands) {
    const bool isRecognition = command == "recognize-text" || command == "recognize-qr";
    const std::size_t limit = isRecognition ? 8192 : command == "prepare-capture" ? 16384 : 0;
    if (limit == 0) {
      EXPECT_NO_THROW((void)CommandParser::parse({command, "--request-json", std::string(1 << 20, 'A')}))
          << command;
      continue;
    }
    EXPECT_NO_THROW((void)CommandParser::parse({command, "--request-json", std::string(limit, 'A')}))
        << command;
    expectRefusal({command, "--request-json", std::string(limit + 4, 'A')}, invalidRequestEncoding);
  }
}

TEST(CommandParser, ATokenThatIsNotUtf8IsABadValueOfItsForm) {
  const std::string bad = "/bad\xFF";
  expectRefusal({bad}, invalidArguments);
  expectRefusal({"list", bad}, invalidArguments);
  expectRefusal({"copy", bad, "/f"}, invalidArguments);
  expectRefusal({"render-hdr", "--directory", bad}, invalidArguments);
  expectRefusal({"render-hdr", "--directory", bad, "--format", "png"}, invalidArguments);
  expectRefusal({"render-hdr", "--directory", "/d", "--format", bad}, invalidArguments);
  expectRefusal({"copy-hdr", "--directory", bad}, invalidArguments);
  expectRefusal({"capture", "--request-json", bad}, invalidRequestEncoding);
  expectRefusal({"copy", "--path", bad}, pathMustBeAbsolute);
  expectRefusal({"copy-file", "--path", bad}, pathMustBeAbsolute);
  expectRefusal({"share", "--path", bad}, pathMustBeAbsolute);
  expectRefusal({"prepare-narration", "--request-file", bad}, pathMustBeAbsolute);
  expectRefusal({"export-edit", "--request-file", bad}, pathMustBeAbsolute);
  expectRefusal({"transcribe-captions", "--request-file", bad, "--language", "en-US", "--audio", "mixed"},
                invalidRequestEncoding);
}

} // namespace
} // namespace tessarin
