#include "general/terminal/JsonWriter.h"

#include "general/foundation/Unicode.h"
#include "general/foundation/propertylist/TextFormat.h"
#include "general/terminal/PrintableText.h"

namespace terminal {

namespace {

constexpr std::string_view kReplacementCharacter = "\xEF\xBF\xBD";

// JSON asks for controls, quote and backslash only; the others keep a terminal that shows the document from acting on
// it.
bool needsEscape(char32_t code) { return code == '"' || code == '\\' || actsOnTerminal(code); }

}  // namespace

void JsonWriter::beginObject() { begin('{'); }
void JsonWriter::endObject() { end('}'); }
void JsonWriter::beginArray() { begin('['); }
void JsonWriter::endArray() { end(']'); }

void JsonWriter::key(std::string_view name) {
  beginValue();
  appendEscaped(name);
  text_ += ": ";
  followsKey_ = true;
}

void JsonWriter::string(std::string_view text) {
  beginValue();
  appendEscaped(text);
}

void JsonWriter::number(std::uint64_t value) {
  beginValue();
  text_ += std::to_string(value);
}

void JsonWriter::boolean(bool value) {
  beginValue();
  text_ += value ? "true" : "false";
}

void JsonWriter::null() {
  beginValue();
  text_ += "null";
}

void JsonWriter::member(std::string_view name, const std::string& text) {
  key(name);
  string(text);
}

void JsonWriter::member(std::string_view name, const std::optional<std::string>& text) {
  key(name);
  text ? string(*text) : null();
}

void JsonWriter::member(std::string_view name, const std::optional<std::uint64_t>& value) {
  key(name);
  value ? number(*value) : null();
}

void JsonWriter::member(std::string_view name, const std::optional<bool>& value) {
  key(name);
  value ? boolean(*value) : null();
}

void JsonWriter::member(std::string_view name, const std::vector<std::string>& texts) {
  key(name);
  beginArray();
  for (const std::string& element : texts) {
    string(element);
  }
  endArray();
}

void JsonWriter::beginValue() {
  if (followsKey_) {
    followsKey_ = false;
    return;
  }
  if (hasElements_.empty()) {
    return;
  }
  separate();
}

void JsonWriter::begin(char bracket) {
  beginValue();
  text_ += bracket;
  hasElements_.push_back(false);
}

void JsonWriter::end(char bracket) {
  const bool hadElements = hasElements_.back();
  hasElements_.pop_back();
  if (hadElements) {
    newLine();
  }
  text_ += bracket;
  if (hasElements_.empty()) {
    text_ += '\n';
  }
}

/// Whatever stands between the elements of an object or array, and before the first.
void JsonWriter::separate() {
  const bool isFirst = !hasElements_.back();
  hasElements_.back() = true;
  if (!isFirst) {
    text_ += layout_ == Layout::OneLine ? ", " : ",";
  }
  newLine();
}

void JsonWriter::newLine() {
  if (layout_ == Layout::Indented) {
    text_ += '\n' + std::string(2 * hasElements_.size(), ' ');
  }
}

void JsonWriter::appendEscaped(std::string_view text) {
  text_ += '"';
  while (!text.empty()) {
    const auto character = foundation::unicode::firstCodePoint(text);
    const std::size_t length = character ? character->length : 1;
    if (!character) {
      text_ += kReplacementCharacter;
    } else if (needsEscape(character->codePoint)) {
      text_ += foundation::format("\\u%04x", static_cast<std::uint32_t>(character->codePoint));
    } else {
      text_ += text.substr(0, length);
    }
    text.remove_prefix(length);
  }
  text_ += '"';
}

}  // namespace terminal
