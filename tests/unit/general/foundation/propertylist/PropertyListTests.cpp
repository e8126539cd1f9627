#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <thread>

#include "general/foundation/propertylist/PropertyList.h"
#include "general/foundation/propertylist/PropertyListFile.h"

namespace {

using foundation::PropertyList;
using Type = PropertyList::Type;

PropertyList sample() {
  return PropertyList::dictionary(
      {{"b", PropertyList(PropertyList::Array{1, "two", true})}, {"a", 5}, {"c", PropertyList::dictionary()}});
}

TEST(PropertyList, NothingIsNilAndGivesNothing) {
  const PropertyList nil;
  EXPECT_TRUE(nil.isNil());
  EXPECT_EQ(nil.string(), std::nullopt);
  EXPECT_EQ(nil.text(), "");
  EXPECT_EQ(nil.integer(), std::nullopt);
  EXPECT_EQ(nil.real(), std::nullopt);
  EXPECT_EQ(nil.boolean(), std::nullopt);
  EXPECT_TRUE(nil.elements().empty());
  EXPECT_TRUE(nil.entries().empty());
  EXPECT_TRUE(nil["a"]["b"].at(3).isNil());
}

TEST(PropertyList, ANullPointerIsNil) { EXPECT_TRUE(PropertyList(static_cast<const char*>(nullptr)).isNil()); }

TEST(PropertyList, ValuesOfAnotherTypeAreAsIfAbsent) {
  const PropertyList text("text");
  EXPECT_TRUE(text["key"].isNil());
  EXPECT_TRUE(text.at(0).isNil());
  EXPECT_EQ(text.integer(), std::nullopt);
  EXPECT_EQ(text.count(), 0U);
  EXPECT_EQ(PropertyList(7).string(), std::nullopt);
  EXPECT_EQ(PropertyList(7).boolean(), std::nullopt);
  EXPECT_TRUE(PropertyList(7).bytes().empty());
  EXPECT_EQ(PropertyList(7).secondsSince2001(), std::nullopt);
}

TEST(PropertyList, BooleansCountAsNumbers) {
  EXPECT_TRUE(PropertyList(true).isNumber());
  EXPECT_EQ(PropertyList(true).integer(), 1);
  EXPECT_EQ(PropertyList(false).real(), 0.0);
  EXPECT_EQ(PropertyList(true), PropertyList(1));
}

TEST(PropertyList, RealsAreCutAndSaturatedAsIntegers) {
  EXPECT_EQ(PropertyList(-2.9).integer(), -2);
  EXPECT_EQ(PropertyList(1e300).integer(), std::numeric_limits<std::int64_t>::max());
  EXPECT_EQ(PropertyList(-1e300).integer(), std::numeric_limits<std::int64_t>::min());
  EXPECT_EQ(PropertyList(std::nan("")).integer(), 0);
  EXPECT_EQ(PropertyList(-5.0).unsignedInteger(), 0U);
  EXPECT_EQ(PropertyList(1e300).unsignedInteger(), std::numeric_limits<std::uint64_t>::max());
}

TEST(PropertyList, IntegersBeyondTheSignedRangeAreKept) {
  const PropertyList large(std::numeric_limits<std::uint64_t>::max());
  EXPECT_TRUE(large.isLargeUnsigned());
  EXPECT_EQ(large.unsignedInteger(), std::numeric_limits<std::uint64_t>::max());
  EXPECT_EQ(large.integer(), std::numeric_limits<std::int64_t>::max());
  EXPECT_FALSE(PropertyList(std::uint64_t{5}).isLargeUnsigned());
  EXPECT_NE(large, PropertyList(-1));
}

TEST(PropertyList, NumbersAreEqualByValueWhateverTheirType) {
  EXPECT_EQ(PropertyList(3), PropertyList(3.0));
  EXPECT_NE(PropertyList(3), PropertyList(3.5));
  EXPECT_NE(PropertyList(std::int64_t{9007199254740993}), PropertyList(9007199254740992.0));
  EXPECT_EQ(PropertyList(std::nan("")), PropertyList(std::nan("")));
  EXPECT_NE(PropertyList(3), PropertyList("3"));
}

TEST(PropertyList, OtherValuesAreEqualByTypeAndContent) {
  EXPECT_EQ(sample(), sample());
  EXPECT_NE(sample(), sample().with("a", 6));
  EXPECT_NE(PropertyList::date(1), PropertyList(1));
  EXPECT_NE(PropertyList(PropertyList::Array{}), PropertyList::dictionary());
  const std::byte bytes[] = {std::byte{1}};
  EXPECT_EQ(PropertyList::data(bytes), PropertyList::data(bytes));
  EXPECT_NE(PropertyList::data(bytes), PropertyList::data({}));
}

TEST(PropertyList, ADictionaryIsSortedAndTheLastOfEqualKeysCounts) {
  const auto value = PropertyList::dictionary({{"z", 1}, {"a", 2}, {"z", 3}});
  ASSERT_EQ(value.count(), 2U);
  EXPECT_EQ(value.entries()[0].key, "a");
  EXPECT_EQ(value.entries()[1].key, "z");
  EXPECT_EQ(value["z"].integer(), 3);
}

TEST(PropertyList, ANilValueLeavesItsKeyOut) {
  EXPECT_EQ(PropertyList::dictionary({{"a", PropertyList()}}).count(), 0U);
  EXPECT_EQ(PropertyList::dictionary({{"a", 1}, {"a", PropertyList()}}).count(), 0U);
}

TEST(PropertyList, FindsEveryKeyOfALargeDictionary) {
  std::vector<std::pair<std::string, PropertyList>> entries;
  for (int i = 0; i < 1000; ++i) entries.emplace_back("key" + std::to_string(i), i);
  const auto value = PropertyList::dictionary(entries);
  for (int i = 0; i < 1000; ++i) EXPECT_EQ(value["key" + std::to_string(i)].integer(), i);
  EXPECT_TRUE(value["key1000"].isNil());
  EXPECT_TRUE(value[""].isNil());
}

TEST(PropertyList, WithSetsReplacesAndLeavesOut) {
  const auto value = sample();
  EXPECT_EQ(value.with("d", 1).count(), 4U);
  EXPECT_EQ(value.with("a", 1)["a"].integer(), 1);
  EXPECT_EQ(value.with("a", PropertyList()).count(), 2U);
  EXPECT_EQ(value["a"].integer(), 5);
  EXPECT_EQ(PropertyList("text").with("a", 1), PropertyList::dictionary({{"a", 1}}));
}

TEST(PropertyList, WithTakesAKeyThatBelongsToTheDictionaryItself) {
  PropertyList value = sample();
  value = value.with(value.entries()[1].key, value["c"]);
  EXPECT_TRUE(value["b"].isDictionary());
}

TEST(PropertyList, AppendingAddsAtTheEnd) {
  const auto value = PropertyList().appending("a").appending(2);
  EXPECT_EQ(value, PropertyList(PropertyList::Array{"a", 2}));
}

TEST(PropertyList, StringsLeavesOutOtherTypes) {
  EXPECT_EQ(PropertyList(PropertyList::Array{"a", 1, "b"}).strings(), (std::vector<std::string>{"a", "b"}));
  EXPECT_TRUE(PropertyList("a").strings().empty());
}

TEST(PropertyList, AValueTakenFromADocumentOutlivesIt) {
  PropertyList kept;
  {
    const auto document =
        foundation::plist::parse("<plist><dict><key>k</key><array><string>text</string></array></dict></plist>");
    ASSERT_TRUE(document.ok());
    kept = (*document)["k"];
  }
  EXPECT_EQ(kept.at(0).text(), "text");
  const PropertyList element = kept.at(0);
  kept = element;
  EXPECT_EQ(kept.text(), "text");
}

TEST(PropertyList, AssigningAPartOfItselfIsSafe) {
  PropertyList value(PropertyList::Array{PropertyList(PropertyList::Array{"inner"})});
  value = value.at(0);
  EXPECT_EQ(value.at(0).text(), "inner");
}

TEST(PropertyList, FreesAndComparesAMillionLevelsWithoutRecursion) {
  const auto nested = [] {
    PropertyList value(1);
    for (int i = 0; i < 1000000; ++i) value = PropertyList(PropertyList::Array{std::move(value)});
    return value;
  };
  EXPECT_EQ(nested(), nested());
}

TEST(PropertyList, IsSharedBetweenThreads) {
  const auto document = foundation::plist::parse("<plist><array><string>shared</string></array></plist>");
  ASSERT_TRUE(document.ok());
  const PropertyList value = *document;
  std::vector<std::thread> threads;
  for (int i = 0; i < 4; ++i) {
    threads.emplace_back([value] {
      for (int round = 0; round < 1000; ++round) {
        const PropertyList copy = value.at(0);
        EXPECT_EQ(copy.text(), "shared");
      }
    });
  }
  for (std::thread& thread : threads) thread.join();
}

}  // namespace
