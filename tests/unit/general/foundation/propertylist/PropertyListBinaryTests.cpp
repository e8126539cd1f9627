#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <string>
#include <vector>

#include "general/foundation/propertylist/PropertyListCodecs.h"
#include "general/foundation/propertylist/PropertyListFile.h"

namespace {

using foundation::kReadCorrupt;
using foundation::kWriteUnknown;
using foundation::PropertyList;
using foundation::plist::Format;
using foundation::plist::parse;
using foundation::plist::serialize;

std::string number(std::uint64_t value, std::size_t size) {
  std::string text;
  for (std::size_t i = size; i > 0; --i) text.push_back(static_cast<char>(value >> (8 * (i - 1))));
  return text;
}

std::string bytes(std::initializer_list<unsigned> values) {
  std::string text;
  for (const unsigned value : values) text.push_back(static_cast<char>(value));
  return text;
}

/// A document made by hand, of objects that are given as bytes; the first one is the top.
struct Document {
  std::vector<std::string> objects;
  std::uint64_t offsetSize = 4;
  std::uint64_t referenceSize = 1;

  std::string text() const {
    std::string output = "bplist00";
    std::string table;
    for (const std::string& object : objects) {
      table += number(output.size(), offsetSize);
      output += object;
    }
    const std::size_t tableAt = output.size();
    output += table + std::string(6, '\0') + number(offsetSize, 1) + number(referenceSize, 1);
    return output + number(objects.size(), 8) + number(0, 8) + number(tableAt, 8);
  }
};

PropertyList read(const std::vector<std::string>& objects) {
  const auto list = parse(Document{objects}.text());
  EXPECT_TRUE(list.ok()) << list.error().text;
  return list.ok() ? *list : PropertyList();
}

bool isRefused(const std::string& text) {
  const auto list = parse(text);
  if (!list.ok()) {
    EXPECT_EQ(list.error().code, kReadCorrupt);
  }
  return !list.ok();
}

bool isRefused(const std::vector<std::string>& objects) { return isRefused(Document{objects}.text()); }

std::string binary(const PropertyList& list) {
  const auto result = serialize(list, Format::Binary);
  EXPECT_TRUE(result.ok());
  return result.ok() ? *result : "";
}

PropertyList sample() {
  const std::byte data[] = {std::byte{1}, std::byte{0}};
  return PropertyList::dictionary({{"array", PropertyList(PropertyList::Array{1, 300, 70000, true, false})},
                                   {"data", PropertyList::data(data)},
                                   {"date", PropertyList::date(1.5)},
                                   {"real", 0.1},
                                   {"text", "gr\xC3\xBC\xC3\x9F \xF0\x9F\x98\x80"},
                                   {"long text with more than fifteen bytes", "again more than fifteen bytes"}});
}

TEST(PropertyListBinary, KeepsDataOfEverySizeTwiceOrOnce) {
  for (const std::size_t size : {0U, 1U, 14U, 15U, 255U, 256U, 4095U, 4096U, 70000U}) {
    const std::vector<std::byte> bytes(size, std::byte{7});
    const auto data = PropertyList::data(bytes);
    const PropertyList list(PropertyList::Array{data, "between", data});
    for (const PropertyList& value : {list, data}) {
      const std::string document = binary(value);
      const auto parsed = parse(std::as_bytes(std::span(document)));
      ASSERT_TRUE(parsed.ok()) << size;
      EXPECT_EQ(*parsed, value) << size;
    }
  }
}

TEST(PropertyListBinary, ReadsEveryTypeAsOthersWriteThem) {
  EXPECT_EQ(read({bytes({0x09})}).boolean(), true);
  EXPECT_EQ(read({bytes({0x08})}).boolean(), false);
  EXPECT_EQ(read({bytes({0x10, 0xFF})}).integer(), 255);
  EXPECT_EQ(read({bytes({0x11, 0xFF, 0xFF})}).integer(), 65535);
  EXPECT_EQ(read({bytes({0x12, 0xFF, 0xFF, 0xFF, 0xFF})}).integer(), 4294967295);
  EXPECT_EQ(read({bytes({0x13, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFE})}).integer(), -2);
  EXPECT_EQ(read({bytes({0x22, 0x3F, 0xC0, 0, 0})}).real(), 1.5);
  EXPECT_EQ(read({bytes({0x23, 0x3F, 0xF8, 0, 0, 0, 0, 0, 0})}).real(), 1.5);
  EXPECT_EQ(read({bytes({0x33, 0x3F, 0xF8, 0, 0, 0, 0, 0, 0})}).secondsSince2001(), 1.5);
  EXPECT_EQ(read({bytes({0x42, 1, 2})}).bytes().size(), 2U);
  EXPECT_EQ(read({"\x52"
                  "ab"})
                .text(),
            "ab");
  EXPECT_EQ(read({bytes({0x62, 0x20, 0xAC, 0, 'x'})}).text(), "\xE2\x82\xACx");
  EXPECT_EQ(read({bytes({0x62, 0xD8, 0x3D, 0xDE, 0x00})}).text(), "\xF0\x9F\x98\x80");
  EXPECT_EQ(read({bytes({0xA2, 1, 1}), bytes({0x09})}).count(), 2U);
  EXPECT_EQ(read({bytes({0xD1, 1, 2}), "\x51k", bytes({0x09})})["k"].boolean(), true);
}

TEST(PropertyListBinary, ReadsSixteenByteIntegersOfSixtyFourBits) {
  EXPECT_EQ(read({bytes({0x14}) + number(0, 8) + std::string(8, '\xFF')}).unsignedInteger(),
            std::numeric_limits<std::uint64_t>::max());
  EXPECT_TRUE(isRefused({bytes({0x14}) + number(1, 8) + number(0, 8)}));
}

TEST(PropertyListBinary, RefusesObjectsThatNoPropertyListHolds) {
  for (const unsigned marker : {0x00U, 0x01U, 0x0FU, 0x80U, 0xB0U, 0xC0U, 0x70U, 0x90U, 0xE0U, 0xF0U}) {
    EXPECT_TRUE(isRefused({bytes({marker, 0})})) << marker;
  }
  for (const unsigned marker : {0x15U, 0x1FU, 0x20U, 0x21U, 0x24U, 0x30U, 0x32U}) {
    EXPECT_TRUE(isRefused({bytes({marker}) + std::string(64, '\0')})) << marker;
  }
  EXPECT_TRUE(isRefused({bytes({0x33, 0x7F, 0xF0, 0, 0, 0, 0, 0, 0})}));
  EXPECT_TRUE(isRefused({bytes({0x33, 0x7F, 0xF8, 0, 0, 0, 0, 0, 0})}));
}

TEST(PropertyListBinary, RefusesTextInAnotherEncoding) {
  EXPECT_TRUE(isRefused({bytes({0x51, 0xE9})}));
  EXPECT_TRUE(isRefused({bytes({0x61, 0xD8, 0x00})}));
  EXPECT_TRUE(isRefused({bytes({0x61, 0xDC, 0x00})}));
  EXPECT_TRUE(isRefused({bytes({0x62, 0xD8, 0x00, 0x00, 0x41})}));
}

TEST(PropertyListBinary, RefusesKeysThatAreNoText) {
  EXPECT_TRUE(isRefused({bytes({0xD1, 1, 1}), bytes({0x09})}));
  EXPECT_TRUE(isRefused({bytes({0xD1, 1, 1}), bytes({0xA0})}));
}

TEST(PropertyListBinary, RefusesContainersThatHoldThemselves) {
  EXPECT_TRUE(isRefused({bytes({0xA1, 0})}));
  EXPECT_TRUE(isRefused({bytes({0xA1, 1}), bytes({0xA1, 0})}));
  EXPECT_TRUE(isRefused({bytes({0xD1, 1, 0}), "\x51k"}));
}

TEST(PropertyListBinary, RefusesReferencesToNoObject) {
  EXPECT_TRUE(isRefused({bytes({0xA1, 1})}));
  EXPECT_TRUE(isRefused({bytes({0xA1, 0xFF})}));
}

TEST(PropertyListBinary, RefusesLengthsBeyondTheDocument) {
  for (const unsigned kind : {0x4FU, 0x5FU, 0x6FU, 0xAFU, 0xDFU}) {
    EXPECT_TRUE(isRefused({bytes({kind, 0x13}) + std::string(8, '\xFF')}));
    EXPECT_TRUE(isRefused({bytes({kind, 0x13}) + number(std::uint64_t{1} << 63, 8)}));
    EXPECT_TRUE(isRefused({bytes({kind, 0x12}) + number(0x7FFFFFFF, 4)}));
    EXPECT_TRUE(isRefused({bytes({kind, 0x10, 200})}));
    EXPECT_TRUE(isRefused({bytes({kind, 0x14}) + std::string(16, '\0')}));
    EXPECT_TRUE(isRefused({bytes({kind, 0x51, 1})}));
    EXPECT_TRUE(isRefused({bytes({kind})}));
    EXPECT_TRUE(isRefused({bytes({kind - 1, 0})}));
  }
}

TEST(PropertyListBinary, RefusesBadTrailers) {
  const std::string good = Document{{bytes({0x09})}}.text();
  ASSERT_TRUE(parse(good).ok());
  const std::size_t trailer = good.size() - 32;
  const auto with = [&](std::size_t at, const std::string& replacement) {
    std::string changed = good;
    changed.replace(trailer + at, replacement.size(), replacement);
    return changed;
  };
  for (const unsigned size : {0U, 9U, 255U}) {
    EXPECT_TRUE(isRefused(with(6, bytes({size}))));
    EXPECT_TRUE(isRefused(with(7, bytes({size}))));
  }
  for (const std::uint64_t count : {std::uint64_t{0}, std::uint64_t{2}, std::uint64_t{1} << 61, ~std::uint64_t{0}}) {
    EXPECT_TRUE(isRefused(with(8, number(count, 8)))) << count;
  }
  for (const std::uint64_t top : {std::uint64_t{1}, ~std::uint64_t{0}})
    EXPECT_TRUE(isRefused(with(16, number(top, 8))));
  for (const std::uint64_t table : {std::uint64_t{0}, std::uint64_t{7}, std::uint64_t{8}, ~std::uint64_t{0}}) {
    EXPECT_TRUE(isRefused(with(24, number(table, 8)))) << table;
  }
}

TEST(PropertyListBinary, RefusesOffsetsOutsideOfTheObjects) {
  std::string text = Document{{bytes({0x09})}}.text();
  const std::size_t entry = text.size() - 32 - 4;
  for (const std::uint64_t offset : {0ULL, 7ULL, 9ULL, 0xFFFFFFFFULL}) {
    text.replace(entry, 4, number(offset, 4));
    EXPECT_TRUE(isRefused(text)) << offset;
  }
}

/// Containers each of which holds the next one `width` times; the last holds a boolean.
std::vector<std::string> chain(std::size_t levels, std::size_t width) {
  std::vector<std::string> objects;
  for (std::size_t i = 1; i <= levels; ++i) {
    std::string object = number(0xA0 + width, 1);
    for (std::size_t j = 0; j < width; ++j) object += number(i, 2);
    objects.push_back(object);
  }
  objects.push_back(bytes({0x09}));
  return objects;
}

TEST(PropertyListBinary, ReadsNestingUpToTheLimitOnly) {
  const auto limit = static_cast<std::size_t>(foundation::plist::kMaximumNesting);
  EXPECT_TRUE(parse(Document{chain(limit, 1), 4, 2}.text()).ok());
  EXPECT_TRUE(isRefused(Document{chain(limit + 1, 1), 4, 2}.text()));
  EXPECT_TRUE(isRefused(Document{chain(60000, 1), 4, 2}.text()));
}

TEST(PropertyListBinary, CountsTheLevelsOfObjectsThatWereMetBefore) {
  // The top first reads the chain from its middle, and only then comes to it by the longer way.
  auto objects = chain(600, 1);
  objects.front() = bytes({0xA2}) + number(300, 2) + number(1, 2);
  EXPECT_TRUE(isRefused(Document{objects, 4, 2}.text()));
}

TEST(PropertyListBinary, RefusesSharingThatGrowsWithoutBound) {
  EXPECT_TRUE(isRefused(Document{chain(40, 2), 4, 2}.text()));
  EXPECT_TRUE(isRefused(Document{chain(400, 15 - 1), 4, 2}.text()));
  EXPECT_TRUE(parse(Document{chain(10, 2), 4, 2}.text()).ok());
}

TEST(PropertyListBinary, RefusesObjectsThatOverlapToComeToTooMuch) {
  // Every offset leads to the same long array, so that reading each of them would take the square of the length.
  constexpr std::size_t kCount = 20000;
  std::string array = bytes({0xAF, 0x12}) + number(kCount, 4);
  for (std::size_t i = 0; i < kCount; ++i) array += number(1, 3);
  std::string outer = bytes({0xAF, 0x12}) + number(kCount, 4);
  for (std::size_t i = 0; i < kCount; ++i) outer += number(i + 2, 3);
  std::string text = "bplist00" + outer + array + "\x09";
  const std::size_t arrayAt = 8 + outer.size();
  const std::size_t table = text.size();
  text += number(8, 4) + number(table - 1, 4);
  for (std::size_t i = 0; i < kCount; ++i) text += number(arrayAt, 4);
  text += std::string(6, '\0') + bytes({4, 3}) + number(kCount + 2, 8) + number(0, 8) + number(table, 8);
  EXPECT_TRUE(isRefused(text));
}

TEST(PropertyListBinary, SharedObjectsAreReadOnceAndEqual) {
  const auto list = read({bytes({0xA2, 1, 1}), bytes({0xA1, 2}),
                          "\x53"
                          "abc"});
  EXPECT_EQ(list.at(0), list.at(1));
  EXPECT_EQ(list.at(1).at(0).text(), "abc");
}

TEST(PropertyListBinary, WritesTheShortestForm) {
  EXPECT_EQ(binary(true), Document({{bytes({0x09})}, 1, 1}).text());
  EXPECT_EQ(binary(255), Document({{bytes({0x10, 0xFF})}, 1, 1}).text());
  EXPECT_EQ(binary(256), Document({{bytes({0x11, 1, 0})}, 1, 1}).text());
  EXPECT_EQ(binary(-1), Document({{bytes({0x13}) + std::string(8, '\xFF')}, 1, 1}).text());
  EXPECT_EQ(binary("ab"), Document({{"\x52"
                                     "ab"},
                                    1,
                                    1})
                              .text());
}

TEST(PropertyListBinary, WritesEqualValuesOnce) {
  PropertyList::Array texts(10, PropertyList("repeated"));
  EXPECT_EQ(binary(PropertyList(texts)),
            Document({{bytes({0xAA}) + std::string(10, '\1'), "\x58repeated"}, 1, 1}).text());
}

TEST(PropertyListBinary, KeepsTypesApartThatCompareEqual) {
  const auto list = parse(binary(PropertyList(PropertyList::Array{1, true, 1.0, "1"})));
  ASSERT_TRUE(list.ok());
  EXPECT_EQ(list->at(0).type(), PropertyList::Type::Integer);
  EXPECT_EQ(list->at(1).type(), PropertyList::Type::Boolean);
  EXPECT_EQ(list->at(2).type(), PropertyList::Type::Real);
  EXPECT_EQ(list->at(3).type(), PropertyList::Type::String);
}

TEST(PropertyListBinary, ReadsBackWhatItWrites) {
  const auto list = sample()
                        .with("min", std::numeric_limits<std::int64_t>::min())
                        .with("max", std::numeric_limits<std::uint64_t>::max())
                        .with("control", std::string("\0\x01\r", 3))
                        .with("nan", std::nan(""))
                        .with("", PropertyList::dictionary());
  const auto again = parse(binary(list));
  ASSERT_TRUE(again.ok()) << again.error().text;
  EXPECT_EQ(*again, list);
}

TEST(PropertyListBinary, ReadsBackManyObjects) {
  PropertyList::Array elements;
  for (int i = 0; i < 70000; ++i) elements.push_back(PropertyList::dictionary({{"number", i}, {"same", "text"}}));
  const PropertyList list(std::move(elements));
  const auto again = parse(binary(list));
  ASSERT_TRUE(again.ok());
  EXPECT_EQ(*again, list);
}

TEST(PropertyListBinary, RefusesToWriteWhatItCannotCarry) {
  PropertyList deep(1);
  for (int i = 0; i <= foundation::plist::kMaximumNesting; ++i) deep = PropertyList(PropertyList::Array{deep});
  for (const PropertyList& list : {PropertyList(), PropertyList(PropertyList::Array{PropertyList()}),
                                   PropertyList("\xFF"), PropertyList::dictionary({{"\xFF", 1}}), deep}) {
    const auto result = serialize(list, Format::Binary);
    ASSERT_FALSE(result.ok());
    EXPECT_EQ(result.error().code, kWriteUnknown);
  }
}

TEST(PropertyListBinary, EveryTruncationIsAnError) {
  const std::string whole = binary(sample());
  for (std::size_t length = 0; length < whole.size(); ++length) EXPECT_TRUE(isRefused(whole.substr(0, length)));
}

TEST(PropertyListBinary, SurvivesEveryFlippedBit) {
  const std::string whole = binary(sample());
  std::size_t taken = 0;
  for (std::size_t bit = 0; bit < whole.size() * 8; ++bit) {
    std::string changed = whole;
    changed[bit / 8] = static_cast<char>(static_cast<unsigned char>(changed[bit / 8]) ^ (1U << (bit % 8)));
    const auto list = parse(changed);
    if (!list.ok()) continue;
    ++taken;
    EXPECT_EQ(*parse(binary(*list)), *list);
  }
  EXPECT_GT(taken, 0U);
}

}  // namespace
