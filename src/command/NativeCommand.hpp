#pragma once

#include "desktop/HdrImageFormat.hpp"

#include <string>
#include <variant>

// What the command line asks for. Plain values that compare by their fields. A request stays the base64
// text that it came as.
namespace tessarin {

namespace commands {

struct RenderHdr {
  std::string directory;
  HdrImageFormat format = HdrImageFormat::heic;
  bool operator==(const RenderHdr&) const = default;
};

struct CopyHdr {
  std::string directory;
  bool operator==(const CopyHdr&) const = default;
};

struct List {
  bool excludeParentApplication = false;
  bool operator==(const List&) const = default;
};

struct TranscribeCaptions {
  std::string path;
  std::string language;
  std::string role;
  bool operator==(const TranscribeCaptions&) const = default;
};

// The commands that carry one request, told apart by a tag.
template<class Tag> struct WithRequest {
  std::string requestJSONBase64;
  bool operator==(const WithRequest&) const = default;
};
using RecognizeText = WithRequest<struct RecognizeTextTag>;
using RecognizeQr = WithRequest<struct RecognizeQrTag>;
using SampleRecordingSystemAudio = WithRequest<struct SampleRecordingSystemAudioTag>;
using Capture = WithRequest<struct CaptureTag>;
using PrepareCapture = WithRequest<struct PrepareCaptureTag>;
using Record = WithRequest<struct RecordTag>;
using RecoverRecording = WithRequest<struct RecoverRecordingTag>;
using InspectEditSource = WithRequest<struct InspectEditSourceTag>;
using AudioWaveform = WithRequest<struct AudioWaveformTag>;
using ExportEdit = WithRequest<struct ExportEditTag>;
using ExportGIF = WithRequest<struct ExportGIFTag>;
using Thumbnail = WithRequest<struct ThumbnailTag>;

// The commands that carry one path.
template<class Tag> struct WithPath {
  std::string path;
  bool operator==(const WithPath&) const = default;
};
using PrepareNarrationFile = WithPath<struct PrepareNarrationFileTag>;
using ExportEditFile = WithPath<struct ExportEditFileTag>;
using Copy = WithPath<struct CopyTag>;
using CopyFile = WithPath<struct CopyFileTag>;
using Share = WithPath<struct ShareTag>;

// The commands that carry nothing.
template<class Tag> struct Plain { bool operator==(const Plain&) const = default; };
using TranslateText = Plain<struct TranslateTextTag>;
using WarmTextRecognition = Plain<struct WarmTextRecognitionTag>;
using Status = Plain<struct StatusTag>;
using MicrophoneStatus = Plain<struct MicrophoneStatusTag>;
using RequestMicrophonePermission = Plain<struct RequestMicrophonePermissionTag>;
using CameraStatus = Plain<struct CameraStatusTag>;
using RequestCameraPermission = Plain<struct RequestCameraPermissionTag>;
using InteractionPermissionStatus = Plain<struct InteractionPermissionStatusTag>;
using RequestInteractionPermission = Plain<struct RequestInteractionPermissionTag>;
using SpeechPermissionStatus = Plain<struct SpeechPermissionStatusTag>;
using RequestSpeechPermission = Plain<struct RequestSpeechPermissionTag>;
using RecordingInputDevices = Plain<struct RecordingInputDevicesTag>;
using RecordingAvailableBytes = Plain<struct RecordingAvailableBytesTag>;

} // namespace commands

using NativeCommand = std::variant<
    commands::RenderHdr, commands::CopyHdr, commands::RecognizeText, commands::RecognizeQr,
    commands::SampleRecordingSystemAudio, commands::List, commands::Capture, commands::PrepareCapture,
    commands::Record, commands::RecoverRecording, commands::InspectEditSource, commands::AudioWaveform,
    commands::PrepareNarrationFile, commands::TranscribeCaptions, commands::ExportEdit,
    commands::ExportEditFile, commands::ExportGIF, commands::Thumbnail, commands::Copy, commands::CopyFile,
    commands::Share, commands::TranslateText, commands::WarmTextRecognition, commands::Status,
    commands::MicrophoneStatus, commands::RequestMicrophonePermission, commands::CameraStatus,
    commands::RequestCameraPermission, commands::InteractionPermissionStatus,
    commands::RequestInteractionPermission, commands::SpeechPermissionStatus,
    commands::RequestSpeechPermission, commands::RecordingInputDevices, commands::RecordingAvailableBytes>;

} // namespace tessarin
