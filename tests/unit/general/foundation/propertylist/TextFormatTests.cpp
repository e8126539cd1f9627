#include <gtest/gtest.h>

#include <cmath>
#include <limits>

#include "general/foundation/propertylist/PropertyListCodecs.h"
#include "general/foundation/propertylist/PropertyListFile.h"
#include "general/foundation/propertylist/TextFormat.h"

namespace {

using foundation::description;
using foundation::format;
using foundation::PropertyList;

TEST(TextFormat, PrintsTextsAsTheyAre) {
  EXPECT_EQ(format("%@ and %s", "one two", std::string("three")), "one two and three");
  EXPECT_EQ(format("%@", PropertyList("a \"b\"\n")), "a \"b\"\n");
  EXPECT_EQ(format("%s", PropertyList("text")), "text");
  EXPECT_EQ(format("%@", std::string_view("")), "");
}

TEST(TextFormat, PrintsNothingAsNull) {
  EXPECT_EQ(format("%@ %@ %s", nullptr, PropertyList(), std::optional<std::string>()), "(null) (null) (null)");
  EXPECT_EQ(format("%s", static_cast<const char*>(nullptr)), "(null)");
  EXPECT_EQ(format("%@", std::optional<std::string>("x")), "x");
  EXPECT_EQ(format("%@", std::optional<std::string_view>("y")), "y");
}

TEST(TextFormat, PrintsNumbers) {
  EXPECT_EQ(format("%d %i %u %x", 1, -2, 3U, 255), "1 -2 3 ff");
  EXPECT_EQ(format("%@ %@ %@", true, false, 12), "1 0 12");
  EXPECT_EQ(format("%@", PropertyList(0.1)), "0.1");
  EXPECT_EQ(format("%@", PropertyList(2.0)), "2");
  EXPECT_EQ(format("%@", PropertyList(true)), "1");
  EXPECT_EQ(format("%@", PropertyList(std::numeric_limits<std::uint64_t>::max())), "18446744073709551615");
  EXPECT_EQ(format("%d", PropertyList(7)), "7");
}

TEST(TextFormat, CutsNumbersToTheLengthThatIsAsked) {
  EXPECT_EQ(format("%d", std::int64_t{1} << 32), "0");
  EXPECT_EQ(format("%d", 4294967295U), "-1");
  EXPECT_EQ(format("%u", -1), "4294967295");
  EXPECT_EQ(format("%ld", std::int64_t{1} << 32), "4294967296");
  EXPECT_EQ(format("%lld %llu", std::numeric_limits<std::int64_t>::min(), std::numeric_limits<std::uint64_t>::max()),
            "-9223372036854775808 18446744073709551615");
  EXPECT_EQ(format("%hd", 5), "5");
}

TEST(TextFormat, FillsToAWidth) {
  EXPECT_EQ(format("%02x%02x", 5, 171), "05ab");
  EXPECT_EQ(format("%5d|%05d|%03d", 42, -42, 12345), "   42|-0042|12345");
  EXPECT_EQ(format("%99999999999d", 1).size(), 256U);
}

TEST(TextFormat, PrintsPercentSignsAndLeavesOtherConversions) {
  EXPECT_EQ(format("100%% %q %", 1), "100% %q %");
  EXPECT_EQ(format("%l"), "%l");
  EXPECT_EQ(format(""), "");
}

TEST(TextFormat, NeverReadsAnArgumentThatWasNotPassed) { EXPECT_EQ(format("%@ %s %d %u %x"), "(null) (null) 0 0 0"); }

TEST(TextFormat, AnArgumentOfAnotherKindIsAsIfAbsent) {
  EXPECT_EQ(format("%s", 5), "(null)");
  EXPECT_EQ(format("%d", "text"), "0");
  EXPECT_EQ(format("%s", PropertyList(5)), "(null)");
}

TEST(TextFormat, ArgumentsAreNoFormats) { EXPECT_EQ(format("%@ %@", "%@ %d", "x"), "%@ %d x"); }

TEST(TextFormat, PrintsErrorsByTheirDescription) {
  foundation::Error error;
  error.domain = "Domain";
  error.code = 4;
  error.text = "text";
  EXPECT_EQ(format("%@", error), error.description());
}

TEST(TextFormat, PrintsArraysOneElementPerLine) {
  EXPECT_EQ(description(PropertyList(PropertyList::Array{"a", 1, true})), "(\n    a,\n    1,\n    1\n)");
  EXPECT_EQ(description(std::vector<std::string>{"a", "b c"}), "(\n    a,\n    \"b c\"\n)");
  EXPECT_EQ(description(PropertyList(PropertyList::Array{})), "(\n)");
  EXPECT_EQ(format("%@", std::vector<std::string>{"a"}), "(\n    a\n)");
}

TEST(TextFormat, PrintsDictionariesSortedByKey) {
  EXPECT_EQ(description(PropertyList::dictionary({{"z", 1}, {"a b", "x"}})), "{\n    \"a b\" = x;\n    z = 1;\n}");
  EXPECT_EQ(description(PropertyList::dictionary()), "{\n}");
}

TEST(TextFormat, IndentsWithTheNesting) {
  const auto inner = PropertyList::dictionary({{"k", PropertyList(PropertyList::Array{1})}});
  EXPECT_EQ(description(PropertyList(PropertyList::Array{inner})),
            "(\n    {\n        k = (\n            1\n        );\n    }\n)");
}

TEST(TextFormat, QuotesTextsInCollectionsUnlessTheyArePlainWords) {
  const auto inArray = [](std::string_view text) {
    const std::string whole = description(PropertyList(PropertyList::Array{text}));
    return whole.substr(6, whole.size() - 8);
  };
  EXPECT_EQ(inArray("/usr/bin/a_b.c:$1"), "/usr/bin/a_b.c:$1");
  EXPECT_EQ(inArray(""), "\"\"");
  EXPECT_EQ(inArray("a-b"), "\"a-b\"");
  EXPECT_EQ(inArray("q\"\\\n\t"), "\"q\\\"\\\\\\n\\t\"");
  EXPECT_EQ(inArray("\xC3\xA9\xF0\x9F\x98\x80"), "\"\\U00e9\\Ud83d\\Ude00\"");
  EXPECT_EQ(inArray("\x01\x7F\xFF"), "\"\\U0001\\U007f\\Ufffd\"");
}

TEST(TextFormat, PrintsDataAndDates) {
  const std::byte bytes[] = {std::byte{0x0A}, std::byte{0xFF}};
  EXPECT_EQ(description(PropertyList::data(bytes)), "<0aff>");
  EXPECT_EQ(description(PropertyList::date(86400.5)), "2001-01-02 00:00:00 +0000");
  EXPECT_EQ(description(PropertyList::date(-0.5)), "2000-12-31 23:59:59 +0000");
  EXPECT_EQ(description(PropertyList::date(1e300)), "1e+300");
}

TEST(TextFormat, StopsAtTheDeepestNestingThatIsRead) {
  PropertyList deep("bottom");
  for (int i = 0; i < foundation::plist::kMaximumNesting; ++i) deep = PropertyList(PropertyList::Array{deep});
  EXPECT_NE(description(deep).find("bottom"), std::string::npos);
  for (int i = 0; i < 100000; ++i) deep = PropertyList(PropertyList::Array{std::move(deep)});
  const std::string text = description(deep);
  EXPECT_EQ(text.find("bottom"), std::string::npos);
  EXPECT_NE(text.find("..."), std::string::npos);
}

}  // namespace
