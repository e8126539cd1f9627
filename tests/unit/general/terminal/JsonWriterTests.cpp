#include <gtest/gtest.h>

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "general/terminal/JsonWriter.h"

namespace {

TEST(JsonWriter, WritesNestedValuesWithTheirCommas) {
  terminal::JsonWriter json;
  json.beginObject();
  json.member("texts", std::vector<std::string>{"a", "b"});
  json.key("empty");
  json.beginArray();
  json.endArray();
  json.member("number", std::optional<std::uint64_t>(UINT64_MAX));
  json.member("nothing", std::optional<std::string>());
  json.member("truth", std::optional<bool>(true));
  json.endObject();
  EXPECT_EQ(json.text(),
            "{\n  \"texts\": [\n    \"a\",\n    \"b\"\n  ],\n  \"empty\": [],\n  \"number\": 18446744073709551615,\n"
            "  \"nothing\": null,\n  \"truth\": true\n}\n");
}

TEST(JsonWriter, EscapesTextAndReplacesWhatIsNoUtf8) {
  terminal::JsonWriter json;
  json.string(std::string("\"\\/\n\x1b\0\xff", 7) + "ä");
  EXPECT_EQ(json.text(), "\"\\u0022\\u005c/\\u000a\\u001b\\u0000\xEF\xBF\xBDä\"");
}

TEST(JsonWriter, WritesADocumentOnOneLineWhereAskedTo) {
  terminal::JsonWriter json(terminal::JsonWriter::Layout::OneLine);
  json.beginObject();
  json.member("texts", std::vector<std::string>{"a", "b\n"});
  json.member("nothing", std::optional<std::string>());
  json.endObject();
  EXPECT_EQ(json.text(), "{\"texts\": [\"a\", \"b\\u000a\"], \"nothing\": null}\n");
}

}  // namespace
