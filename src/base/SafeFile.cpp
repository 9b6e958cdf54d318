#include "base/SafeFile.hpp"

#include <algorithm>
#include <cerrno>
#include <random>

namespace tessarin {

namespace {

// A file name may have 255 bytes; the marks around the name take 22 of them.
constexpr std::size_t longestNamePart = 200;

// Everything from the file's beginning, but at most one byte more than the limit.
std::string contents(const OpenFile& file, std::size_t limit) {
  constexpr std::size_t step = 64 * 1024;
  std::string bytes;
  while (bytes.size() <= limit) {
    const std::size_t filled = bytes.size();
    bytes.resize(filled + std::min(step, limit + 1 - filled));
    const std::size_t count = file.read(filled, std::as_writable_bytes(std::span(bytes)).subspan(filled));
    bytes.resize(filled + count);
    if (count == 0)
      break;
  }
  return bytes;
}

} // namespace

std::string directoryOf(const std::string& path) {
  const std::size_t slash = path.rfind('/');
  if (slash == std::string::npos)
    return ".";
  return slash == 0 ? "/" : path.substr(0, slash);
}

std::optional<std::int64_t> regularFileSize(FileSystem& files, const std::string& path) {
  const std::optional<FileInfo> info = files.info(path);
  if (!info || info->kind != FileKind::regular)
    return std::nullopt;
  return info->sizeBytes;
}

bool isRealDirectory(FileSystem& files, const std::string& path) {
  const std::optional<FileInfo> info = files.info(path);
  return info && info->kind == FileKind::directory;
}

bool exists(FileSystem& files, const std::string& path) {
  return files.info(path).has_value();
}

std::string readWholeFile(FileSystem& files, const std::string& path, std::size_t limit) {
  const std::unique_ptr<OpenFile> file = files.open(path, OpenMode::read);
  const std::int64_t size = file->info().sizeBytes;
  if (size > 0 && static_cast<std::uint64_t>(size) > limit)
    throw FileFailure(FileOperation::read, EFBIG);
  std::string bytes = contents(*file, limit);
  if (bytes.size() > limit)
    throw FileFailure(FileOperation::read, EFBIG);
  return bytes;
}

void writeFileAtomically(FileSystem& files, const std::string& path, std::string_view bytes,
                         std::uint32_t permissions) {
  const std::string temporaryPath = hiddenTemporaryName(path);
  const std::unique_ptr<OpenFile> file = files.open(temporaryPath, OpenMode::createExclusive, permissions);
  TemporaryFile temporary(files, temporaryPath);
  file->write(0, std::as_bytes(std::span(bytes)));
  file->sync();
  if (contents(*file, bytes.size()) != bytes)
    throw FileFailure(FileOperation::read, 0);
  files.rename(temporary.path(), path);
  temporary.keep();
  try {
    files.syncDirectory(directoryOf(path));
  } catch (const FileFailure&) {
    // The new file is in place and whole; a crash now may only bring the old one back.
  }
}

std::string hiddenTemporaryName(const std::string& path) {
  static constexpr char digits[] = "0123456789abcdef";
  std::random_device random;
  const std::size_t nameStart = path.rfind('/') + 1; // npos + 1 is 0
  std::string name = path.substr(0, nameStart) + '.' + path.substr(nameStart, longestNamePart) + '.';
  for (int group = 0; group < 2; ++group) {
    std::uint32_t bits = random();
    for (int digit = 0; digit < 8; ++digit, bits >>= 4)
      name += digits[bits & 0xF];
  }
  return name + ".tmp";
}

void removeQuietly(FileSystem& files, const std::string& path) noexcept {
  try {
    files.remove(path);
  } catch (const FileFailure&) {
    // The failure that led here is the one to report.
  }
}

} // namespace tessarin
