#include "general/foundation/extensions/NSXMLNodeExtensions.h"

#include <iterator>
#include <pugixml.hpp>
#include <sstream>
#include <utility>

#include "general/foundation/propertylist/TextFormat.h"

namespace foundation {

namespace {

// An attribute lives on an element of this name, for the library knows none that stands alone.
constexpr const char* kHolderName = "x";

std::string printed(const pugi::xml_node& element) {
  std::ostringstream output;
  element.print(output, "", pugi::format_raw | pugi::format_no_declaration, pugi::encoding_utf8);
  return output.str();
}

}  // namespace

struct XMLNode::Content {
  Kind kind = Kind::Element;
  pugi::xml_document document;

  [[nodiscard]] pugi::xml_node element() const { return document.first_child(); }
  [[nodiscard]] pugi::xml_attribute attribute() const { return element().first_attribute(); }
  [[nodiscard]] std::unique_ptr<Content> copy() const {
    auto other = std::make_unique<Content>();
    other->kind = kind;
    other->document.reset(document);
    return other;
  }
};

XMLNode::XMLNode(std::unique_ptr<Content> content) : content_(std::move(content)) {}
XMLNode::XMLNode(const XMLNode& other) : content_(other.content_->copy()) {}
XMLNode::XMLNode(XMLNode&& other) noexcept = default;
XMLNode& XMLNode::operator=(XMLNode&& other) noexcept = default;
XMLNode::~XMLNode() = default;

XMLNode& XMLNode::operator=(const XMLNode& other) {
  if (this != &other) {
    content_ = other.content_->copy();
  }
  return *this;
}

XMLNode XMLNode::attribute(std::string_view name, std::string_view value) {
  auto content = std::make_unique<Content>();
  content->kind = Kind::Attribute;
  pugi::xml_attribute attribute =
      content->document.append_child(kHolderName).append_attribute(std::string(name).c_str());
  attribute.set_value(std::string(value).c_str());
  return XMLNode(std::move(content));
}

XMLNode::Kind XMLNode::kind() const { return content_->kind; }

std::string XMLNode::name() const {
  return kind() == Kind::Attribute ? content_->attribute().name() : content_->element().name();
}

std::string XMLNode::stringValue() const {
  return kind() == Kind::Attribute ? content_->attribute().value() : content_->element().child_value();
}

std::string XMLNode::xmlString() const {
  std::string text = printed(content_->element());
  if (kind() == Kind::Element) {
    return text;
  }
  const std::string_view before("<x ");
  const std::string_view after("/>");
  return text.substr(before.size(), text.size() - before.size() - after.size());
}

XMLElement::XMLElement(std::string_view name, bool compactWhenEmpty) : XMLNode(std::make_unique<Content>()) {
  pugi::xml_node element = content().document.append_child(std::string(name).c_str());
  if (!compactWhenEmpty) {
    // An empty text makes the element one that has content, and so one with two tags.
    element.append_child(pugi::node_pcdata);
  }
}

void XMLElement::addChild(const XMLNode& node) {
  pugi::xml_node element = content().element();
  if (node.kind() == Kind::Attribute) {
    element.append_copy(contentOf(node).attribute());
  } else {
    element.append_copy(contentOf(node).element());
  }
}

std::size_t XMLElement::childCount() const {
  std::size_t count = 0;
  for (const pugi::xml_node child : content().element().children()) {
    count += child.type() == pugi::node_element ? 1 : 0;
  }
  return count;
}

namespace NSXMLNodeExtensions {

XMLElement compactElementWithName(std::string_view name) { return XMLElement(name, true); }

XMLNode attributeWithNameNumberValue(std::string_view name, const PropertyList& number) {
  return XMLNode::attribute(name, number.isNumber() ? description(number) : std::string());
}

}  // namespace NSXMLNodeExtensions

}  // namespace foundation
