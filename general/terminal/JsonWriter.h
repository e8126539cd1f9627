#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace terminal {

/// Writes one JSON document from front to back, indented for people or on one line. Whoever uses it balances what it
/// begins and ends. Text is escaped, and bytes that are no UTF-8 become the replacement character: the document always
/// parses.
class JsonWriter {
 public:
  enum class Layout { Indented, OneLine };
  explicit JsonWriter(Layout layout = Layout::Indented) : layout_(layout) {}

  void beginObject();
  void endObject();
  void beginArray();
  void endArray();
  /// The name of the next value, inside an object.
  void key(std::string_view name);
  void string(std::string_view text);
  void number(std::uint64_t value);
  void boolean(bool value);
  void null();

  // A member of an object in one call; what is not there is null.
  void member(std::string_view name, const std::string& text);
  void member(std::string_view name, const std::optional<std::string>& text);
  void member(std::string_view name, const std::optional<std::uint64_t>& value);
  void member(std::string_view name, const std::optional<bool>& value);
  void member(std::string_view name, const std::vector<std::string>& texts);

  [[nodiscard]] const std::string& text() const { return text_; }

 private:
  void beginValue();
  void begin(char bracket);
  void end(char bracket);
  void separate();
  void newLine();
  void appendEscaped(std::string_view text);

  Layout layout_;
  std::string text_;
  std::vector<bool> hasElements_;  // of each object or array that is open
  bool followsKey_ = false;
};

}  // namespace terminal
