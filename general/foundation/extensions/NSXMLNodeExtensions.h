#pragma once

#include <memory>
#include <string>
#include <string_view>

#include "general/foundation/propertylist/PropertyList.h"

namespace foundation {

/// A piece of XML made in memory: an element or an attribute. A value; copies do not share later changes.
/// Names are trusted text of this program and are printed as they are; values are escaped.
class XMLNode {
 public:
  enum class Kind { Element, Attribute };

  XMLNode(const XMLNode& other);
  XMLNode(XMLNode&& other) noexcept;
  XMLNode& operator=(const XMLNode& other);
  XMLNode& operator=(XMLNode&& other) noexcept;
  ~XMLNode();

  [[nodiscard]] static XMLNode attribute(std::string_view name, std::string_view value);

  [[nodiscard]] Kind kind() const;
  [[nodiscard]] std::string name() const;
  /// An attribute's value or an element's own text; empty when there is none.
  [[nodiscard]] std::string stringValue() const;
  /// The node as it prints, on one line.
  [[nodiscard]] std::string xmlString() const;

 protected:
  struct Content;
  explicit XMLNode(std::unique_ptr<Content> content);
  [[nodiscard]] Content& content() { return *content_; }
  [[nodiscard]] const Content& content() const { return *content_; }
  [[nodiscard]] static const Content& contentOf(const XMLNode& node) { return *node.content_; }

 private:
  std::unique_ptr<Content> content_;
};

/// An element, which can take children.
class XMLElement : public XMLNode {
 public:
  /// @param compactWhenEmpty prints as one self-closing tag while it has no content, else as a pair of tags.
  explicit XMLElement(std::string_view name, bool compactWhenEmpty = false);

  /// Appends a copy of the node: an element as the last child, an attribute as the last attribute.
  void addChild(const XMLNode& node);
  [[nodiscard]] std::size_t childCount() const;
};

namespace NSXMLNodeExtensions {

/// A new element that prints as a single self-closing tag when it is empty.
[[nodiscard]] XMLElement compactElementWithName(std::string_view name);
/// A new attribute whose text is the number in decimal (a boolean is 1 or 0); empty for what is no number.
[[nodiscard]] XMLNode attributeWithNameNumberValue(std::string_view name, const PropertyList& number);

}  // namespace NSXMLNodeExtensions

}  // namespace foundation
