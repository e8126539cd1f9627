#include <gtest/gtest.h>

#include <cstdint>

#include "general/foundation/extensions/NSXMLNodeExtensions.h"

using namespace foundation;

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
