#include "tests/unit/tools/PackagerFixture.h"

namespace {

namespace fs = std::filesystem;
using foundation::PropertyList;

class PathConflicts : public tests::PackagerFixture {};

TEST_F(PathConflicts, AreFoundWithinOneComponent) {
  useFileEntry({{"Path", "/opt/file"}, {"ExternalSourcePath", "/x"}});
  EXPECT_TRUE(refuses("Core.plist", "ListOfFiles[0]", "/opt/file is installed by component Core already"));
  useFileEntry({{"Path", "/opt/file"}, {"IsDirectory", true}});
  EXPECT_TRUE(refuses("Core.plist", "ListOfFiles[0]", "installed by component Core already"));
  const PropertyList entry = dictionary({{"Path", "/y"}, {"ExternalSourcePath", "/x"}});
  useAuthoringPlist(dictionary({{"ListOfFiles", array({entry, entry})}}));
  EXPECT_TRUE(refuses("Core.plist", "ListOfFiles[1]", "installed by component Core already"));
}

TEST_F(PathConflicts, AreFoundBetweenComponentsOfOneProductOnly) {
  stage("opt/file", "other", "Two");
  describe("Components", array({component(), component("Two", array({"Q"}))}));
  EXPECT_TRUE(build(true)) << "no product has both";
  fs::remove_all(bundle());
  describe("Components", array({component(), component("Two", array({"Q", "P"}))}));
  EXPECT_TRUE(refuses("Staged/Two/opt/file", "", "installed by component Core already"));
}

TEST_F(PathConflicts, AreFoundThroughALaterListingOfAComponent) {
  stage("opt/file", "other", "Two");
  describe("Components", array({component(), component("Two", array({"Q"})), component("Core", array({"Q"}))}));
  EXPECT_TRUE(refuses("Staged/Two/opt/file", "", "installed by component Core already"));
}

TEST_F(PathConflicts, AreFoundInSharedFoldersThatDisagreeOnly) {
  stage("opt/mine/other", "x", "Two");
  stage("opt/mine/one", "x", "Core");
  describe("Components", array({component(), component("Two")}));
  EXPECT_TRUE(build()) << "folders that agree may be shared";
  fs::remove_all(bundle());
  ASSERT_EQ(chmod(staged("opt/mine", "Two").c_str(), 0700), 0);
  EXPECT_TRUE(refuses("Staged/Two/opt/mine", "", "another owner, group or mode"));
}

TEST_F(PathConflicts, AreFoundWhereItemsLieBelowAFileOrALink) {
  useFileEntry({{"Path", "/opt/file/below"}, {"ExternalSourcePath", "/x"}});
  EXPECT_TRUE(refuses("Core.plist", "ListOfFiles[0]", "lies below /opt/file"));
  fs::create_symlink("/elsewhere", staged("opt/link"));
  useFileEntry({{"Path", "/opt/link/a/b"}, {"ExternalSourcePath", "/x"}});
  EXPECT_TRUE(refuses("Core.plist", "ListOfFiles[0]", "lies below /opt/link"));
}

}  // namespace
