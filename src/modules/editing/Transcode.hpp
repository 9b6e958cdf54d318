#pragma once

#include "modules/editing/FrameSchedule.hpp"
#include "modules/editing/FrameWork.hpp"
#include "modules/editing/OutputFile.hpp"
#include "modules/editing/SoundMix.hpp"
#include "modules/editing/SourceFile.hpp"
#include "modules/editing/Workflow.hpp"
#include "ports/MovieEditing.hpp"

#include <functional>
#include <memory>
#include <optional>
#include <stop_token>

namespace tessarin::editing {

// One export in which everything is coded anew. One thread decodes pictures, several make frames of them, one
// makes the sound, and the caller's codes pictures and writes. What waits between them is bounded by number,
// so that memory does not grow with the length of the film. The first failure of any of them, or a stop, ends
// them all.
class Transcode {
 public:
  // Opens the sources. File system, export and compositor outlive this. Throws MovieEditingFailure.
  Transcode(FileSystem& files, const MovieExport& movie, unsigned frameMakers);

  // Writes into the empty file, which is durable on return. Throws MovieEditingFailure, FileFailure,
  // container::ContainerFailure and media::CoderFailure. Once.
  void run(OpenFile& output, const std::function<void(int permille)>& progress, std::stop_token stop);

 private:
  using Work = std::shared_ptr<FrameWork>;

  // A source of pictures, with the one on show last.
  struct Pictures {
    Pictures(FileSystem& files, const std::string& path)
        : file(files, path), reader(file, file.video()), natural(naturalSizeOf(file.video())) {}

    std::shared_ptr<SourcePicture> at(std::optional<std::size_t> wanted);

    SourceFile file;
    PictureReader reader;
    PixelSize natural;
    std::optional<std::size_t> place;
    std::shared_ptr<SourcePicture> picture;
  };

  void decode();
  void makeFrames();
  void makeSound();
  void code(OpenFile& output, const std::function<void(int permille)>& progress);
  void write(OutputFile& file, const std::vector<CodedFrame>& frames, const PictureCoder& coder);
  SharedFrame finished(const Work& work);
  template<class Task> auto guarded(Task task);

  const MovieExport& movie_;
  const unsigned frameMakers_;
  const FrameSchedule schedule_;
  Pictures source_;
  std::unique_ptr<Pictures> camera_; // null without one
  FrameRecipe recipe_;
  std::unique_ptr<SoundMix> sound_; // null without lanes

  PictureMemory memory_;
  Workflow workflow_;
  BoundedLine<Work> toBeMade_;
  BoundedLine<Work> inOrder_;
  BoundedLine<media::CodedSound> soundLine_;
};

} // namespace tessarin::editing
