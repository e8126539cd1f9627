#include <gtest/gtest.h>

#include "InstallationDeployer/FolderContents.h"

namespace deployer {
namespace {

TEST(FolderContents, NothingAndWhatFileBrowsersLeaveAreNothingToMiss) {
  EXPECT_TRUE(isAsGoodAsEmpty({}));
  EXPECT_TRUE(isAsGoodAsEmpty({".DS_Store"}));
}

TEST(FolderContents, AnythingElseIs) {
  EXPECT_FALSE(isAsGoodAsEmpty({"file"}));
  EXPECT_FALSE(isAsGoodAsEmpty({".DS_Store", "file"}));
  EXPECT_FALSE(isAsGoodAsEmpty({".DS_Store2"}));
  EXPECT_FALSE(isAsGoodAsEmpty({".ds_store"}));
}

}  // namespace
}  // namespace deployer
