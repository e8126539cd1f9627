#include <gtest/gtest.h>

#include <cstdint>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "tests/support/PropertyLists.h"
#include "tests/support/TemporaryDirectory.h"
#include "tools/rules/CheckedDictionary.h"

namespace bundletool {
namespace {

using foundation::PropertyList;
using Need = CheckedDictionary::Need;

class CheckedDictionaryTest : public ::testing::Test, protected tests::PropertyLists {
 protected:
  [[nodiscard]] CheckedDictionary made(std::vector<std::pair<std::string, PropertyList>> entries) {
    return {"f", "Top[1]", PropertyList::dictionary(std::move(entries)), problems_};
  }
  /// The complaints since the last call.
  std::vector<std::string> complaints() {
    std::vector<std::string> all;
    const Problems found = std::exchange(problems_, {});
    for (const Problem& problem : found.errors()) {
      all.push_back(problem.key + ": " + problem.what);
    }
    return all;
  }
  using Complaints = std::vector<std::string>;

  Problems problems_;
};

TEST_F(CheckedDictionaryTest, GivesWhatIsAsItMustBe) {
  const CheckedDictionary checked = made({{"text", "x"},
                                          {"flag", true},
                                          {"number", 7},
                                          {"texts", array({"a", "b"})},
                                          {"arguments", array({"", "-x"})},
                                          {"dictionary", PropertyList::dictionary({{"in", "side"}})}});
  EXPECT_EQ(checked.string("text", Need::Required), "x");
  EXPECT_EQ(checked.boolean("flag"), true);
  EXPECT_EQ(checked.number("number", 7), 7U);
  EXPECT_EQ(checked.strings("texts", Need::Required), (std::vector<std::string>{"a", "b"}));
  EXPECT_EQ(checked.arguments("arguments"), (std::vector<std::string>{"", "-x"}));
  const auto inner = checked.dictionary("dictionary", Need::Required);
  ASSERT_TRUE(inner.has_value());
  EXPECT_EQ(inner->string("in", Need::Required), "side");
  EXPECT_EQ(inner->keyPath("in"), "Top[1].dictionary.in");
  EXPECT_EQ(complaints(), Complaints{});
}

TEST_F(CheckedDictionaryTest, ComplainsOfAMissingKeyOnlyWhenItIsNeeded) {
  const CheckedDictionary checked = made({});
  EXPECT_EQ(checked.string("a", Need::Optional), std::nullopt);
  EXPECT_EQ(checked.boolean("b"), std::nullopt);
  EXPECT_EQ(checked.number("c", 1), std::nullopt);
  EXPECT_TRUE(checked.dictionaries("d", Need::Optional).empty());
  EXPECT_FALSE(checked.has("a"));
  EXPECT_EQ(complaints(), Complaints{});
  EXPECT_EQ(checked.string("a", Need::Required), std::nullopt);
  EXPECT_TRUE(checked.strings("e", Need::Required).empty());
  EXPECT_EQ(complaints(), (Complaints{"Top[1].a: the key is missing", "Top[1].e: the key is missing"}));
}

TEST_F(CheckedDictionaryTest, TakesNothingOfAnotherKind) {
  const CheckedDictionary checked =
      made({{"empty", ""}, {"cut", std::string("a\0b", 3)}, {"one", 1}, {"word", "YES"}, {"real", 1.0}, {"less", -1}});
  EXPECT_EQ(checked.string("empty", Need::Optional), std::nullopt);
  EXPECT_EQ(checked.string("cut", Need::Optional), std::nullopt);
  EXPECT_EQ(checked.boolean("one"), std::nullopt);
  EXPECT_EQ(checked.boolean("word"), std::nullopt);
  EXPECT_EQ(checked.number("real", 9), std::nullopt);
  EXPECT_EQ(checked.number("less", 9), std::nullopt);
  EXPECT_EQ(checked.number("one", 0), std::nullopt) << "more than allowed";
  EXPECT_EQ(checked.dictionary("word", Need::Optional), std::nullopt);
  EXPECT_EQ(checked.array("word", Need::Optional), std::nullopt);
  EXPECT_EQ(complaints().size(), 9U);
}

TEST_F(CheckedDictionaryTest, LeavesUnusableElementsOutAndNamesThem) {
  const CheckedDictionary checked =
      made({{"texts", array({"a", "", 7})}, {"dictionaries", array({"a", PropertyList::dictionary({})})}});
  EXPECT_EQ(checked.strings("texts", Need::Required), std::vector<std::string>{"a"});
  EXPECT_EQ(complaints(), (Complaints{"Top[1].texts[1]: the value is of the wrong kind",
                                      "Top[1].texts[2]: the value is of the wrong kind"}));
  const auto dictionaries = checked.dictionaries("dictionaries", Need::Required);
  ASSERT_EQ(dictionaries.size(), 1U);
  EXPECT_EQ(dictionaries[0].keyPath(), "Top[1].dictionaries[1]");
  EXPECT_EQ(complaints(), Complaints{"Top[1].dictionaries[0]: the value is of the wrong kind"});
}

TEST_F(CheckedDictionaryTest, AllowsNoOtherKeys) {
  made({{"a", 1}, {"b", 2}, {"c", 3}}).allowOnly({"a", "d"});
  EXPECT_EQ(complaints(), (Complaints{"Top[1].b: the key is unknown", "Top[1].c: the key is unknown"}));
}

TEST_F(CheckedDictionaryTest, RefusesAKeyForAFaultOnly) {
  const CheckedDictionary checked = made({});
  EXPECT_FALSE(checked.refuseIf(std::nullopt, "a", "mend it"));
  EXPECT_EQ(complaints(), Complaints{});
  EXPECT_TRUE(checked.refuseIf("it is bad", "a", "mend it"));
  EXPECT_EQ(complaints(), Complaints{"Top[1].a: it is bad"});
}

TEST_F(CheckedDictionaryTest, IsReadFromAFileThatHoldsOne) {
  tests::TemporaryDirectory folder;
  const std::string file = folder.write("f.plist", "<plist version=\"1.0\"><dict><key>a</key><true/></dict></plist>");
  const auto read = CheckedDictionary::fromFile(file, "the file", problems_);
  ASSERT_TRUE(read.has_value());
  EXPECT_EQ(read->boolean("a"), true);
  EXPECT_EQ(read->keyPath("a"), "a");
  EXPECT_EQ(complaints(), Complaints{});
  EXPECT_FALSE(CheckedDictionary::fromFile(folder.path("none"), "the file", problems_).has_value());
  EXPECT_EQ(complaints(), Complaints{": the file is missing"});
}

}  // namespace
}  // namespace bundletool
