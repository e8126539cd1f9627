#include "general/foundation/files/ItemFinder.h"
#include "tests/unit/general/foundation/files/FileTest.h"

using namespace foundation;
using namespace std::string_literals;

namespace {

class ItemFinderTest : public tests::FileTest {
 protected:
  ItemFinder finder_;
};

}  // namespace

TEST_F(ItemFinderTest, FindsItemsOfSeveralFoldersInAnyOrder) {
  box_.write("a/file", "12");
  box_.write("b/file", "123");
  EXPECT_EQ(finder_.find(path("a/file"))->size, 2U);
  EXPECT_EQ(finder_.find(path("b/file"))->size, 3U);
  EXPECT_TRUE(finder_.find(path("a"))->isDirectory());
  EXPECT_EQ(finder_.find(path("a/file"))->size, 2U);
  EXPECT_TRUE(finder_.find("/")->isDirectory());
}

TEST_F(ItemFinderTest, TellsOfAnItemWhatTheFileManagerTells) {
  box_.write("file", "x");
  ASSERT_EQ(chown(path("file").c_str(), 501, 20), 0);
  ASSERT_EQ(chmod(path("file").c_str(), 04711), 0);
  EXPECT_EQ(finder_.find(path("file")).value(), files::attributesOfItem(path("file")).value());
}

TEST_F(ItemFinderTest, DescribesALinkItselfAndFollowsThoseOnTheWay) {
  box_.write("folder/file", "x");
  ASSERT_EQ(symlink("folder", path("link").c_str()), 0);
  EXPECT_TRUE(finder_.find(path("link"))->isSymbolicLink());
  EXPECT_TRUE(finder_.find(path("link/file")));
}

TEST_F(ItemFinderTest, FindsNothingWhereNothingIs) {
  box_.write("file", "x");
  EXPECT_FALSE(finder_.find(path("missing")));
  EXPECT_FALSE(finder_.find(path("missing/below")));
  EXPECT_FALSE(finder_.find(path("file/below")));
  EXPECT_FALSE(finder_.find(path(std::string(256, 'x'))));
}

TEST_F(ItemFinderTest, FindsAFolderThatWasMissingBefore) {
  EXPECT_FALSE(finder_.find(path("folder/file")));
  box_.write("folder/file", "x");
  EXPECT_TRUE(finder_.find(path("folder/file")));
}

TEST_F(ItemFinderTest, TakesNoRelativePathAndNoneWithANul) {
  box_.write("file", "x");
  EXPECT_FALSE(finder_.find(""));
  EXPECT_FALSE(finder_.find("file"));
  EXPECT_FALSE(finder_.find("./file"));
  EXPECT_FALSE(finder_.find(path("file\0x"s)));
}
