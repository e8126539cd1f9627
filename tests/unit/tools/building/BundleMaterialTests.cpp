#include <sys/stat.h>
#include <unistd.h>

#include <cstdint>
#include <string>

#include "tests/unit/tools/PackagerFixture.h"

namespace {

namespace fs = std::filesystem;

class BundleMaterial : public tests::PackagerFixture {};

TEST_F(BundleMaterial, NeedsAFrontEndAndAnEngineThatAreExecutable) {
  for (const char* key : {"FrontEnd", "Engine"}) {
    const PropertyList before = description_;
    describe(key, "Nowhere");
    EXPECT_TRUE(refuses("D.plist", key, "is missing"));
    describe(key, "Staged");
    EXPECT_TRUE(refuses("D.plist", key, "no regular file"));
    describe(key, "Staged/Core/opt/file");
    EXPECT_TRUE(refuses("D.plist", key, "not executable"));
    description_ = before;
  }
  describe("Engine", {});
  EXPECT_TRUE(refuses("D.plist", "Engine", "DefaultEngine is missing"));
  makeExecutable("DefaultEngine");
  describe("FrontEnd", {});
  EXPECT_TRUE(refuses("D.plist", "FrontEnd", "DefaultFrontEnd is missing"));
}

TEST_F(BundleMaterial, MustNotGetItsOutputInAStagedFolder) {
  describeCore("StagedFolder", path("."));
  EXPECT_TRUE(refuses("out", "", "lies in the staged folder of component Core"));
  stage("f", "f", "out");
  describeCore("StagedFolder", "Staged/out");
  EXPECT_TRUE(build()) << "a name that begins alike is another folder";
}

TEST_F(BundleMaterial, WarnsOfFilesWithSecretsThatReceiptsKeepForAllToRead) {
  stage("opt/secret", "x");
  stage("opt/program", "x");
  ASSERT_EQ(chmod(staged("opt/secret").c_str(), 0640), 0);
  ASSERT_EQ(chmod(staged("opt/program").c_str(), 0755), 0);
  ASSERT_EQ(chmod(staged("opt/file").c_str(), 0644), 0);
  ASSERT_TRUE(build());
  ASSERT_EQ(problems_.warnings().size(), 1U);
  EXPECT_EQ(problems_.warnings()[0].file, staged("opt/secret"));
  EXPECT_EQ(problems_.warnings()[0].name, "secrets-in-receipts");
  EXPECT_NE(problems_.warnings()[0].what.find("not everybody may read /opt/secret,"), std::string::npos);
  describe("SilencedWarnings", array({"secrets-in-receipts"}));
  ASSERT_TRUE(build(true));
  EXPECT_TRUE(problems_.warnings().empty());
  describe("SilencedWarnings", {});
  describe("Options", dictionary({{"ReceiptHasPayloadContents", false}}));
  ASSERT_TRUE(build(true));
  EXPECT_TRUE(problems_.warnings().empty());
}

std::uint32_t ownerOf(const std::string& path) {
  struct stat status {};
  EXPECT_EQ(lstat(path.c_str(), &status), 0);
  return status.st_uid;
}

TEST_F(BundleMaterial, WarnsWhenEverythingBelongsToABuilderWhoIsNotRoot) {
  constexpr uid_t kSomebody = 501;
  for (const char* const item : {"opt/file", ""}) {
    ASSERT_TRUE(geteuid() != 0 || lchown(staged(item).c_str(), kSomebody, kSomebody) == 0);
  }
  builder_ = ownerOf(staged("opt/file"));
  ASSERT_NE(builder_, 0U);
  ASSERT_TRUE(build());
  ASSERT_EQ(warnings("builder-owns-everything").size(), 1U);
  EXPECT_EQ(warnings("builder-owns-everything")[0].file, path("D.plist"));
  EXPECT_NE(warnings("builder-owns-everything")[0].advice.find("--root-owner-group"), std::string::npos);
  rootOwnerGroup_ = true;
  ASSERT_TRUE(build(true));
  EXPECT_TRUE(warnings("builder-owns-everything").empty());
  rootOwnerGroup_ = false;
  describe("RootOwnerGroup", true);
  ASSERT_TRUE(build(true));
  EXPECT_TRUE(warnings("builder-owns-everything").empty());
  describe("RootOwnerGroup", false);
  builder_ += 1;
  ASSERT_TRUE(build(true));
  EXPECT_TRUE(warnings("builder-owns-everything").empty()) << "somebody else's";
  builder_ = 0;
  ASSERT_TRUE(build(true));
  EXPECT_TRUE(warnings("builder-owns-everything").empty()) << "root may mean it";
}

TEST_F(BundleMaterial, NeedsAnOutputThatIsThereAndNotTaken) {
  ASSERT_TRUE(build());
  EXPECT_TRUE(refuses("out/Installer.app", "", "there already"));
  fs::remove_all(path("out"));
  EXPECT_FALSE(build());
  EXPECT_EQ(problems_.errors().at(0).file, path("out"));
}

}  // namespace
