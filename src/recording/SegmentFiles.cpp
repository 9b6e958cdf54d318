#include "recording/SegmentFiles.hpp"

#include <algorithm>
#include <cerrno>
#include <utility>

namespace tessarin {

namespace {

// The tracks of a joined file are copied side by side, so a merge reads one segment, or two around a joint.
constexpr std::size_t mostOpenOfMany = 4;

bool isSameFile(const FileInfo& a, const FileInfo& b) {
  return a.device == b.device && a.inode == b.inode && a.sizeBytes == b.sizeBytes &&
         a.modifiedNanoseconds == b.modifiedNanoseconds;
}

} // namespace

class SegmentFiles::Reopened final : public OpenFile {
 public:
  Reopened(SegmentFiles& owner, std::string path, const FileInfo& info)
      : owner_(owner), path_(std::move(path)), info_(info) {}
  ~Reopened() override {
    owner_.open_.remove_if([this](const Open& open) { return open.of == this; });
  }

  const std::string& path() const { return path_; }
  const FileInfo& firstInfo() const { return info_; }

  FileInfo info() const override { return info_; }
  std::size_t read(std::uint64_t offset, std::span<std::byte> into) const override {
    return owner_.opened(*this).read(offset, into);
  }
  void write(std::uint64_t, std::span<const std::byte>) override { refuse(FileOperation::write); }
  void truncate(std::uint64_t) override { refuse(FileOperation::truncate); }
  void sync() override { refuse(FileOperation::sync); }
  void copyFrom(const OpenFile&, std::uint64_t, std::uint64_t, std::uint64_t) override {
    refuse(FileOperation::copy);
  }
  bool cloneFrom(const OpenFile&) override { refuse(FileOperation::clone); }

 private:
  [[noreturn]] static void refuse(FileOperation operation) { throw FileFailure(operation, EBADF); }

  SegmentFiles& owner_;
  const std::string path_;
  const FileInfo info_;
};

SegmentFiles::SegmentFiles(FileSystem& files, std::size_t count)
    : files_(files), areFew_(count <= mostKeptOpen) {}

SegmentFiles::~SegmentFiles() = default;

std::unique_ptr<OpenFile> SegmentFiles::open(const std::string& path) {
  std::unique_ptr<OpenFile> file = files_.open(path, OpenMode::read);
  if (areFew_)
    return file;
  auto reopened = std::make_unique<Reopened>(*this, path, file->info());
  keep(*reopened, std::move(file));
  return reopened;
}

void SegmentFiles::keep(const Reopened& file, std::unique_ptr<OpenFile> open) {
  if (open_.size() == mostOpenOfMany)
    open_.pop_back();
  open_.push_front({&file, std::move(open)});
}

const OpenFile& SegmentFiles::opened(const Reopened& file) {
  const auto found =
      std::find_if(open_.begin(), open_.end(), [&](const Open& open) { return open.of == &file; });
  if (found != open_.end()) {
    open_.splice(open_.begin(), open_, found);
    return *open_.front().file;
  }
  std::unique_ptr<OpenFile> again = files_.open(file.path(), OpenMode::read);
  if (!isSameFile(again->info(), file.firstInfo()))
    throw FileFailure(FileOperation::open, ESTALE);
  keep(file, std::move(again));
  return *open_.front().file;
}

} // namespace tessarin
