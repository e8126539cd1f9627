#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>

#include "general/foundation/Descriptor.h"
#include "general/logging/LogFile.h"
#include "tests/support/TemporaryDirectory.h"

namespace logging {
namespace {

namespace fs = std::filesystem;
using foundation::Descriptor;

constexpr std::size_t kMost = 10;

class LogFileTest : public ::testing::Test {
 protected:
  static Descriptor openAt(const std::string& path) {
    return Descriptor(open(path.c_str(), O_WRONLY | O_APPEND | O_CREAT | O_CLOEXEC, 0600));
  }
  /// As who writes a log does: only what there is room for.
  bool write(const Descriptor& file, std::string_view text) const {
    return log_.makeRoom(file.number(), text.size()) &&
           ::write(file.number(), text.data(), text.size()) == static_cast<ssize_t>(text.size());
  }
  static std::string contentOf(const std::string& path) {
    std::ifstream stream(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(stream), {}};
  }

  tests::TemporaryDirectory folder_;
  const std::string path_ = folder_.path("engine.log");
  const std::string earlier_ = path_ + ".1";
  const LogFile log_{path_, kMost};
};

TEST_F(LogFileTest, GivesWayToANewOneWhileItIsWrittenTo) {
  const Descriptor file = openAt(path_);
  ASSERT_TRUE(log_.isOpenAt(file.number()));
  EXPECT_TRUE(write(file, "12345"));
  EXPECT_TRUE(write(file, "67890"));
  EXPECT_EQ(contentOf(path_), "1234567890");
  EXPECT_TRUE(write(file, "new"));
  EXPECT_EQ(contentOf(path_), "new");
  EXPECT_EQ(contentOf(earlier_), "1234567890");
  struct stat item {};
  ASSERT_EQ(stat(path_.c_str(), &item), 0);
  EXPECT_EQ(item.st_mode & 0777U, 0600U);
  EXPECT_TRUE(write(file, "12345678"));
  EXPECT_EQ(contentOf(earlier_), "new");
}

TEST_F(LogFileTest, IsTheOneThatAnotherProcessHasMadeMeanwhile) {
  const Descriptor mine = openAt(path_);
  EXPECT_TRUE(write(mine, "1234567890"));
  fs::rename(path_, earlier_);
  const Descriptor other = openAt(path_);
  EXPECT_TRUE(write(other, "other "));
  EXPECT_TRUE(write(mine, "me"));
  EXPECT_EQ(contentOf(path_), "other me");
  EXPECT_EQ(contentOf(earlier_), "1234567890");
}

TEST_F(LogFileTest, StaysFullWhereItCannotGiveWay) {
  const Descriptor file = openAt(path_);
  EXPECT_TRUE(write(file, "1234567890"));
  fs::create_directories(earlier_ + "/in the way");
  EXPECT_FALSE(write(file, "more"));
  EXPECT_EQ(contentOf(path_), "1234567890");
  fs::remove_all(earlier_);
  EXPECT_TRUE(write(file, "more"));
  EXPECT_EQ(contentOf(path_), "more");
}

TEST_F(LogFileTest, FollowsNoLinkThatTookItsPlace) {
  const Descriptor file = openAt(path_);
  EXPECT_TRUE(write(file, "1234567890"));
  const std::string elsewhere = folder_.path("elsewhere");
  std::ofstream(elsewhere) << "theirs";
  fs::remove(path_);
  fs::create_symlink(elsewhere, path_);
  EXPECT_FALSE(write(file, "more"));
  EXPECT_EQ(contentOf(elsewhere), "theirs");
  EXPECT_TRUE(fs::is_symlink(path_));
}

TEST_F(LogFileTest, IsNoOtherFileAndNoPipe) {
  const Descriptor file = openAt(path_);
  const Descriptor other = openAt(folder_.path("other"));
  EXPECT_FALSE(log_.isOpenAt(other.number()));
  EXPECT_FALSE(log_.isOpenAt(-1));
  ASSERT_EQ(mkfifo(folder_.path("pipe").c_str(), 0600), 0);
  const Descriptor pipe(open(folder_.path("pipe").c_str(), O_RDWR | O_CLOEXEC));
  EXPECT_TRUE(log_.makeRoom(pipe.number(), kMost + 1));
}

TEST_F(LogFileTest, OfAnotherUserIsNotUsed) {
  if (geteuid() != 0) {
    GTEST_SKIP() << "only root may give files away";
  }
  const Descriptor file = openAt(path_);
  EXPECT_TRUE(write(file, "1234567890"));
  fs::rename(path_, earlier_);
  std::ofstream(path_) << "x";
  ASSERT_EQ(chown(path_.c_str(), 501, 501), 0);
  EXPECT_FALSE(write(file, "more"));
  EXPECT_EQ(contentOf(path_), "x");
}

}  // namespace
}  // namespace logging
