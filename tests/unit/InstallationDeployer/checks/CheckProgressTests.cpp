#include <gtest/gtest.h>

#include "InstallationDeployer/checks/CheckProgress.h"

namespace deployer {
namespace {

TEST(CheckProgress, IsThePartOfTheExpectedBytes) {
  CheckProgress progress;
  EXPECT_EQ(progress.percent(), 0) << "nothing is expected yet";
  progress.expect(150);
  progress.expect(50);
  EXPECT_EQ(progress.percent(), 0);
  progress.advance(90);
  EXPECT_EQ(progress.percent(), 45);
  progress.advance(1000);
  EXPECT_EQ(progress.percent(), 100) << "a file has grown";
}

TEST(CheckProgress, IsStoppedForGood) {
  CheckProgress progress;
  EXPECT_FALSE(progress.isStopped());
  progress.stop();
  EXPECT_TRUE(progress.isStopped());
}

}  // namespace
}  // namespace deployer
