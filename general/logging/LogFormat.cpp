#include "general/logging/LogFormat.h"

#include <array>
#include <cstdint>
#include <cstdio>

#include "general/foundation/Hexadecimal.h"
#include "general/foundation/Unicode.h"

namespace logging {

namespace {

constexpr std::array<std::string_view, 12> kMonths{"Jan", "Feb", "Mar", "Apr", "May", "Jun",
                                                   "Jul", "Aug", "Sep", "Oct", "Nov", "Dec"};
// The facility of programs that are no system service, shifted to its place in a priority.
constexpr int kUserFacility = 1 << 3;
constexpr unsigned char kDelete = 0x7f;
constexpr unsigned char kFirstNonAscii = 0x80;
constexpr char32_t kFirstHarmlessBeyondAscii = 0xa0;
constexpr std::size_t kLengthBytes = 8;

unsigned char byteAt(std::string_view text, std::size_t index) { return static_cast<unsigned char>(text[index]); }

/// The length of the character beyond ASCII that starts the text; 0 when it is no UTF-8 or one of the control
/// characters U+0080 to U+009F, which terminals obey too.
std::size_t harmlessCharacterLength(std::string_view text) {
  const auto character = foundation::unicode::firstCodePoint(text);
  return character && character->codePoint >= kFirstHarmlessBeyondAscii ? character->length : 0;
}

void appendPrintable(std::string& line, std::string_view text) {
  for (std::size_t i = 0; i < text.size();) {
    const unsigned char byte = byteAt(text, i);
    const bool plain = byte == '\t' || (byte >= ' ' && byte < kDelete);
    const std::size_t length = byte < kFirstNonAscii ? 0 : harmlessCharacterLength(text.substr(i));
    if (plain || length > 0) {
      const std::size_t taken = plain ? 1 : length;
      line += text.substr(i, taken);
      i += taken;
    } else {
      line.append("\\x").append(foundation::hexadecimal::lowerCaseByte(std::byte{byte}));
      ++i;
    }
  }
}

std::string timestamp(const std::tm& time) {
  std::array<char, 32> text{};
  const auto month = static_cast<std::size_t>(time.tm_mon >= 0 && time.tm_mon < 12 ? time.tm_mon : 0);
  const int length = std::snprintf(text.data(), text.size(), "%.3s %2d %02d:%02d:%02d", kMonths.at(month).data(),
                                   time.tm_mday, time.tm_hour, time.tm_min, time.tm_sec);
  return {text.data(), length > 0 ? static_cast<std::size_t>(length) : 0};
}

void appendSenderAndProcess(std::string& line, const LogMessage& message, const LogOrigin& origin) {
  appendPrintable(line, message.value(kSenderKey));
  line += '[';
  line += std::to_string(origin.processIdentifier);
  line += ']';
}

std::string journalName(std::string_view key) {
  std::string name(key);
  for (char& letter : name) {
    if (letter >= 'a' && letter <= 'z') {
      letter = static_cast<char>(letter - 'a' + 'A');
    }
  }
  return name;
}

/// A value of several lines is preceded by its length, as eight bytes of which the lowest comes first.
void appendField(std::string& datagram, std::string_view name, std::string_view value) {
  datagram += name;
  if (value.find('\n') == std::string_view::npos) {
    datagram += '=';
  } else {
    datagram += '\n';
    for (std::size_t i = 0; i < kLengthBytes; ++i) {
      datagram += static_cast<char>((std::uint64_t{value.size()} >> (8 * i)) & 0xffU);
    }
  }
  datagram += value;
  datagram += '\n';
}

}  // namespace

std::string printable(std::string_view text) {
  std::string line;
  appendPrintable(line, text);
  return line;
}

std::string standardErrorLine(const LogMessage& message, const LogOrigin& origin) {
  std::string line = timestamp(origin.time);
  line += ' ';
  appendPrintable(line, origin.host);
  line += ' ';
  appendSenderAndProcess(line, message, origin);
  line += " <";
  line += levelName(message.level());
  line += ">: ";
  std::string_view rest = message.value(kMessageKey);
  if (rest.ends_with('\n')) {
    rest.remove_suffix(1);
  }
  for (std::size_t end = rest.find('\n'); end != std::string_view::npos; end = rest.find('\n')) {
    appendPrintable(line, rest.substr(0, end));
    line += "\n\t";
    rest.remove_prefix(end + 1);
  }
  appendPrintable(line, rest);
  line += '\n';
  return line;
}

std::string syslogDatagram(const LogMessage& message, const LogOrigin& origin) {
  std::string datagram = "<" + std::to_string(kUserFacility | static_cast<int>(message.level())) + ">";
  datagram += timestamp(origin.time);
  datagram += ' ';
  appendSenderAndProcess(datagram, message, origin);
  datagram += ": ";
  appendPrintable(datagram, message.value(kMessageKey));
  return datagram;
}

std::string journalDatagram(const LogMessage& message, const LogOrigin& origin) {
  std::string datagram;
  appendField(datagram, "PRIORITY", std::to_string(static_cast<int>(message.level())));
  appendField(datagram, "SYSLOG_IDENTIFIER", message.value(kSenderKey));
  appendField(datagram, "SYSLOG_PID", std::to_string(origin.processIdentifier));
  for (const auto& [key, value] : message.entries()) {
    appendField(datagram, journalName(key), value);
  }
  return datagram;
}

}  // namespace logging
