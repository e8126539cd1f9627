#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>

#include "frontend/EngineLogFile.h"
#include "tests/support/TemporaryDirectory.h"

namespace frontend {
namespace {

namespace fs = std::filesystem;

constexpr std::size_t kPlenty = 1000;

class EngineLogFile : public ::testing::Test {
 protected:
  bool append(std::string_view text, std::size_t mostBytes = kPlenty) {
    const foundation::Descriptor file = openLogFile(path_, mostBytes);
    return file.isOpen() && write(file.number(), text.data(), text.size()) == static_cast<ssize_t>(text.size());
  }
  static std::string contentOf(const std::string& path) {
    std::ifstream stream(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(stream), {}};
  }

  tests::TemporaryDirectory folder_;
  const std::string path_ = folder_.path("var/log/engine.log");
};

TEST_F(EngineLogFile, KeepsOneRunAfterTheOther) {
  EXPECT_TRUE(append("one\n"));
  EXPECT_TRUE(append("two\n"));
  EXPECT_EQ(contentOf(path_), "one\ntwo\n");
  struct stat item {};
  ASSERT_EQ(stat(path_.c_str(), &item), 0);
  EXPECT_EQ(item.st_mode & 07777U, 0600U);
}

TEST_F(EngineLogFile, GivesWayToANewFileWhenItIsTooBig) {
  EXPECT_TRUE(append("123456789"));
  EXPECT_TRUE(append("a", 10));
  EXPECT_EQ(contentOf(path_), "123456789a");
  EXPECT_TRUE(append("new", 10));
  EXPECT_EQ(contentOf(path_), "new");
  EXPECT_EQ(contentOf(path_ + ".1"), "123456789a");
}

TEST_F(EngineLogFile, IsNotWrittenThroughWhatOthersMayHaveLaidThere) {
  const std::string victim = folder_.write("victim", "precious");
  fs::create_directories(fs::path(path_).parent_path());
  fs::create_symlink(victim, path_);
  EXPECT_FALSE(append("x"));
  fs::remove(path_);
  fs::create_hard_link(victim, path_);
  EXPECT_FALSE(append("x"));
  fs::remove(path_);
  ASSERT_EQ(mkfifo(path_.c_str(), 0600), 0);
  EXPECT_FALSE(append("x"));
  fs::remove(path_);
  fs::create_directory(path_);
  EXPECT_FALSE(append("x"));
  EXPECT_EQ(contentOf(victim), "precious");
}

TEST_F(EngineLogFile, OfAnotherUserIsNotUsed) {
  if (geteuid() != 0) {
    GTEST_SKIP() << "only root can give files away";
  }
  EXPECT_TRUE(append("x"));
  ASSERT_EQ(chown(path_.c_str(), 501, 501), 0);
  EXPECT_FALSE(append("x"));
}

}  // namespace
}  // namespace frontend
