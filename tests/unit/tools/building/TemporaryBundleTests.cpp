#include <gtest/gtest.h>

#include <filesystem>
#include <iterator>
#include <string>
#include <utility>

#include "tests/support/TemporaryDirectory.h"
#include "tools/building/TemporaryBundle.h"

namespace {

namespace fs = std::filesystem;

class TemporaryBundle : public ::testing::Test {
 protected:
  /// How many items the output folder holds.
  [[nodiscard]] std::ptrdiff_t items() const { return std::distance(fs::directory_iterator(folder_.path()), {}); }

  /// A bundle in the making that holds a folder.
  [[nodiscard]] bundletool::TemporaryBundle makeWith(const std::string& name) const {
    auto made = bundletool::TemporaryBundle::make(folder_.path());
    EXPECT_TRUE(made.ok());
    fs::create_directories(made->path() + "/" + name);
    return std::move(made).value();
  }

  tests::TemporaryDirectory folder_;
  const std::string destination_ = folder_.path("Installer.app");
};

TEST_F(TemporaryBundle, IsRemovedWithEverythingInItUnlessPublished) {
  {
    const auto bundle = makeWith("a/b");
    EXPECT_EQ(items(), 1);
  }
  EXPECT_EQ(items(), 0);
}

TEST_F(TemporaryBundle, GetsItsNameWhenPublishedAndStays) {
  {
    auto bundle = makeWith("a");
    ASSERT_TRUE(bundle.publish(destination_, false).ok());
  }
  EXPECT_TRUE(fs::is_directory(destination_ + "/a"));
  EXPECT_EQ(items(), 1);
}

TEST_F(TemporaryBundle, ReplacesWhatHasTheNameAsAWhole) {
  folder_.write("Installer.app/old", "old");
  auto bundle = makeWith("new");
  ASSERT_TRUE(bundle.publish(destination_, true).ok());
  EXPECT_TRUE(fs::is_directory(destination_ + "/new"));
  EXPECT_FALSE(fs::exists(destination_ + "/old"));
  EXPECT_EQ(items(), 1);
}

TEST_F(TemporaryBundle, LeavesWhatHasTheNameUnlessItMayReplaceIt) {
  folder_.write("Installer.app/old", "old");
  {
    auto bundle = makeWith("new");
    EXPECT_FALSE(bundle.publish(destination_, false).ok());
  }
  EXPECT_TRUE(fs::exists(destination_ + "/old"));
  EXPECT_EQ(items(), 1);
}

TEST_F(TemporaryBundle, PutsTheOldOneBackWhenItCannotBePublished) {
  folder_.write("Installer.app/old", "old");
  auto bundle = makeWith("new");
  fs::remove_all(bundle.path());
  EXPECT_FALSE(bundle.publish(destination_, true).ok());
  EXPECT_TRUE(fs::exists(destination_ + "/old"));
}

TEST_F(TemporaryBundle, CannotBeMadeWhereThereIsNoFolder) {
  EXPECT_FALSE(bundletool::TemporaryBundle::make(folder_.path("none")).ok());
}

}  // namespace
