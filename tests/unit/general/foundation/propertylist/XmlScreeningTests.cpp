#include <gtest/gtest.h>

#include <optional>
#include <string>
#include <string_view>

#include "general/foundation/propertylist/XmlScreening.h"

using foundation::plist::isXmlCharacter;
using foundation::plist::XmlScreening;
using Encoding = XmlScreening::Encoding;
using namespace std::string_literals;

namespace {

// Why and where the document is refused, as "offset: why"; empty when it is not.
std::string faultOf(std::string_view document, Encoding encoding = Encoding::Utf8) {
  const XmlScreening screening(document, encoding);
  const auto& fault = screening.fault();
  return fault ? std::to_string(fault->offset) + ": " + std::string(fault->text) : "";
}

std::size_t contentOffsetOf(std::string_view document) {
  return XmlScreening(document, Encoding::Utf8).contentOffset();
}

bool hasInnerMarkup(std::string_view document) { return XmlScreening(document, Encoding::Utf8).hasInnerMarkup(); }

}  // namespace

TEST(XmlScreening, TheContentBeginsBehindMarkDeclarationCommentsAndDocumentType) {
  EXPECT_EQ(contentOffsetOf("<plist/>"), 0U);
  EXPECT_EQ(contentOffsetOf(" \r\n\t<plist/>"), 4U);
  const std::string prolog = "\xEF\xBB\xBF<?xml version=\"1.0\"?>\n<!-- <a> -->\n<!DOCTYPE plist PUBLIC \"[>\" '[>'>\n";
  EXPECT_EQ(faultOf(prolog + "<plist/>"), "");
  EXPECT_EQ(contentOffsetOf(prolog + "<plist/>"), prolog.size());
}

TEST(XmlScreening, ADocumentNeedsAnElement) {
  EXPECT_EQ(faultOf(""), "0: no document element");
  EXPECT_EQ(faultOf("<?xml version=\"1.0\"?> "), "22: no document element");
  EXPECT_EQ(faultOf("text"), "0: not a property list");
}

TEST(XmlScreening, ADeclarationStandsAtTheStartAndNamesTheEncodingThatWasThere) {
  EXPECT_EQ(faultOf(" <?xml version=\"1.0\"?><plist/>"), "1: declaration is not at the start");
  EXPECT_EQ(faultOf("<?xml encoding=\"UTF-8\"?><plist/>"), "");
  EXPECT_EQ(faultOf("<?xml encoding='us-ascii'?><plist/>"), "");
  EXPECT_EQ(faultOf("<?xml encoding=\"ISO-8859-1\"?><plist/>"), "6: unsupported encoding");
  EXPECT_EQ(faultOf("<?xml encoding=\"UTF-16\"?><plist/>"), "6: unsupported encoding");
  EXPECT_EQ(faultOf("<?xml encoding=\"UTF-16\"?><plist/>", Encoding::Utf16), "");
  EXPECT_EQ(faultOf("<?xml encoding=\"UTF-8\"?><plist/>", Encoding::Utf16), "6: unsupported encoding");
  EXPECT_EQ(faultOf("<?xml encoding?><plist/>"), "6: bad declaration");
}

TEST(XmlScreening, ADocumentTypeDefinesNothing) {
  EXPECT_EQ(faultOf("<!DOCTYPE plist [<!ENTITY a \"b\">]><plist/>"), "16: document type with declarations of its own");
  EXPECT_EQ(faultOf("<!DOCTYPE plist"), "0: document type without an end");
}

TEST(XmlScreening, OnlyReferencesOfXmlItselfMeanSomething) {
  EXPECT_EQ(faultOf("<a>&amp;&lt;&gt;&quot;&apos;&#65;&#x10FFFF;</a>"), "");
  for (const std::string reference : {"&nbsp;", "&", "&;", "&amp", "&#;", "&#x;", "&#0;", "&#xD800;", "&#x110000;"}) {
    EXPECT_EQ(faultOf("<a>" + reference + "</a>"), "3: reference to nothing that XML defines") << reference;
  }
}

TEST(XmlScreening, AnAmpersandMeansNothingInCommentsSectionsAndInstructions) {
  EXPECT_EQ(faultOf("<a><!-- &x; --><![CDATA[&x;]]><?x &x; ?></a>"), "");
  EXPECT_EQ(faultOf("<a><!-- &x; -->&x;</a>"), "15: reference to nothing that XML defines");
}

TEST(XmlScreening, TellsOfMarkupInTheContentThatIsNoElement) {
  EXPECT_FALSE(hasInnerMarkup("<!-- before --><a>really!?</a>"));
  EXPECT_TRUE(hasInnerMarkup("<a><!-- inside --></a>"));
  EXPECT_TRUE(hasInnerMarkup("<a><![CDATA[x]]></a>"));
  EXPECT_TRUE(hasInnerMarkup("<a><?x y?></a>"));
}

TEST(XmlScreening, FindsAWrongByteWhereverItStands) {
  // Longer than what is looked at in one go, so that the byte comes to lie in every place of it.
  for (std::size_t before = 0; before < 200; ++before) {
    const std::string start = "<a>" + std::string(before, 'x');
    const std::string offset = std::to_string(start.size());
    EXPECT_EQ(faultOf(start + "\x01" + std::string(100, 'y')), offset + ": character that XML does not allow");
    EXPECT_EQ(faultOf(start + "\xFF" + std::string(100, 'y')), offset + ": text that is not UTF-8");
  }
}

TEST(XmlScreening, KnowsTheCharactersOfXml) {
  for (const char32_t character :
       {U'\t', U'\n', U'\r', U' ', U'\xD7FF', U'\xE000', U'\xFFFD', U'\x10000', U'\x10FFFF'}) {
    EXPECT_TRUE(isXmlCharacter(character)) << static_cast<std::uint32_t>(character);
  }
  for (const char32_t character : {char32_t{0}, char32_t{0x1F}, char32_t{0xD800}, char32_t{0xDFFF}, char32_t{0xFFFE},
                                   char32_t{0xFFFF}, char32_t{0x110000}}) {
    EXPECT_FALSE(isXmlCharacter(character)) << static_cast<std::uint32_t>(character);
  }
}
