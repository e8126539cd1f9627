#include <gtest/gtest.h>

#include <cstdint>
#include <filesystem>
#include <string>
#include <string_view>

#include "InstallationDeployer/ManifestCache.h"
#include "tests/support/TemporaryDirectory.h"

namespace deployer {
namespace {

constexpr std::string_view kOne = "<plist version=\"1.0\"><dict><key>n</key><integer>1</integer></dict></plist>";
constexpr std::string_view kTwo = "<plist version=\"1.0\"><dict><key>n</key><integer>2</integer></dict></plist>";

/// A folder with one manifest.
class ManifestCacheTest : public ::testing::Test {
 protected:
  void write(std::string_view content) { directory_.write("a.plist", std::string(content)); }
  [[nodiscard]] std::int64_t read() {
    const auto content = cache_.read(directory_.path("a.plist"));
    return content ? (*content)["n"].integer().value_or(-1) : -1;
  }

  tests::TemporaryDirectory directory_;
  ManifestCache cache_;
};

TEST_F(ManifestCacheTest, GivesWhatTheFileHoldsNow) {
  write(kOne);
  EXPECT_EQ(read(), 1);
  write(kTwo);
  EXPECT_EQ(read(), 2);
}

TEST_F(ManifestCacheTest, ALinkIsReadEachTimeBecauseWhatItLeadsToMayChange) {
  directory_.write("target", kOne);
  std::filesystem::create_symlink("target", directory_.path("a.plist"));
  EXPECT_EQ(read(), 1);
  EXPECT_FALSE(cache_.isCurrent(directory_.path("a.plist")));
  directory_.write("target", kTwo);
  EXPECT_EQ(read(), 2);
}

TEST_F(ManifestCacheTest, WhatWasNeverReadOrIsGoneIsNotCurrent) {
  EXPECT_FALSE(cache_.isCurrent(directory_.path("a.plist")));
  write(kOne);
  ASSERT_EQ(read(), 1);
  std::filesystem::remove(directory_.path("a.plist"));
  EXPECT_FALSE(cache_.isCurrent(directory_.path("a.plist")));
  const auto missing = cache_.read(directory_.path("a.plist"));
  ASSERT_FALSE(missing);
  EXPECT_TRUE(missing.error().isNoSuchFile());
}

TEST_F(ManifestCacheTest, AFileThatDoesNotParseIsAnErrorEachTime) {
  write("no property list");
  EXPECT_EQ(read(), -1);
  EXPECT_EQ(read(), -1);
  write(kOne);
  EXPECT_EQ(read(), 1);
}

}  // namespace
}  // namespace deployer
