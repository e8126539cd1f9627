#include <gtest/gtest.h>

#include <set>
#include <stdexcept>

#include "general/foundation/extensions/NSArrayExtensions.h"
#include "general/foundation/extensions/NSFileManagerExtensions.h"
#include "general/foundation/extensions/NSNumberExtensions.h"
#include "general/foundation/extensions/NSStringExtensions.h"
#include "general/foundation/extensions/NSXMLElementExtensions.h"
#include "general/foundation/extensions/NSXMLNodeExtensions.h"
#include "tests/unit/general/foundation/files/FileTest.h"

using namespace foundation;
using namespace std::string_literals;

TEST(NSArrayExtensions, CollectsTheValuesAtAKeyPathInOrder) {
  const PropertyList array = PropertyList::Array{
      PropertyList::dictionary({{"a", PropertyList::dictionary({{"b", 1}})}}),
      PropertyList::dictionary({{"a", PropertyList::dictionary({{"b", "two"}})}}),
  };
  const auto values = NSArrayExtensions::objectsForKeyPath(array, "a.b");
  ASSERT_EQ(values.size(), 2U);
  EXPECT_EQ(values[0], PropertyList(1));
  EXPECT_EQ(values[1], PropertyList("two"));
}

TEST(NSArrayExtensions, AKeyAskedOfAnArrayGivesTheValuesOfItsElements) {
  const PropertyList inner =
      PropertyList::Array{PropertyList::dictionary({{"b", 1}}), PropertyList::dictionary({{"b", 2}})};
  const PropertyList array = PropertyList::Array{PropertyList::dictionary({{"a", inner}})};
  const auto values = NSArrayExtensions::objectsForKeyPath(array, "a.b");
  ASSERT_EQ(values.size(), 1U);
  EXPECT_EQ(values[0], PropertyList(PropertyList::Array{1, 2}));
}

TEST(NSArrayExtensions, AMissingValueRaises) {
  const PropertyList array = PropertyList::Array{PropertyList::dictionary({{"a", 1}}), PropertyList::dictionary()};
  EXPECT_THROW(static_cast<void>(NSArrayExtensions::objectsForKeyPath(array, "a")), std::invalid_argument);
  EXPECT_THROW(static_cast<void>(NSArrayExtensions::objectsForKeyPath(array, "")), std::invalid_argument);
}

TEST(NSArrayExtensions, WhatIsNoArrayHasNoObjects) {
  EXPECT_TRUE(NSArrayExtensions::objectsForKeyPath(PropertyList(), "a").empty());
}

TEST(NSNumberExtensions, BooleansAreNumbersThatKnowTheyAreBooleans) {
  EXPECT_EQ(NSNumberExtensions::booleanTrue().boolean(), true);
  EXPECT_EQ(NSNumberExtensions::booleanFalse().boolean(), false);
}

TEST(NSNumberExtensions, TheTextsTrueYesOnAndOneAreTrueInAnyCase) {
  for (const std::string_view text : {"TRUE", "yes", "On", "1", "tRuE", "YES"}) {
    EXPECT_EQ(NSNumberExtensions::booleanForStringValue(text).boolean(), true) << text;
  }
}

TEST(NSNumberExtensions, TheTextsYAndTwoAndTheEmptyTextAreFalse) {
  for (const std::string_view text : {"y", "2", "", "true ", " 1", "NO", "11"}) {
    EXPECT_EQ(NSNumberExtensions::booleanForStringValue(text).boolean(), false) << text;
  }
}

TEST(NSNumberExtensions, NoTextAtAllIsTrue) {
  EXPECT_EQ(NSNumberExtensions::booleanForStringValue(std::nullopt).boolean(), true);
}

TEST(NSStringExtensions, IdentifiersAreCanonicalRandomAndUpperCase) {
  std::set<std::string> seen;
  for (int round = 0; round < 100; ++round) {
    const std::string text = NSStringExtensions::stringWithUUID();
    ASSERT_EQ(text.size(), 36U);
    for (std::size_t index = 0; index < text.size(); ++index) {
      const bool dash = index == 8 || index == 13 || index == 18 || index == 23;
      EXPECT_TRUE(dash ? text[index] == '-' : "0123456789ABCDEF"s.find(text[index]) != std::string::npos) << text;
    }
    EXPECT_EQ(text[14], '4');
    EXPECT_NE("89AB"s.find(text[19]), std::string::npos);
    seen.insert(text);
  }
  EXPECT_EQ(seen.size(), 100U);
}

TEST(NSStringExtensions, UnsignedLongLongValueOfTheEmptyTextIsZero) {
  EXPECT_EQ(NSStringExtensions::unsignedLongLongValue(""), 0U);
}

TEST(NSStringExtensions, UnsignedLongLongValueReadsTheFirstRunOfDigits) {
  EXPECT_EQ(NSStringExtensions::unsignedLongLongValue("42abc"), 42U);
  EXPECT_EQ(NSStringExtensions::unsignedLongLongValue("42 7"), 42U);
  EXPECT_EQ(NSStringExtensions::unsignedLongLongValue(" 7"), 7U);
  EXPECT_EQ(NSStringExtensions::unsignedLongLongValue("\t\r\n \xc2\xa0\xe2\x80\xa8"
                                                      "007"),
            7U);
  EXPECT_EQ(NSStringExtensions::unsignedLongLongValue("18446744073709551615"), 18446744073709551615U);
}

TEST(NSStringExtensions, UnsignedLongLongValueReadsNoSignNoPrefixAndNoDigitsBehindOtherText) {
  EXPECT_EQ(NSStringExtensions::unsignedLongLongValue("-5"), 0U);
  EXPECT_EQ(NSStringExtensions::unsignedLongLongValue("+5"), 0U);
  EXPECT_EQ(NSStringExtensions::unsignedLongLongValue("0x10"), 0U);
  EXPECT_EQ(NSStringExtensions::unsignedLongLongValue("a5"), 0U);
  EXPECT_EQ(NSStringExtensions::unsignedLongLongValue("\0"
                                                      "5"s),
            0U);
  EXPECT_EQ(NSStringExtensions::unsignedLongLongValue("   "), 0U);
}

TEST(NSStringExtensions, UnsignedLongLongValueBeyondTheRangeIsTheLargestNumber) {
  EXPECT_EQ(NSStringExtensions::unsignedLongLongValue("18446744073709551616"), 18446744073709551615U);
  EXPECT_EQ(NSStringExtensions::unsignedLongLongValue(std::string(1000, '9')), 18446744073709551615U);
}

TEST(NSXMLNodeExtensions, AnEmptyCompactElementPrintsAsOneTag) {
  EXPECT_EQ(NSXMLNodeExtensions::compactElementWithName("file").xmlString(), "<file/>");
  EXPECT_EQ(XMLElement("file").xmlString(), "<file></file>");
}

TEST(NSXMLNodeExtensions, AnAttributeHoldsTheNumbersText) {
  const XMLNode size = NSXMLNodeExtensions::attributeWithNameNumberValue("size", PropertyList(std::int64_t{-12}));
  EXPECT_EQ(size.kind(), XMLNode::Kind::Attribute);
  EXPECT_EQ(size.name(), "size");
  EXPECT_EQ(size.stringValue(), "-12");
  EXPECT_EQ(size.xmlString(), "size=\"-12\"");
  EXPECT_EQ(NSXMLNodeExtensions::attributeWithNameNumberValue("b", true).stringValue(), "1");
  EXPECT_EQ(NSXMLNodeExtensions::attributeWithNameNumberValue("r", 0.5).stringValue(), "0.5");
  EXPECT_EQ(NSXMLNodeExtensions::attributeWithNameNumberValue("u", ~std::uint64_t{0}).stringValue(),
            "18446744073709551615");
}

TEST(NSXMLNodeExtensions, ValuesAreEscaped) {
  EXPECT_EQ(XMLNode::attribute("a", "<\"&").xmlString(), "a=\"&lt;&quot;&amp;\"");
}

TEST(NSXMLElementExtensions, AddsChildrenInOrder) {
  XMLElement root = NSXMLNodeExtensions::compactElementWithName("root");
  const std::vector<XMLNode> children = {NSXMLNodeExtensions::compactElementWithName("b"),
                                         NSXMLNodeExtensions::attributeWithNameNumberValue("n", 3), XMLElement("a")};
  NSXMLElementExtensions::addChildren(root, children);
  EXPECT_EQ(root.xmlString(), "<root n=\"3\"><b/><a></a></root>");
  EXPECT_EQ(root.childCount(), 2U);
}

TEST(NSXMLElementExtensions, AddedNodesAreCopies) {
  XMLElement child("c", true);
  XMLElement root("root", true);
  root.addChild(child);
  child.addChild(NSXMLNodeExtensions::attributeWithNameNumberValue("n", 1));
  const XMLElement copy = root;
  root.addChild(child);
  root.addChild(root);
  EXPECT_EQ(copy.xmlString(), "<root><c/></root>");
  EXPECT_EQ(root.xmlString(), "<root><c/><c n=\"1\"/><root><c/><c n=\"1\"/></root></root>");
}

TEST(NSFileManagerExtensions, AnErrorWithoutAPathHasThreeFactsAndWithAPathFour) {
  const Error without = NSFileManagerExtensions::errorWithMessage("broken", std::nullopt, 12);
  EXPECT_EQ(without.domain, "NSFileManager+Extensions");
  EXPECT_EQ(without.code, 12);
  EXPECT_EQ(without.userInfo(), (std::map<std::string, std::string, std::less<>>{{"NSLocalizedDescription", "broken"},
                                                                                 {"NSLocalizedFailureReason", "broken"},
                                                                                 {"NSUnderlyingError", "broken"}}));
  const Error with = NSFileManagerExtensions::errorWithMessage("broken", "/a", 12);
  EXPECT_EQ(with.userInfo().size(), 4U);
  EXPECT_EQ(with.userInfo().at("NSFilePath"), "/a");
}

using FileManagerExtensions = tests::FileTest;

TEST_F(FileManagerExtensions, CreatesADirectoryWithAllItsParents) {
  const FileAttributes attributes{.owner = 501, .group = 80, .permissions = 0750};
  ASSERT_TRUE(NSFileManagerExtensions::createDeepDirectoryAtPath(path("a/b"), attributes));
  EXPECT_TRUE(NSFileManagerExtensions::createDeepDirectoryAtPath(path("a/b"), attributes));
  EXPECT_EQ(modeOf(path("a")), 0750U);
  expectOwner(path("a/b"), 501, 80);
}

TEST_F(FileManagerExtensions, CopyingOntoAnExistingFileReplacesItAndGivesItTheSourcesAttributes) {
  const tests::Umask umask(0077);
  box_.write("source", "new");
  box_.write("destination", "old and longer");
  ASSERT_TRUE(files::setAttributes(
      {.owner = 501, .group = 80, .permissions = 04751, .modificationNanoseconds = 1'234'567'890'123'456'789},
      path("source")));
  ASSERT_TRUE(NSFileManagerExtensions::copyAndOverwriteItemAtPath(path("source"), path("destination")));
  EXPECT_EQ(files::readText(path("destination")).value(), "new");
  EXPECT_EQ(modeOf(path("destination")), 04751U);
  expectOwner(path("destination"), 501, 80);
  EXPECT_EQ(files::attributesOfItem(path("destination"))->modificationNanoseconds, 1'234'567'890'123'456'789);
  EXPECT_EQ(files::readText(path("source")).value(), "new");
}

TEST_F(FileManagerExtensions, ALinkAsSourceIsFollowedForItsContent) {
  box_.write("target", "content");
  ASSERT_EQ(chmod(path("target").c_str(), 04750), 0);
  ASSERT_EQ(symlink("target", path("link").c_str()), 0);
  ASSERT_EQ(lchown(path("link").c_str(), 501, 20), 0);
  ASSERT_TRUE(NSFileManagerExtensions::copyAndOverwriteItemAtPath(path("link"), path("copy")));
  EXPECT_EQ(files::attributesOfItem(path("copy"))->type, FileType::Regular);
  EXPECT_EQ(files::readText(path("copy")).value(), "content");
  EXPECT_EQ(modeOf(path("copy")), 0750U);
  expectOwner(path("copy"), 501, 20);
}

TEST_F(FileManagerExtensions, WhatIsNoRegularFileIsNotCopied) {
  box_.makeDirectory("folder");
  ASSERT_EQ(mkfifo(path("fifo").c_str(), 0600), 0);
  ASSERT_EQ(symlink("loop", path("loop").c_str()), 0);
  for (const char* name : {"folder", "fifo", "loop"}) {
    EXPECT_EQ(NSFileManagerExtensions::copyAndOverwriteItemAtPath(path(name), path("copy")).error().code, 256) << name;
  }
  EXPECT_EQ(NSFileManagerExtensions::copyAndOverwriteItemAtPath(path("missing"), path("copy")).error().code, 260);
  EXPECT_FALSE(files::exists(path("copy")));
}

TEST_F(FileManagerExtensions, CopyingNeedsTheDestinationsParent) {
  box_.write("source", "x");
  EXPECT_EQ(NSFileManagerExtensions::copyAndOverwriteItemAtPath(path("source"), path("no/copy")).error().code, 4);
  box_.makeDirectory("folder");
  EXPECT_EQ(NSFileManagerExtensions::copyAndOverwriteItemAtPath(path("source"), path("folder")).error().code, 512);
}
