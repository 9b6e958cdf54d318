#include "container/FileWindow.hpp"
#include "container/MovieIndex.hpp"

#include <utility>

namespace tessarin::container {

namespace {

constexpr std::uint64_t maximumIndexBox = std::uint64_t{256} << 20;
// Of all index boxes together: as much as the tables of 20 million samples and half as much again.
constexpr std::uint64_t maximumIndexBytes = std::uint64_t{1} << 30;
constexpr std::uint32_t maximumBoxes = 1'000'000;

struct TopLevelBox {
  FourCC type = 0;
  std::uint64_t offset = 0;
  std::uint64_t contentOffset = 0;
  std::uint64_t end = 0;
};

// Walks through the boxes of a file, and takes the fragments of a torn one back to the last whole one.
class MovieReader {
 public:
  explicit MovieReader(const OpenFile& file) : window_(file), budget_(window_.fileSize()) {}

  Movie read();

 private:
  // How far the tracks were before a fragment.
  struct Mark {
    std::size_t sampleCount = 0;
    std::int64_t endTime = 0;
  };

  std::optional<TopLevelBox> boxAt(std::uint64_t offset);
  std::span<const std::byte> content(const TopLevelBox& box);
  void visit(const TopLevelBox& box);
  void visitFragment(const TopLevelBox& box);
  void visitMedia(const TopLevelBox& box);
  std::vector<Mark> marks() const;
  void takeBackTo(const std::vector<Mark>& marks);
  void checkRanges(std::uint64_t end) const;

  FileWindow window_;
  SampleBudget budget_;
  std::uint64_t indexBytesLeft_ = maximumIndexBytes;
  std::optional<MovieIndex> index_;
  std::uint64_t wholeFragments_ = 0; // their number
  std::uint64_t wholeEnd_ = 0;       // end of the last whole fragment
  // A fragment whose media has not been met yet.
  std::optional<std::vector<Mark>> pending_;
  std::uint64_t pendingEnd_ = 0;
  // An unreadable fragment is the torn end of the file as long as no other one follows.
  bool sawDamagedFragment_ = false;
};

// Nothing at the torn end of the file.
std::optional<TopLevelBox> MovieReader::boxAt(std::uint64_t offset) {
  std::optional<BoxHeader> header;
  try {
    header = readBoxHeader(window_.view(offset, 16));
  } catch (const ContainerFailure&) {
    return std::nullopt;
  }
  const std::uint64_t left = window_.fileSize() - offset;
  // No box is without a type: zeros are what a file system leaves for bytes that never came.
  if (!header || header->type == 0 || header->size > left)
    return std::nullopt;
  return TopLevelBox{header->type, offset, offset + header->headerSize,
                     offset + (header->size == 0 ? left : header->size)};
}

std::span<const std::byte> MovieReader::content(const TopLevelBox& box) {
  const std::uint64_t size = box.end - box.contentOffset;
  if (size > maximumIndexBox || size > indexBytesLeft_)
    throw ContainerFailure(ContainerError::tooLarge);
  indexBytesLeft_ -= size;
  const auto bytes = window_.view(box.contentOffset, size);
  if (bytes.size() != size)
    failDamaged(); // the file has become shorter
  return bytes;
}

std::vector<MovieReader::Mark> MovieReader::marks() const {
  std::vector<Mark> marks;
  for (const TrackIndex& track : index_->tracks)
    marks.push_back({track.track.samples.size(), track.endTime});
  return marks;
}

void MovieReader::takeBackTo(const std::vector<Mark>& marks) {
  for (std::size_t i = 0; i < marks.size(); ++i) {
    TrackIndex& track = index_->tracks[i];
    track.track.samples.resize(marks[i].sampleCount);
    track.endTime = marks[i].endTime;
  }
}

void MovieReader::visitFragment(const TopLevelBox& box) {
  if (!index_ || !index_->hasFragments || pending_ || sawDamagedFragment_)
    failDamaged();
  std::vector<Mark> before = marks();
  try {
    pendingEnd_ = readFragment(content(box), box.offset, *index_, budget_);
  } catch (const ContainerFailure& failure) {
    if (failure.error() == ContainerError::tooLarge || wholeFragments_ == 0)
      throw;
    takeBackTo(before);
    sawDamagedFragment_ = true;
    return;
  }
  pending_ = std::move(before);
}

void MovieReader::visitMedia(const TopLevelBox& box) {
  if (!pending_)
    return;
  if (pendingEnd_ > box.end)
    failDamaged();
  pending_.reset();
  ++wholeFragments_;
  wholeEnd_ = box.end;
}

void MovieReader::visit(const TopLevelBox& box) {
  switch (box.type) {
  case fourCC("moov"):
    // A second one is the ordinary index of a file that was about to be finished; the first one and its
    // fragments tell the same.
    if (!index_)
      index_ = readMovieBox(content(box), budget_);
    break;
  case fourCC("moof"):
    visitFragment(box);
    break;
  case fourCC("mdat"):
    visitMedia(box);
    break;
  default:
    break;
  }
}

void MovieReader::checkRanges(std::uint64_t end) const {
  for (const TrackIndex& index : index_->tracks) {
    for (const Sample& sample : index.track.samples) {
      if (sample.offset > end || sample.size > end - sample.offset)
        failDamaged();
    }
  }
}

Movie MovieReader::read() {
  std::uint64_t offset = 0;
  bool isTorn = false;
  for (std::uint32_t count = 0; offset < window_.fileSize(); ++count) {
    if (count == maximumBoxes)
      throw ContainerFailure(ContainerError::tooLarge);
    const auto box = boxAt(offset);
    if (!box) {
      isTorn = true;
      break;
    }
    visit(*box);
    offset = box->end;
  }
  if (!index_)
    throw ContainerFailure(ContainerError::notAMovie);
  if (pending_)
    takeBackTo(*pending_);
  bool hasSamples = false;
  for (const TrackIndex& track : index_->tracks)
    hasSamples = hasSamples || !track.track.samples.empty();
  if (index_->hasFragments && !hasSamples)
    throw ContainerFailure(ContainerError::notAMovie);
  const bool isFragmented = wholeFragments_ > 0;
  const bool isCutBack = isTorn || pending_ || sawDamagedFragment_;
  const std::uint64_t usableBytes = isCutBack && isFragmented ? wholeEnd_ : offset;
  checkRanges(usableBytes);

  Movie movie = placeTracks(std::move(*index_));
  movie.isFragmented = isFragmented;
  movie.usableBytes = usableBytes;
  return movie;
}

} // namespace

Movie readMovie(const OpenFile& file) {
  return MovieReader(file).read();
}

} // namespace tessarin::container
