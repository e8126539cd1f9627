#include <gtest/gtest.h>

#include "general/foundation/extensions/NSXMLElementExtensions.h"
#include "general/foundation/extensions/NSXMLNodeExtensions.h"

using namespace foundation;

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
