#include <elf.h>
#include <gtest/gtest.h>

#include <cstring>
#include <fstream>
#include <iterator>
#include <set>
#include <string>
#include <vector>

namespace tests {
namespace {

/// The libraries that a 64-bit ELF executable names as needed.
std::set<std::string> neededLibraries(const std::string& path) {
  std::ifstream file(path, std::ios::binary);
  const std::string image((std::istreambuf_iterator<char>(file)), {});
  const auto read = [&]<class Record>(std::size_t offset, Record& record) {
    ASSERT_LE(offset + sizeof record, image.size());
    std::memcpy(&record, image.data() + offset, sizeof record);
  };
  Elf64_Ehdr header{};
  read(0, header);
  std::set<std::string> names;
  for (std::size_t section = 0; section < header.e_shnum; ++section) {
    Elf64_Shdr dynamic{};
    read(header.e_shoff + section * sizeof dynamic, dynamic);
    if (dynamic.sh_type != SHT_DYNAMIC) {
      continue;
    }
    Elf64_Shdr strings{};
    read(header.e_shoff + dynamic.sh_link * sizeof strings, strings);
    for (std::size_t offset = 0; offset < dynamic.sh_size; offset += sizeof(Elf64_Dyn)) {
      Elf64_Dyn entry{};
      read(dynamic.sh_offset + offset, entry);
      if (entry.d_tag == DT_NEEDED) {
        names.insert(image.c_str() + strings.sh_offset + entry.d_un.d_val);
      }
    }
  }
  return names;
}

class ReceiptBinary : public ::testing::TestWithParam<const char*> {};

TEST_P(ReceiptBinary, NeedsNothingAtRunTimeButTheCLibrary) {
  if (std::string(CORVANE_SANITIZERS) != "") {
    GTEST_SKIP() << "a program with sanitizers needs their libraries";
  }
  std::set<std::string> needed = neededLibraries(GetParam());
  EXPECT_EQ(needed.count("libc.so.6"), 1U);
  // Its loader and its mathematics are parts of the C library and come with it.
  for (const char* part : {"libc.so.6", "libm.so.6", "ld-linux-x86-64.so.2", "ld-linux-aarch64.so.1"}) {
    needed.erase(part);
  }
  EXPECT_EQ(needed, std::set<std::string>{});
}

// Both are copied into receipts, and run from there.
INSTANTIATE_TEST_SUITE_P(EngineAndFrontEnd, ReceiptBinary, ::testing::Values(CORVANE_ENGINE, CORVANE_FRONT_END));

}  // namespace
}  // namespace tests
