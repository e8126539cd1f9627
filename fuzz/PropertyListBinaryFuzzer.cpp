#include <cstddef>
#include <cstdint>
#include <string>

#include "fuzz/PropertyListFuzzing.h"

namespace {

std::string bigEndian(std::size_t value, int size) {
  std::string text;
  for (int i = size; i > 0; --i) text.push_back(static_cast<char>(value >> (8 * (i - 1))));
  return text;
}

// Objects with a table and a trailer that fit them: each byte of the table is the distance to the next object.
std::string documentOf(std::string_view distances, std::string_view objects) {
  std::string document = "bplist00" + std::string(objects);
  const std::size_t table = document.size();
  std::size_t offset = 8;
  for (const char distance : distances) {
    document += bigEndian(offset, 4);
    offset += static_cast<unsigned char>(distance);
  }
  document += std::string(6, '\0') + "\x04\x01" + bigEndian(distances.size(), 8) + bigEndian(0, 8);
  return document + bigEndian(table, 8);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* bytes, std::size_t size) {
  const std::string_view content(reinterpret_cast<const char*>(bytes), size);
  fuzzing::readPropertyList(content);
  if (content.empty()) return 0;
  const std::size_t objectCount = static_cast<unsigned char>(content.front());
  if (objectCount >= content.size()) return 0;
  fuzzing::readPropertyList(documentOf(content.substr(1, objectCount), content.substr(1 + objectCount)));
  return 0;
}
