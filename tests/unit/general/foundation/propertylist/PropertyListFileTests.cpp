#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <fstream>
#include <iterator>

#include "general/foundation/propertylist/PropertyListFile.h"
#include "tests/support/TemporaryDirectory.h"

namespace {

using foundation::PropertyList;
namespace plist = foundation::plist;

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

TEST_F(PropertyListFile, AValueThatCannotBeWrittenLeavesTheOldFile) {
  ASSERT_TRUE(plist::writeFile(value_, path_).ok());
  const auto status = plist::writeFile(PropertyList("\x01"), path_);
  ASSERT_FALSE(status.ok());
  EXPECT_EQ(status.error().code, foundation::kWriteUnknown);
  EXPECT_EQ(status.error().path, path_);
  EXPECT_EQ(*plist::readFile(path_), value_);
}

}  // namespace
