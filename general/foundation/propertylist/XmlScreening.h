#pragma once

#include <cstddef>
#include <optional>
#include <string_view>

namespace foundation::plist {

/// Whether the character may stand in an XML document at all.
[[nodiscard]] bool isXmlCharacter(char32_t character);

/// Where a document is wrong and why.
struct XmlFault {
  std::size_t offset;
  std::string_view text;
};

/// Checks what the XML parser takes on trust: that the document is UTF-8 as it claims, holds only characters of XML and
/// only references that XML itself defines, and has a prolog that defines nothing. One fast pass over the bytes.
class XmlScreening {
 public:
  enum class Encoding { Utf8, Utf16 };

  /// @param encoding what the text was before it became the UTF-8 given here; its declaration must agree.
  XmlScreening(std::string_view document, Encoding encoding);

  [[nodiscard]] const std::optional<XmlFault>& fault() const { return fault_; }
  /// Offset of the document element, behind byte order mark, declaration and document type.
  [[nodiscard]] std::size_t contentOffset() const { return contentOffset_; }
  /// Whether comments, CDATA sections or processing instructions stand in the content.
  [[nodiscard]] bool hasInnerMarkup() const { return hasInnerMarkup_; }

 private:
  void screenProlog(Encoding encoding);
  void screenDeclaration(std::string_view declaration, Encoding encoding);
  [[nodiscard]] std::size_t endOfDocumentType(std::size_t start);
  void screenCharacters();
  [[nodiscard]] std::size_t screenOne(std::size_t at);
  void screenReferencesOutsideMarkup();
  void fail(std::size_t offset, std::string_view text);

  std::string_view document_;
  std::optional<XmlFault> fault_;
  std::size_t contentOffset_ = 0;
  bool hasInnerMarkup_ = false;
  bool hasDoubtfulReference_ = false;
};

}  // namespace foundation::plist
