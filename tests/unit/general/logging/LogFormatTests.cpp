#include <gtest/gtest.h>

#include <cstdint>
#include <map>
#include <string>

#include "general/logging/LogFormat.h"

namespace {

using logging::Level;
using logging::LogMessage;
using logging::LogOrigin;

LogOrigin someOrigin() {
  std::tm time{};
  time.tm_mon = 10;
  time.tm_mday = 5;
  time.tm_hour = 3;
  time.tm_min = 4;
  time.tm_sec = 59;
  return {time, "box", 42};
}

LogMessage someMessage(std::string_view text, Level level = Level::Notice) {
  LogMessage message;
  message.set(logging::kSenderKey, "Corvane Installer");
  message.set(logging::kFacilityKey, "install");
  message.setLevel(level);
  message.set(logging::kMessageKey, text);
  return message;
}

std::string lineFor(std::string_view text) { return logging::standardErrorLine(someMessage(text), someOrigin()); }

const std::string kPrefix = "Nov  5 03:04:59 box Corvane Installer[42] <Notice>: ";

TEST(StandardErrorLine, HoldsTimeHostSenderProcessLevelAndMessage) { EXPECT_EQ(lineFor("hello"), kPrefix + "hello\n"); }

TEST(StandardErrorLine, IndentsFurtherLinesByATab) {
  EXPECT_EQ(lineFor("one\ntwo\n\nfour"), kPrefix + "one\n\ttwo\n\t\n\tfour\n");
}

TEST(StandardErrorLine, StartsNoFurtherLineForANewlineAtTheEnd) { EXPECT_EQ(lineFor("one\n"), kPrefix + "one\n"); }

TEST(StandardErrorLine, HoldsAnEmptyMessage) { EXPECT_EQ(lineFor(""), kPrefix + "\n"); }

TEST(StandardErrorLine, KeepsTabsOfTheMessage) { EXPECT_EQ(lineFor("a\tb"), kPrefix + "a\tb\n"); }

TEST(StandardErrorLine, EscapesWhatCouldForgeALineOrSteerATerminal) {
  EXPECT_EQ(lineFor("a\rb\x1b[2Jc\x7f"), kPrefix + "a\\x0db\\x1b[2Jc\\x7f\n");
  EXPECT_EQ(lineFor(std::string_view("a\0b", 3)), kPrefix + "a\\x00b\n");
}

TEST(StandardErrorLine, EscapesLineEndsOfTheSender) {
  LogMessage message = someMessage("text");
  message.set(logging::kSenderKey, "a\nNov  5 03:04:59 box b");
  EXPECT_EQ(logging::standardErrorLine(message, someOrigin()),
            "Nov  5 03:04:59 box a\\x0aNov  5 03:04:59 box b[42] <Notice>: text\n");
}

TEST(Printable, KeepsTextBeyondAscii) { EXPECT_EQ(logging::printable("Grüße 日本 😀"), "Grüße 日本 😀"); }

TEST(Printable, EscapesControlCharactersBeyondAscii) {
  EXPECT_EQ(logging::printable("\xc2\x9b"
                               "31m"),
            "\\xc2\\x9b31m");
  EXPECT_EQ(logging::printable("\xc2\xa0"), "\xc2\xa0");
}

TEST(Printable, EscapesBytesThatAreNoUtf8) {
  EXPECT_EQ(logging::printable("\x80"), "\\x80");                             // a continuation alone
  EXPECT_EQ(logging::printable("\xc3"), "\\xc3");                             // cut off
  EXPECT_EQ(logging::printable("\xc3("), "\\xc3(");                           // wrong continuation
  EXPECT_EQ(logging::printable("\xc0\x8a"), "\\xc0\\x8a");                    // a newline, overlong
  EXPECT_EQ(logging::printable("\xe0\x80\x8a"), "\\xe0\\x80\\x8a");           // and longer still
  EXPECT_EQ(logging::printable("\xed\xa0\x80"), "\\xed\\xa0\\x80");           // a surrogate
  EXPECT_EQ(logging::printable("\xf4\x90\x80\x80"), "\\xf4\\x90\\x80\\x80");  // beyond the last character
  EXPECT_EQ(logging::printable("\xff"), "\\xff");
}

TEST(SyslogDatagram, CarriesThePriorityOfAUsersMessage) {
  EXPECT_EQ(logging::syslogDatagram(someMessage("hello", Level::Error), someOrigin()),
            "<11>Nov  5 03:04:59 Corvane Installer[42]: hello");
}

TEST(SyslogDatagram, IsOneLine) {
  EXPECT_EQ(logging::syslogDatagram(someMessage("a\nb", Level::Debug), someOrigin()),
            "<15>Nov  5 03:04:59 Corvane Installer[42]: a\\x0ab");
}

/// Reads the fields of a journal datagram as the journal does.
std::multimap<std::string, std::string> fieldsOf(std::string_view datagram) {
  std::multimap<std::string, std::string> fields;
  while (!datagram.empty()) {
    const std::size_t nameEnd = datagram.find_first_of("=\n");
    const std::string name(datagram.substr(0, nameEnd));
    const bool counted = datagram[nameEnd] == '\n';
    datagram.remove_prefix(nameEnd + 1);
    std::size_t length = datagram.find('\n');
    if (counted) {
      length = 0;
      for (std::size_t i = 0; i < 8; ++i) {
        length |= std::size_t{static_cast<std::uint8_t>(datagram[i])} << (8 * i);
      }
      datagram.remove_prefix(8);
    }
    fields.emplace(name, datagram.substr(0, length));
    EXPECT_EQ(datagram.at(length), '\n');
    datagram.remove_prefix(length + 1);
  }
  return fields;
}

TEST(JournalDatagram, CarriesEveryKeyAsAField) {
  LogMessage message = someMessage("hello", Level::Warning);
  message.set(logging::kGroupKey, "80");
  const std::multimap<std::string, std::string> expected{
      {"PRIORITY", "4"},       {"SYSLOG_IDENTIFIER", "Corvane Installer"},
      {"SYSLOG_PID", "42"},    {"SENDER", "Corvane Installer"},
      {"FACILITY", "install"}, {"LEVEL", "Warning"},
      {"MESSAGE", "hello"},    {"GID", "80"}};
  EXPECT_EQ(fieldsOf(logging::journalDatagram(message, someOrigin())), expected);
}

TEST(JournalDatagram, PutsTheLengthBeforeAValueOfSeveralLines) {
  const std::string text = "one\nPRIORITY=0\n" + std::string(300, 'x');
  const std::string datagram = logging::journalDatagram(someMessage(text), someOrigin());
  const std::string length("\x3b\x01\0\0\0\0\0\0", 8);
  EXPECT_NE(datagram.find("MESSAGE\n" + length + text + "\n"), std::string::npos);
  const auto fields = fieldsOf(datagram);
  EXPECT_EQ(fields.find("MESSAGE")->second, text);
  EXPECT_EQ(fields.count("PRIORITY"), 1U);
}

}  // namespace
