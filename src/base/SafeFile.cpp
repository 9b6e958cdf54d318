#include "base/SafeFile.hpp"

#include <algorithm>
#include <cerrno>
#include <random>
#include <vector>

namespace tessarin {

namespace {

// A file name may have 255 bytes; the marks around the name take 22 of them.
constexpr std::size_t longestNamePart = 200;
constexpr std::size_t randomDigits = 16;
constexpr std::string_view digits = "0123456789abcdef";
constexpr std::string_view temporaryExtension = ".tmp";
// A session's directory holds about a dozen names.
constexpr std::size_t mostEntries = 100'000;

// What the hidden temporary names of a file begin with.
std::string hiddenPrefix(std::string_view name) {
  return '.' + std::string(name.substr(0, longestNamePart)) + '.';
}

bool isHiddenTemporaryName(std::string_view name, std::string_view prefix) {
  if (name.size() != prefix.size() + randomDigits + temporaryExtension.size() || !name.starts_with(prefix) ||
      !name.ends_with(temporaryExtension))
    return false;
  return name.substr(prefix.size(), randomDigits).find_first_not_of(digits) == std::string_view::npos;
}

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
  // The new file is in place and whole; a crash now may only bring the old one back.
  syncDirectoryQuietly(files, directoryOf(path));
}

void syncDirectoryQuietly(FileSystem& files, const std::string& path) noexcept {
  try {
    files.syncDirectory(path);
  } catch (const std::exception&) {
    // What is in place stays so; only a crash of the machine right now would tell.
  }
}

std::string hiddenTemporaryName(const std::string& path) {
  std::random_device random;
  const std::size_t nameStart = path.rfind('/') + 1; // npos + 1 is 0
  std::string name = path.substr(0, nameStart) + hiddenPrefix(std::string_view(path).substr(nameStart));
  constexpr std::size_t digitsADraw = 8;
  for (std::size_t drawn = 0; drawn < randomDigits; drawn += digitsADraw) {
    std::uint32_t bits = random();
    for (std::size_t digit = 0; digit < digitsADraw; ++digit, bits >>= 4)
      name += digits[bits & 0xF];
  }
  return name += temporaryExtension;
}

void removeStaleTemporaries(FileSystem& files, const std::string& directory,
                            std::span<const std::string> paths) noexcept {
  try {
    const std::vector<std::string> names =
        files.list(directory, mostEntries).value_or(std::vector<std::string>());
    for (const std::string& name : names) {
      const bool isStale = std::any_of(paths.begin(), paths.end(), [&](const std::string& path) {
        return isHiddenTemporaryName(name, hiddenPrefix(std::string_view(path).substr(path.rfind('/') + 1)));
      });
      const std::string found = std::string(directory).append("/").append(name);
      if (isStale && regularFileSize(files, found))
        removeQuietly(files, found);
    }
  } catch (const std::exception&) {
    // They stay, and only take space.
  }
}

void removeQuietly(FileSystem& files, const std::string& path) noexcept {
  try {
    files.remove(path);
  } catch (const FileFailure&) {
    // The failure that led here is the one to report.
  }
}

} // namespace tessarin
