#include "model/MediaErrors.hpp"

namespace tessarin {

std::string_view messageOf(RecordingRecoveryError error) {
  switch (error) {
  case RecordingRecoveryError::invalidRequest:
    return "The recording recovery request is invalid.";
  case RecordingRecoveryError::invalidMedia:
  case RecordingRecoveryError::mergeFailed:
    break;
  }
  return "The finalized recording segments could not be recovered.";
}

std::string_view messageOf(VideoAssetInspectionRequestError error) {
  switch (error) {
  case VideoAssetInspectionRequestError::invalidEncoding:
    return "The video inspection request could not be decoded.";
  case VideoAssetInspectionRequestError::invalidSessionID:
    return "The video edit session identifier is invalid.";
  case VideoAssetInspectionRequestError::invalidSourcePath:
    return "The video edit source path is invalid.";
  }
  return {};
}

std::string_view messageOf(VideoAssetInspectionError error) {
  return error == VideoAssetInspectionError::invalidAudioCapability
             ? "The recording audio tracks do not match its saved settings."
             : "The recording cannot be opened for video editing.";
}

std::string_view messageOf(AudioWaveformRequestError error) {
  switch (error) {
  case AudioWaveformRequestError::invalidEncoding:
    return "The audio waveform request could not be decoded.";
  case AudioWaveformRequestError::invalidSessionID:
    return "The video edit session identifier is invalid.";
  case AudioWaveformRequestError::invalidSourcePath:
    return "The audio waveform source path is invalid.";
  case AudioWaveformRequestError::invalidSampleCount:
    return "The requested audio waveform resolution is invalid.";
  }
  return {};
}

std::string_view messageOf(AudioWaveformServiceError) {
  return "The recording audio waveform could not be read.";
}

std::string_view messageOf(VideoEditExportError error) {
  switch (error) {
  case VideoEditExportError::invalidRequest:
  case VideoEditExportError::invalidProject:
  case VideoEditExportError::invalidCrop:
    return "The video edit export request is invalid.";
  case VideoEditExportError::invalidMedia:
  case VideoEditExportError::compositionFailed:
  case VideoEditExportError::exportFailed:
    break;
  }
  return "The edited video could not be exported.";
}

std::string_view messageOf(GifExportError error) {
  switch (error) {
  case GifExportError::invalidRequest:
  case GifExportError::durationLimitExceeded:
    return "The GIF export request exceeds its safe limits.";
  case GifExportError::invalidMedia:
  case GifExportError::outputTooLarge:
  case GifExportError::exportFailed:
    break;
  }
  return "The GIF could not be exported within its safe limits.";
}

std::string_view messageOf(ThumbnailRequestError error) {
  switch (error) {
  case ThumbnailRequestError::invalidEncoding:
    return "The thumbnail request is not valid JSON.";
  case ThumbnailRequestError::unsupportedSchema:
    return "The thumbnail request schema is unsupported.";
  case ThumbnailRequestError::unsafePath:
    return "Thumbnail paths must be safe absolute paths.";
  case ThumbnailRequestError::invalidPixelSize:
    return "Thumbnail size must be between 32 and 1024 pixels.";
  case ThumbnailRequestError::invalidTime:
    return "Thumbnail time must be between 0 and 604800000 milliseconds.";
  }
  return {};
}

std::string_view messageOf(ThumbnailServiceError) {
  return "The history thumbnail could not be generated.";
}

std::string_view messageOf(NarrationAudioError) {
  return "The local narration audio could not be prepared.";
}

std::string_view messageOf(ShareServiceError) {
  return "The macOS share picker could not share the screenshot.";
}

} // namespace tessarin
