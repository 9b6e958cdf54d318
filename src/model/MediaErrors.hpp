#pragma once

#include <cstdint>
#include <string_view>

// The enumerations thrown by the services that work on finished recordings and images: recovery,
// inspection, editing, sound, thumbnails, sharing. They are part of the closed vocabulary of the reply.
namespace tessarin {

enum class RecordingRecoveryError : std::uint8_t { invalidRequest, invalidMedia, mergeFailed };

enum class VideoAssetInspectionRequestError : std::uint8_t {
  invalidEncoding,
  invalidSessionID,
  invalidSourcePath
};

enum class VideoAssetInspectionError : std::uint8_t {
  invalidAudioCapability,
  invalidMedia,
  missingVideo,
  invalidDuration,
  invalidDimensions,
  notComposable
};

enum class AudioWaveformRequestError : std::uint8_t {
  invalidEncoding,
  invalidSessionID,
  invalidSourcePath,
  invalidSampleCount
};

enum class AudioWaveformServiceError : std::uint8_t { invalidMedia, invalidDuration, readerFailed };

enum class VideoEditExportError : std::uint8_t {
  invalidRequest,
  invalidProject,
  invalidCrop,
  invalidMedia,
  compositionFailed,
  exportFailed
};

enum class GifExportError : std::uint8_t {
  invalidRequest,
  durationLimitExceeded,
  invalidMedia,
  outputTooLarge,
  exportFailed
};

enum class ThumbnailRequestError : std::uint8_t {
  invalidEncoding,
  unsupportedSchema,
  unsafePath,
  invalidPixelSize,
  invalidTime
};

enum class ThumbnailServiceError : std::uint8_t {
  invalidSource,
  unsupportedMedia,
  renderFailed,
  outputFailed
};

enum class NarrationAudioError : std::uint8_t {
  microphoneDecode,
  voiceProcessing,
  systemDecode,
  systemDucking,
  audioEncoding,
  audioInsertion,
  videoInsertion,
  cacheValidation
};

enum class ShareServiceError : std::uint8_t { invalidImage, presentationFailed, sharingFailed };

// The sentence that a user reads; fixed texts.
std::string_view messageOf(RecordingRecoveryError error);
std::string_view messageOf(VideoAssetInspectionRequestError error);
std::string_view messageOf(VideoAssetInspectionError error);
std::string_view messageOf(AudioWaveformRequestError error);
std::string_view messageOf(AudioWaveformServiceError error);
std::string_view messageOf(VideoEditExportError error);
std::string_view messageOf(GifExportError error);
std::string_view messageOf(ThumbnailRequestError error);
std::string_view messageOf(ThumbnailServiceError error);
std::string_view messageOf(NarrationAudioError error);
std::string_view messageOf(ShareServiceError error);

} // namespace tessarin
