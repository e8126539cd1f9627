#include "tests/support/CallRecord.h"

#include <fnmatch.h>

#include <charconv>
#include <cstdint>

namespace support {
namespace {

constexpr std::string_view kHexDigits = "0123456789abcdef";

std::string quoted(std::string_view text) {
  std::string result = "\"";
  for (const char character : text) {
    const auto byte = static_cast<unsigned char>(character);
    if (byte < 0x20 || byte > 0x7e || byte == '"' || byte == '\\') {
      result += "\\u00";
      result += kHexDigits[byte >> 4U];
      result += kHexDigits[byte & 0xfU];
    } else {
      result += character;
    }
  }
  return result + "\"";
}

/// Reads a line from the front, piece by piece; after the first piece that is not there nothing is there any more.
class LineReader {
 public:
  explicit LineReader(std::string_view rest) : rest_(rest) {}

  bool skip(std::string_view literal) {
    if (!rest_.starts_with(literal)) {
      return failed_ = true, false;
    }
    rest_.remove_prefix(literal.size());
    return true;
  }

  [[nodiscard]] bool nextIs(char character) const { return rest_.starts_with(character); }
  [[nodiscard]] bool failed() const { return failed_; }

  template <class Number>
  Number number() {
    Number value{};
    const auto [end, error] = std::from_chars(rest_.data(), rest_.data() + rest_.size(), value);
    failed_ = failed_ || error != std::errc{};
    rest_.remove_prefix(static_cast<std::size_t>(end - rest_.data()));
    return value;
  }

  std::string text() {
    std::string result;
    skip("\"");
    while (!failed_ && !rest_.empty() && rest_.front() != '"') {
      result += character();
    }
    skip("\"");
    return result;
  }

 private:
  char character() {
    if (rest_.front() != '\\') {
      const char plain = rest_.front();
      rest_.remove_prefix(1);
      return plain;
    }
    unsigned byte = 0;
    if (!skip("\\u00") || rest_.size() < 2) {
      return failed_ = true, '\0';
    }
    const auto [end, error] = std::from_chars(rest_.data(), rest_.data() + 2, byte, 16);
    failed_ = failed_ || error != std::errc{} || end != rest_.data() + 2;
    rest_.remove_prefix(2);
    return static_cast<char>(byte);
  }

  std::string_view rest_;
  bool failed_ = false;
};

}  // namespace

std::string RecordedCall::line() const {
  std::string result = R"({"path":)" + quoted(path) + R"(,"uid":)" + std::to_string(realUser) + R"(,"euid":)" +
                       std::to_string(effectiveUser) + R"(,"cwd":)" + quoted(currentDirectory) + R"(,"argv":[)";
  for (std::size_t index = 0; index < arguments.size(); ++index) {
    result.append(index == 0 ? "" : ",").append(quoted(arguments[index]));
  }
  return result + "]}\n";
}

std::optional<RecordedCall> RecordedCall::fromLine(std::string_view line) {
  LineReader reader(line);
  RecordedCall call;
  reader.skip(R"({"path":)");
  call.path = reader.text();
  reader.skip(R"(,"uid":)");
  call.realUser = reader.number<uid_t>();
  reader.skip(R"(,"euid":)");
  call.effectiveUser = reader.number<uid_t>();
  reader.skip(R"(,"cwd":)");
  call.currentDirectory = reader.text();
  reader.skip(R"(,"argv":[)");
  while (!reader.failed() && reader.nextIs('"')) {
    call.arguments.push_back(reader.text());
    if (reader.nextIs(',')) {
      reader.skip(",");
    }
  }
  reader.skip("]}\n");
  return reader.failed() ? std::nullopt : std::optional(std::move(call));
}

std::string CommandRule::line() const {
  return R"({"pattern":)" + quoted(pattern) + R"(,"exit":)" + std::to_string(exitCode) + R"(,"stderr":)" +
         quoted(standardError) + R"(,"stderrBytes":)" + std::to_string(standardErrorBytes) + R"(,"stdoutBytes":)" +
         std::to_string(standardOutputBytes) + "}\n";
}

std::optional<CommandRule> CommandRule::fromLine(std::string_view line) {
  LineReader reader(line);
  CommandRule rule;
  reader.skip(R"({"pattern":)");
  rule.pattern = reader.text();
  reader.skip(R"(,"exit":)");
  rule.exitCode = reader.number<int>();
  reader.skip(R"(,"stderr":)");
  rule.standardError = reader.text();
  reader.skip(R"(,"stderrBytes":)");
  rule.standardErrorBytes = reader.number<std::size_t>();
  reader.skip(R"(,"stdoutBytes":)");
  rule.standardOutputBytes = reader.number<std::size_t>();
  reader.skip("}\n");
  return reader.failed() ? std::nullopt : std::optional(std::move(rule));
}

bool CommandRule::matches(const RecordedCall& call) const {
  std::string whole = call.path;
  for (std::size_t index = 1; index < call.arguments.size(); ++index) {
    whole += " " + call.arguments[index];
  }
  return fnmatch(pattern.c_str(), whole.c_str(), 0) == 0;
}

}  // namespace support
