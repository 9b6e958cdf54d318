#include "container/Boxes.hpp"

namespace tessarin::container {

namespace {

constexpr std::size_t maximumBoxesInside = 4096;

} // namespace

void failDamaged() {
  throw ContainerFailure(ContainerError::damaged);
}

std::optional<BoxHeader> readBoxHeader(std::span<const std::byte> bytes) {
  if (bytes.size() < 8)
    return std::nullopt;
  ByteCursor cursor(bytes);
  BoxHeader header;
  header.size = cursor.u32();
  header.type = cursor.u32();
  header.headerSize = 8;
  // Zeros, as a crash leaves them behind, are no box that reaches to the end of the file.
  for (int shift = 0; shift < 32; shift += 8) {
    if ((header.type >> shift & 0xff) < 0x20)
      failDamaged();
  }
  if (header.size == 1) {
    if (bytes.size() < 16)
      return std::nullopt;
    header.size = cursor.u64();
    header.headerSize = 16;
    if (header.size == 0)
      failDamaged();
  }
  if (header.size != 0 && header.size < header.headerSize)
    failDamaged();
  return header;
}

BoxList::BoxList(std::span<const std::byte> content) {
  while (!content.empty()) {
    const auto header = readBoxHeader(content);
    if (!header || header->size == 0 || header->size > content.size())
      failDamaged();
    if (boxes_.size() == maximumBoxesInside)
      throw ContainerFailure(ContainerError::tooLarge);
    const auto whole = content.first(static_cast<std::size_t>(header->size));
    boxes_.push_back({header->type, whole, whole.subspan(header->headerSize)});
    content = content.subspan(whole.size());
  }
}

const Box* BoxList::find(FourCC type) const {
  const Box* found = nullptr;
  for (const Box& box : boxes_) {
    if (box.type != type)
      continue;
    if (found != nullptr)
      failDamaged();
    found = &box;
  }
  return found;
}

const Box& BoxList::require(FourCC type) const {
  const Box* found = find(type);
  if (found == nullptr)
    failDamaged();
  return *found;
}

VersionAndFlags readVersionAndFlags(ByteCursor& cursor, std::uint8_t highestVersion) {
  const std::uint32_t word = cursor.u32();
  const VersionAndFlags head{static_cast<std::uint8_t>(word >> 24), word & 0xffffff};
  if (head.version > highestVersion)
    throw ContainerFailure(ContainerError::unsupported);
  return head;
}

} // namespace tessarin::container
