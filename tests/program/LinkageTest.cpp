#include <gtest/gtest.h>

#include <elf.h>

#include <algorithm>
#include <cstring>
#include <fstream>
#include <iterator>
#include <string>
#include <string_view>
#include <vector>

namespace tessarin {
namespace {

template<class Record> Record at(const std::string& file, std::size_t offset) {
  Record record{};
  EXPECT_LE(offset + sizeof record, file.size());
  std::memcpy(&record, file.data() + offset, sizeof record);
  return record;
}

// The libraries that the dynamic linker loads for the program itself.
std::vector<std::string> neededLibraries(const std::string& path) {
  std::ifstream stream(path, std::ios::binary);
  const std::string file((std::istreambuf_iterator<char>(stream)), std::istreambuf_iterator<char>());
  const auto header = at<Elf64_Ehdr>(file, 0);
  std::vector<std::string> names;
  for (std::size_t i = 0; i < header.e_shnum; ++i) {
    const auto section = at<Elf64_Shdr>(file, header.e_shoff + i * header.e_shentsize);
    if (section.sh_type != SHT_DYNAMIC)
      continue;
    const auto strings = at<Elf64_Shdr>(file, header.e_shoff + section.sh_link * header.e_shentsize);
    for (std::size_t offset = 0; offset < section.sh_size; offset += sizeof(Elf64_Dyn)) {
      const auto entry = at<Elf64_Dyn>(file, section.sh_offset + offset);
      if (entry.d_tag == DT_NEEDED)
        names.emplace_back(file.c_str() + strings.sh_offset + entry.d_un.d_val);
    }
  }
  return names;
}

// A codec, toolkit or recognition library costs each cold job tens of milliseconds; they belong in modules.
TEST(Linkage, TheProgramNeedsTheProtocolsOfItsServersAndTheLanguageOnly) {
  const auto names = neededLibraries(TESSARIN_PROGRAM);
  EXPECT_GE(names.size(), 3U);
  constexpr std::string_view allowed[] = {
      "libxcb",  "libpipewire-0.3.so", "libstdc++.so", "libm.so",     "libgcc_s.so",
      "libc.so", "ld-linux",           "libasan.so",   "libubsan.so", "libtsan.so"};
  for (const std::string& name : names)
    EXPECT_TRUE(std::any_of(std::begin(allowed), std::end(allowed), [&](std::string_view prefix) {
      return name.starts_with(prefix);
    })) << name;
}

} // namespace
} // namespace tessarin
