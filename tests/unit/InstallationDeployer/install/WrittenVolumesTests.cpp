#include <gtest/gtest.h>

#include <filesystem>

#include "InstallationDeployer/install/WrittenVolumes.h"
#include "tests/support/TemporaryDirectory.h"

namespace deployer {
namespace {

using tests::TemporaryDirectory;

TEST(WrittenVolumes, FlushesWhatWasNotedAlsoWhenTheItemIsGone) {
  const TemporaryDirectory scratch;
  WrittenVolumes volumes;
  volumes.note(scratch.makeDirectory("a/b"));
  std::filesystem::remove_all(scratch.path("a"));
  EXPECT_TRUE(volumes.flush().ok());
}

TEST(WrittenVolumes, ALinkThatLeadsNowhereStandsForItsFolder) {
  const TemporaryDirectory scratch;
  std::filesystem::create_symlink("nowhere", scratch.path("link"));
  WrittenVolumes volumes;
  volumes.note(scratch.path("link"));
  EXPECT_TRUE(volumes.flush().ok());
}

TEST(WrittenVolumes, NothingNotedIsNothingToFlush) {
  WrittenVolumes volumes;
  EXPECT_TRUE(volumes.flush().ok());
  volumes.note("/never/there");
  EXPECT_TRUE(volumes.flush().ok());
}

}  // namespace
}  // namespace deployer
