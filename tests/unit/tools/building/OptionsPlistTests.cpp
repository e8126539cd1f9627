#include "tests/unit/tools/PackagerFixture.h"

namespace {

using foundation::PropertyList;

class OptionsPlist : public tests::PackagerFixture {};

TEST_F(OptionsPlist, IsRefusedWhenItIsMissingOrOfTheWrongShape) {
  describe("Options", dictionary({{"OptionsPlist", "None.plist"}}));
  EXPECT_TRUE(refuses("None.plist", "", "missing"));
  useOptionsPlist(dictionary({{"Else", 1}}));
  EXPECT_TRUE(refuses("Options.plist", "Else", "unknown"));
  useOptionsPlist(dictionary({{"ProductDetectionList", array({dictionary({{"ProductName", "P"}})})}}));
  EXPECT_TRUE(refuses("Options.plist", "ProductDetectionList[0].ProductDetectionPaths", "missing"));
  const auto detecting = [&](PropertyList paths) {
    return array({dictionary({{"ProductName", "P"}, {"ProductDetectionPaths", std::move(paths)}})});
  };
  useOptionsPlist(dictionary({{"ProductDetectionList", detecting(array({"/a", 7}))}}));
  EXPECT_TRUE(refuses("Options.plist", "ProductDetectionList[0].ProductDetectionPaths[1]", "wrong kind"));
  useOptionsPlist(dictionary({{"ProductDetectionList", detecting(array({array({"/a", 7})}))}}));
  EXPECT_TRUE(refuses("Options.plist", "ProductDetectionList[0].ProductDetectionPaths[0][1]", "wrong kind"));
  useOptionsPlist(dictionary({{"ProductRemovals", detecting(array({"/a"}))}}));
  EXPECT_TRUE(refuses("Options.plist", "ProductRemovals[0].ListOfComponents", "missing"));
  useOptionsPlist(dictionary({{"ProductCleanup", dictionary({})}}));
  EXPECT_TRUE(refuses("Options.plist", "ProductCleanup.ListOfComponents", "missing"));
}

TEST_F(OptionsPlist, RefusesProductsWithoutCrossGradesOrWithoutComponents) {
  useOptionsPlist(dictionary({{"Products", dictionary({{"P", dictionary({})}})}}));
  EXPECT_TRUE(refuses("Options.plist", "Products.P.CrossGrades", "missing"));
  useOptionsPlist(dictionary({{"Products", dictionary({{"Q", dictionary({{"CrossGrades", array({})}})}})}}));
  EXPECT_TRUE(refuses("Options.plist", "Products.Q", "no such product"));
  const PropertyList crossGrade = dictionary({{"ProductName", "Old"}, {"AllowCrossGrades", "yes"}});
  useOptionsPlist(dictionary({{"Products", dictionary({{"P", dictionary({{"CrossGrades", array({crossGrade})}})}})}}));
  EXPECT_TRUE(refuses("Options.plist", "Products.P.CrossGrades[0].AllowCrossGrades", "wrong kind"));
}

}  // namespace
