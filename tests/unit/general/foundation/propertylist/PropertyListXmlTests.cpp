#include <gtest/gtest.h>

#include <cmath>
#include <limits>

#include "general/foundation/propertylist/PropertyListCodecs.h"
#include "general/foundation/propertylist/PropertyListFile.h"

namespace {

using foundation::kReadCorrupt;
using foundation::kWriteUnknown;
using foundation::PropertyList;
using foundation::plist::Format;
using foundation::plist::parse;
using foundation::plist::serialize;

std::string document(std::string_view content) {
  return "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n"
         "<!DOCTYPE plist PUBLIC \"-//Apple//DTD PLIST 1.0//EN\" "
         "\"http://www.apple.com/DTDs/PropertyList-1.0.dtd\">\n<plist version=\"1.0\">" +
         std::string(content) + "</plist>\n";
}

PropertyList value(std::string_view content) {
  const auto result = parse(document(content));
  EXPECT_TRUE(result.ok()) << content << ": " << result.error().text;
  return result.ok() ? *result : PropertyList();
}

/// The text of the error; empty, which no test expects, when the document was taken.
std::string faultOf(std::string_view whole) {
  const auto result = parse(whole);
  if (result.ok()) return "";
  EXPECT_EQ(result.error().code, kReadCorrupt);
  EXPECT_EQ(result.error().domain, foundation::kFileErrorDomain);
  return result.error().text;
}

bool isRefused(std::string_view content) { return !faultOf(document(content)).empty(); }

std::string xml(const PropertyList& list) {
  const auto result = serialize(list, Format::Xml);
  EXPECT_TRUE(result.ok());
  return result.ok() ? *result : "";
}

std::string nested(std::size_t levels) {
  std::string text;
  for (std::size_t i = 0; i < levels; ++i) text += "<array>";
  for (std::size_t i = 0; i < levels; ++i) text += "</array>";
  return text;
}

TEST(PropertyListXml, ReadsEveryType) {
  const auto list = value(
      "<dict><key>t</key><true/><key>f</key><false></false><key>i</key><integer>-42</integer>"
      "<key>r</key><real>1.5e3</real><key>s</key><string>text</string><key>d</key><data> AQ ID\n</data>"
      "<key>w</key><date>2001-01-02T00:00:01Z</date><key>a</key><array><integer>1</integer></array></dict>");
  EXPECT_EQ(list["t"].boolean(), true);
  EXPECT_EQ(list["f"].boolean(), false);
  EXPECT_EQ(list["i"].integer(), -42);
  EXPECT_EQ(list["r"].real(), 1500.0);
  EXPECT_EQ(list["s"].text(), "text");
  ASSERT_EQ(list["d"].bytes().size(), 3U);
  EXPECT_EQ(list["d"].bytes()[2], std::byte{3});
  EXPECT_EQ(list["w"].secondsSince2001(), 86401.0);
  EXPECT_EQ(list["a"].at(0).integer(), 1);
}

TEST(PropertyListXml, KeepsEveryCharacterOfAText) {
  EXPECT_EQ(value("<string>  two  blanks\n\tand lines </string>").text(), "  two  blanks\n\tand lines ");
  EXPECT_EQ(value("<string>   </string>").text(), "   ");
  EXPECT_EQ(value("<string></string>").string(), "");
  EXPECT_EQ(value("<string/>").string(), "");
}

TEST(PropertyListXml, DecodesReferences) {
  EXPECT_EQ(value("<string>&lt;&amp;&gt;&quot;&apos;&#65;&#x42;&#x1F600;</string>").text(), "<&>\"'AB\xF0\x9F\x98\x80");
  EXPECT_EQ(value("<string>&amp;lt;</string>").text(), "&lt;");
}

TEST(PropertyListXml, JoinsATextAroundCommentsAndSections) {
  EXPECT_EQ(value("<string> a <!-- gone --> <![CDATA[<&b>]]>c<?pi gone?> d </string>").text(), " a  <&b>c d ");
  EXPECT_EQ(value("<string> <!-- c -->a</string>").text(), " a");
  EXPECT_EQ(value("<dict><!-- c --><key>a<![CDATA[b]]></key> <!-- c --> <true/></dict>")["ab"].boolean(), true);
  EXPECT_EQ(value("<integer>1<!-- c -->2</integer>").integer(), 12);
}

TEST(PropertyListXml, TakesAReferenceInASectionAsText) {
  EXPECT_EQ(value("<string><![CDATA[&nothing;&]]></string>").text(), "&nothing;&");
  EXPECT_EQ(value("<!-- &nothing; --><string>x</string>").text(), "x");
}

TEST(PropertyListXml, TurnsLineEndsIntoLineFeeds) {
  EXPECT_EQ(value("<string>a\r\nb\rc&#13;</string>").text(), "a\nb\nc\r");
}

TEST(PropertyListXml, ReadsIntegersOfTheWholeRange) {
  EXPECT_EQ(value("<integer>9223372036854775807</integer>").integer(), std::numeric_limits<std::int64_t>::max());
  EXPECT_EQ(value("<integer>-9223372036854775808</integer>").integer(), std::numeric_limits<std::int64_t>::min());
  EXPECT_EQ(value("<integer>18446744073709551615</integer>").unsignedInteger(),
            std::numeric_limits<std::uint64_t>::max());
  EXPECT_EQ(value("<integer>+7</integer>").integer(), 7);
  EXPECT_EQ(value("<integer> 0x1fF </integer>").integer(), 511);
  EXPECT_EQ(value("<integer>-0x10</integer>").integer(), -16);
}

TEST(PropertyListXml, RefusesBadIntegers) {
  for (const char* text : {"", " ", "+", "-", "0x", "1x", "1 2", "--1", "+-1", "1.0", "18446744073709551616",
                           "-9223372036854775809", "0x10000000000000000"}) {
    EXPECT_TRUE(isRefused("<integer>" + std::string(text) + "</integer>")) << text;
  }
}

TEST(PropertyListXml, ReadsReals) {
  EXPECT_EQ(value("<real>-0.5</real>").real(), -0.5);
  EXPECT_EQ(value("<real>.5</real>").real(), 0.5);
  EXPECT_EQ(value("<real> 1 </real>").type(), PropertyList::Type::Real);
  EXPECT_TRUE(std::isnan(*value("<real>nan</real>").real()));
  EXPECT_EQ(value("<real>-Infinity</real>").real(), -std::numeric_limits<double>::infinity());
  EXPECT_EQ(value("<real>+inf</real>").real(), std::numeric_limits<double>::infinity());
}

TEST(PropertyListXml, RefusesBadReals) {
  for (const char* text : {"", ".", "1e", "1e+", "0x1p3", "1.5x", "nan(1)", "infinit", "1e999", "1,5"}) {
    EXPECT_TRUE(isRefused("<real>" + std::string(text) + "</real>")) << text;
  }
}

TEST(PropertyListXml, RefusesBadBase64) {
  for (const char* text : {"A", "AB", "ABC", "AB=A", "A===", "====", "AAAA=", "AA-A", "AAAAAA==AAAA"}) {
    EXPECT_TRUE(isRefused("<data>" + std::string(text) + "</data>")) << text;
  }
  EXPECT_EQ(value("<data></data>").bytes().size(), 0U);
  EXPECT_EQ(value("<data>AA==</data>").bytes().size(), 1U);
  EXPECT_EQ(value("<data>AAA=</data>").bytes().size(), 2U);
}

TEST(PropertyListXml, RefusesBadDates) {
  for (const char* text : {"", "2001-01-01", "2001-13-01T00:00:00Z", "2001-02-29T00:00:00Z", "2001-01-01T24:00:00Z",
                           "2001-01-01T00:60:00Z", "2001-01-01T00:00:60Z", "2001-01-01 00:00:00Z",
                           "2001-01-01T00:00:00", "2001-01-01T00:00:00ZZ", "20010-01-01T00:00:00Z"}) {
    EXPECT_TRUE(isRefused("<date>" + std::string(text) + "</date>")) << text;
  }
  EXPECT_EQ(value("<date>2000-02-29T00:00:00Z</date>").secondsSince2001(), -307.0 * 86400);
}

TEST(PropertyListXml, RefusesWhatIsNoPropertyList) {
  for (const char* text : {"",
                           " ",
                           "text",
                           "<",
                           "<plist",
                           "<plist>",
                           "<plist/>",
                           "<html/>",
                           "<dict/>",
                           "<plist><unknown/></plist>",
                           "<plist></plist>",
                           "<plist>text</plist>",
                           "<plist><true/>text</plist>",
                           "<plist><true/><true/></plist>",
                           "<plist><true/></plist>text",
                           "<plist><true/></plist><plist><true/></plist>",
                           "<plist><true/></plis>",
                           "<plist><true/></plist>&amp;",
                           "<plist><![CDATA[ ]]><true/></plist>",
                           "<plist><true/></plist><!DOCTYPE plist>",
                           "<plist><String>x</String></plist>",
                           "<plist><true>1</true></plist>",
                           "<plist><key>a</key></plist>"}) {
    EXPECT_NE(faultOf(text), "") << text;
  }
}

TEST(PropertyListXml, RefusesDictionariesOutOfOrder) {
  for (const char* text :
       {"<dict><key>a</key></dict>", "<dict><true/></dict>", "<dict><key>a</key><key>b</key></dict>",
        "<dict><key>a</key><true/><true/></dict>", "<dict>text</dict>", "<dict><key>a</key>text<true/></dict>",
        "<dict><key>a</key><true/>text</dict>", "<dict><key><string>a</string></key><true/></dict>",
        "<array>text</array>", "<array><true/>text</array>", "<array><key>a</key></array>", "<string>a<b/></string>"}) {
    EXPECT_TRUE(isRefused(text)) << text;
  }
}

TEST(PropertyListXml, SaysWhatIsWrongAndWhere) {
  const std::string text = "<plist>\n<array>\n<true/>\n<wrong/>\n</array></plist>";
  EXPECT_EQ(faultOf(text), "The property list is not valid: unknown element in line 4, byte 25.");
  EXPECT_EQ(faultOf("<plist>\n\n<string>&bad;</string></plist>"),
            "The property list is not valid: reference to nothing that XML defines in line 3, byte 17.");
  EXPECT_EQ(faultOf("<plist>\n\n<string></plist>").find("The property list is not valid: bad XML in line 3"), 0U);
}

TEST(PropertyListXml, TheLastOfEqualKeysCounts) {
  const auto list =
      value("<dict><key>a</key><integer>1</integer><key>b</key><true/><key>a</key><integer>2</integer></dict>");
  EXPECT_EQ(list.count(), 2U);
  EXPECT_EQ(list["a"].integer(), 2);
}

TEST(PropertyListXml, AlikeDictionariesWithOtherOrdersOfKeysAreAllSorted) {
  const auto list = value(
      "<array><dict><key>b</key><integer>1</integer><key>a</key><integer>2</integer></dict>"
      "<dict><key>b</key><integer>3</integer><key>a</key><integer>4</integer></dict>"
      "<dict><key>a</key><integer>5</integer><key>b</key><integer>6</integer></dict>"
      "<dict><key>b</key><integer>7</integer><key>b</key><integer>8</integer></dict></array>");
  EXPECT_EQ(list.at(1), PropertyList::dictionary({{"a", 4}, {"b", 3}}));
  EXPECT_EQ(list.at(2), PropertyList::dictionary({{"a", 5}, {"b", 6}}));
  EXPECT_EQ(list.at(3), PropertyList::dictionary({{"b", 8}}));
  EXPECT_EQ(list.at(1).entries()[0].key, "a");
}

TEST(PropertyListXml, ADocumentTypeCanDefineNothing) {
  const std::string plist = "<plist><string>&e;</string></plist>";
  EXPECT_NE(faultOf("<!DOCTYPE plist [<!ENTITY e \"x\">]>" + plist), "");
  EXPECT_NE(faultOf("<!DOCTYPE plist [<!ENTITY e SYSTEM \"/etc/passwd\">]>" + plist), "");
  EXPECT_NE(faultOf("<!DOCTYPE plist SYSTEM \"[\" []><plist><true/></plist>"), "");
  EXPECT_NE(faultOf("<!DOCTYPE plist SYSTEM \"x\"" + plist), "");
  EXPECT_NE(faultOf(plist), "");
  EXPECT_TRUE(parse("<!DOCTYPE plist SYSTEM \"[]>\"><plist><true/></plist>").ok());
}

TEST(PropertyListXml, RefusesReferencesToCharactersThatXmlForbids) {
  for (const char* text : {"&#0;", "&#1;", "&#xD800;", "&#x110000;", "&#xFFFF;", "&#;", "&#x;", "&;", "&amp", "&",
                           "&#99999999999;", "&#-1;", "& amp;", "&AMP;"}) {
    EXPECT_TRUE(isRefused("<string>" + std::string(text) + "</string>")) << text;
  }
}

TEST(PropertyListXml, RefusesControlCharactersAndBrokenUtf8) {
  const std::string padding(100, 'x');
  for (const std::string& text : {std::string(1, '\0'), std::string("\x01"), std::string("\x1F"), std::string("\x80"),
                                  std::string("\xC0\x80"), std::string("\xED\xA0\x80"), std::string("\xF4\x90\x80\x80"),
                                  std::string("\xE2\x82"), std::string("\xFF"), std::string("\xEF\xBF\xBF")}) {
    EXPECT_TRUE(isRefused("<string>" + text + "</string>"));
    EXPECT_TRUE(isRefused("<string>" + padding + text + padding + "</string>"));
  }
}

TEST(PropertyListXml, ReadsUtf8AcrossTheWholeRange) {
  const std::string text = "\xC3\xA9 \xE2\x82\xAC \xF0\x9F\x98\x80 " + std::string(70, 'x') + "\xC3\xA9";
  EXPECT_EQ(value("<string>" + text + "</string>").text(), text);
}

std::string utf16(std::string_view ascii, bool bigEndian, bool withMark) {
  std::string text = !withMark ? "" : bigEndian ? "\xFE\xFF" : "\xFF\xFE";
  for (const char character : ascii) {
    text += bigEndian ? std::string{'\0', character} : std::string{character, '\0'};
  }
  return text;
}

TEST(PropertyListXml, ReadsUtf16AndTheUtf8Mark) {
  const std::string text = "<?xml version=\"1.0\" encoding=\"UTF-16\"?><plist><string>text</string></plist>";
  for (const bool bigEndian : {false, true}) {
    for (const bool withMark : {false, true}) {
      const auto list = parse(utf16(text, bigEndian, withMark));
      ASSERT_TRUE(list.ok());
      EXPECT_EQ(list->text(), "text");
    }
  }
  EXPECT_NE(faultOf(utf16(text, true, true) + "x"), "");
  EXPECT_NE(faultOf(utf16(text, true, true) + "\xD8" + std::string(1, '\0')), "");
  const auto marked = parse("\xEF\xBB\xBF" + document("<true/>"));
  ASSERT_TRUE(marked.ok());
  EXPECT_EQ(marked->boolean(), true);
}

TEST(PropertyListXml, RefusesOtherEncodings) {
  EXPECT_NE(faultOf("<?xml version=\"1.0\" encoding=\"ISO-8859-1\"?><plist><true/></plist>"), "");
  EXPECT_NE(faultOf("<?xml version=\"1.0\" encoding=\"UTF-16\"?><plist><true/></plist>"), "");
  EXPECT_TRUE(parse("<?xml version='1.0' encoding='utf-8'?><plist><true/></plist>").ok());
}

TEST(PropertyListXml, ReadsNestingUpToTheLimitOnly) {
  const auto limit = static_cast<std::size_t>(foundation::plist::kMaximumNesting);
  EXPECT_TRUE(parse(document(nested(limit))).ok());
  EXPECT_TRUE(isRefused(nested(limit + 1)));
}

TEST(PropertyListXml, SurvivesAMillionLevels) {
  EXPECT_TRUE(isRefused(nested(1000000)));
  std::string unclosed = "<plist>";
  for (int i = 0; i < 1000000; ++i) unclosed += "<dict><key>a</key>";
  EXPECT_NE(faultOf(unclosed), "");
}

TEST(PropertyListXml, ReadsAMillionKeysInAnyOrder) {
  std::string text = "<dict>";
  for (int i = 1000000; i > 0; --i) text += "<key>k" + std::to_string(i) + "</key><true/>";
  text += "</dict>";
  const auto list = value(text);
  EXPECT_EQ(list.count(), 1000000U);
  EXPECT_EQ(list["k77"].boolean(), true);
}

TEST(PropertyListXml, ReadsAVeryLongTextOfReferences) {
  std::string text = "<string>";
  for (int i = 0; i < 2000000; ++i) text += "&amp;";
  text += "</string>";
  EXPECT_EQ(value(text).text().size(), 2000000U);
}

TEST(PropertyListXml, ReadsAVeryLongTextInPieces) {
  std::string text = "<string>";
  for (int i = 0; i < 200000; ++i) text += "a<!-- -->&amp;<![CDATA[&]]>";
  text += "</string>";
  EXPECT_EQ(value(text).text().size(), 600000U);
}

TEST(PropertyListXml, WritesThePlatformsForm) {
  const std::byte bytes[] = {std::byte{1}, std::byte{2}};
  const auto list = PropertyList::dictionary({{"z", PropertyList(PropertyList::Array{1, true, "a<&>b"})},
                                              {"d", PropertyList::data(bytes)},
                                              {"e", PropertyList::dictionary()},
                                              {"f", PropertyList(PropertyList::Array{})},
                                              {"r", 0.1},
                                              {"w", PropertyList::date(0)}});
  EXPECT_EQ(xml(list),
            "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n"
            "<!DOCTYPE plist PUBLIC \"-//Apple//DTD PLIST 1.0//EN\" "
            "\"http://www.apple.com/DTDs/PropertyList-1.0.dtd\">\n"
            "<plist version=\"1.0\">\n"
            "<dict>\n"
            "\t<key>d</key>\n\t<data>\n\tAQI=\n\t</data>\n"
            "\t<key>e</key>\n\t<dict/>\n"
            "\t<key>f</key>\n\t<array/>\n"
            "\t<key>r</key>\n\t<real>0.1</real>\n"
            "\t<key>w</key>\n\t<date>2001-01-01T00:00:00Z</date>\n"
            "\t<key>z</key>\n\t<array>\n\t\t<integer>1</integer>\n\t\t<true/>\n"
            "\t\t<string>a&lt;&amp;&gt;b</string>\n\t</array>\n"
            "</dict>\n"
            "</plist>\n");
}

TEST(PropertyListXml, ReadsBackWhatItWrites) {
  PropertyList::Array texts = {"", " ", "\n", "\r\n\t", "]]>", "<!-- -->", "<![CDATA[", "&amp;", "\xF0\x9F\x98\x80"};
  const auto list = PropertyList::dictionary({{" key \r", PropertyList(texts)},
                                              {"", std::numeric_limits<std::int64_t>::min()},
                                              {"u", std::numeric_limits<std::uint64_t>::max()},
                                              {"n", std::nan("")},
                                              {"i", -std::numeric_limits<double>::infinity()},
                                              {"e", 5e-324},
                                              {"m", 1.7976931348623157e308},
                                              {"d", PropertyList::data({})},
                                              {"w", PropertyList::date(-63000000000.0)}});
  const auto again = parse(xml(list));
  ASSERT_TRUE(again.ok()) << again.error().text;
  EXPECT_EQ(*again, list);
}

TEST(PropertyListXml, RefusesToWriteWhatItCannotCarry) {
  PropertyList deep(1);
  for (int i = 0; i <= foundation::plist::kMaximumNesting; ++i) deep = PropertyList(PropertyList::Array{deep});
  for (const PropertyList& list :
       {PropertyList(), PropertyList(PropertyList::Array{PropertyList()}), PropertyList("\x01"), PropertyList("\xFF"),
        PropertyList(std::string(1, '\0')), PropertyList::dictionary({{"\x02", 1}}), PropertyList::date(1e18),
        PropertyList::date(std::nan("")), deep}) {
    const auto result = serialize(list, Format::Xml);
    ASSERT_FALSE(result.ok());
    EXPECT_EQ(result.error().code, kWriteUnknown);
  }
}

TEST(PropertyListXml, EveryTruncationIsAnErrorOrAValue) {
  const std::string whole = xml(PropertyList::dictionary(
      {{"a", PropertyList(PropertyList::Array{1, "t\xC3\xA9&", PropertyList::date(0), 2.5})}, {"b", true}}));
  const auto last = whole.find("</plist>") + 8;
  for (std::size_t length = 0; length < whole.size(); ++length) {
    const bool isWhole = length >= last;
    EXPECT_EQ(parse(std::string_view(whole).substr(0, length)).ok(), isWhole) << length;
  }
}

TEST(PropertyListXml, SurvivesEveryChangedByte) {
  const std::string whole = xml(PropertyList::dictionary({{"a", PropertyList(PropertyList::Array{1, "t&"})}}));
  for (std::size_t at = 0; at < whole.size(); ++at) {
    for (const char byte : {'\0', '<', '>', '&', '"', '!', '\xFF', ' ', '/'}) {
      std::string changed = whole;
      changed[at] = byte;
      const auto list = parse(changed);
      if (list.ok()) {
        EXPECT_EQ(*parse(xml(*list)), *list);
      }
    }
  }
}

}  // namespace
