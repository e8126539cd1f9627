#include <gtest/gtest.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <fstream>
#include <iterator>
#include <string>
#include <utility>
#include <vector>

#include "general/foundation/propertylist/PropertyListFile.h"
#include "tests/support/TemporaryDirectory.h"
#include "tests/unit/general/foundation/files/FileTest.h"

namespace {

using foundation::PropertyList;
namespace plist = foundation::plist;

#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
constexpr bool kMemoryIsWatched = true;
#else
constexpr bool kMemoryIsWatched = false;
#endif

rlim_t addressSpaceInUse() {
  rlim_t pages = 0;
  std::ifstream("/proc/self/statm") >> pages;
  return pages * static_cast<rlim_t>(sysconf(_SC_PAGESIZE));
}

/// Takes what earlier work gave back, and leaves what is needed to say that there is no more.
void takeLargeBlocks() {
  constexpr std::size_t kLarge = std::size_t{1} << 20;
  std::vector<void*> taken(4096);
  for (void*& block : taken) {
    block = std::malloc(kLarge);
    if (block == nullptr) {
      return;
    }
  }
}

class PropertyListFile : public ::testing::Test {
 protected:
  std::string content(const std::string& path) const {
    std::ifstream file(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(file), {}};
  }

  tests::TemporaryDirectory directory_;
  const std::string path_ = directory_.path("list.plist");
  const PropertyList value_ = PropertyList::dictionary({{"key", "value"}});
};

TEST_F(PropertyListFile, ReadsBackWhatItWroteInBothFormats) {
  for (const auto format : {plist::Format::Xml, plist::Format::Binary}) {
    ASSERT_TRUE(plist::writeFile(value_, path_, format).ok());
    EXPECT_EQ(content(path_).starts_with("bplist00"), format == plist::Format::Binary);
    const auto list = plist::readFile(path_);
    ASSERT_TRUE(list.ok());
    EXPECT_EQ(*list, value_);
  }
}

TEST_F(PropertyListFile, WritesReadableByEveryone) {
  ASSERT_TRUE(plist::writeFile(value_, path_).ok());
  struct stat status {};
  ASSERT_EQ(stat(path_.c_str(), &status), 0);
  EXPECT_EQ(status.st_mode & 07777U, 0644U);
}

TEST_F(PropertyListFile, AMissingFileIsNoSuchFile) {
  const auto list = plist::readFile(path_);
  ASSERT_FALSE(list.ok());
  EXPECT_EQ(list.error().code, foundation::kNoSuchFileOnRead);
}

TEST_F(PropertyListFile, AFileThatDoesNotParseNamesItsPath) {
  for (const char* text : {"", "no property list", "bplist00"}) {
    directory_.write("list.plist", text);
    const auto list = plist::readFile(path_);
    ASSERT_FALSE(list.ok());
    EXPECT_EQ(list.error().code, foundation::kReadCorrupt);
    EXPECT_EQ(list.error().path, path_);
  }
}

TEST_F(PropertyListFile, AFileBeyondTheLimitIsRefusedUnread) {
  directory_.write("list.plist", "");
  ASSERT_EQ(truncate(path_.c_str(), (off_t{1} << 30) + 1), 0);
  const auto list = plist::readFile(path_);
  ASSERT_FALSE(list.ok());
  EXPECT_EQ(list.error().code, foundation::kReadTooLarge);
}

TEST_F(PropertyListFile, ReadDictionaryRefusesOtherTopLevels) {
  ASSERT_TRUE(plist::writeFile(PropertyList("text"), path_).ok());
  EXPECT_TRUE(plist::readFile(path_).ok());
  const auto list = plist::readDictionary(path_);
  ASSERT_FALSE(list.ok());
  EXPECT_EQ(list.error().code, foundation::kReadCorrupt);
  ASSERT_TRUE(plist::writeFile(value_, path_).ok());
  EXPECT_TRUE(plist::readDictionary(path_).ok());
}

TEST_F(PropertyListFile, OnlyWhatStandsInAFileMakesItOneThatDoesNotParse) {
  directory_.write("list.plist", "no property list");
  EXPECT_TRUE(plist::doesNotParse(plist::readFile(path_).error()));
  ASSERT_TRUE(plist::writeFile(PropertyList("text"), path_).ok());
  EXPECT_TRUE(plist::doesNotParse(plist::readDictionary(path_).error()));
  ASSERT_EQ(truncate(path_.c_str(), (off_t{1} << 30) + 1), 0);
  EXPECT_TRUE(plist::doesNotParse(plist::readFile(path_).error()));
  EXPECT_FALSE(plist::doesNotParse(plist::readFile(directory_.path("missing")).error()));
  EXPECT_FALSE(plist::doesNotParse(plist::readFile(directory_.path()).error()));
  EXPECT_FALSE(plist::doesNotParse(foundation::fileError(ENOMEM, foundation::Access::Read, path_)));
}

TEST_F(PropertyListFile, TooLittleMemorySaysNothingOfTheDocument) {
  if (kMemoryIsWatched) {
    GTEST_SKIP() << "a sanitizer ends the process when memory runs out";
  }
  PropertyList::Array elements(200000, PropertyList(std::string(60, 'x')));
  const auto document = plist::serialize(PropertyList(std::move(elements)), plist::Format::Xml);
  ASSERT_TRUE(document.ok());
  EXPECT_EQ(tests::exitStatusOf([&] {
              const rlimit most{addressSpaceInUse(), RLIM_INFINITY};
              if (setrlimit(RLIMIT_AS, &most) != 0) {
                return 2;
              }
              takeLargeBlocks();
              const auto parsed = plist::parse(*document);
              return !parsed && parsed.error().underlyingErrno == ENOMEM && !plist::doesNotParse(parsed.error()) ? 0
                                                                                                                 : 1;
            }),
            0);
}

TEST_F(PropertyListFile, AValueThatCannotBeWrittenLeavesTheOldFile) {
  ASSERT_TRUE(plist::writeFile(value_, path_).ok());
  const auto status = plist::writeFile(PropertyList("\x01"), path_);
  ASSERT_FALSE(status.ok());
  EXPECT_EQ(status.error().code, foundation::kWriteUnknown);
  EXPECT_EQ(status.error().path, path_);
  EXPECT_EQ(*plist::readFile(path_), value_);
}

}  // namespace
