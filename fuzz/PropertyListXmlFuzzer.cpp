#include <cstddef>
#include <cstdint>
#include <string>

#include "fuzz/PropertyListFuzzing.h"

// The content goes into a document that is fine otherwise as well, so that little of it is spent on the frame.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* bytes, std::size_t size) {
  const std::string_view content(reinterpret_cast<const char*>(bytes), size);
  fuzzing::readPropertyList(content);
  fuzzing::readPropertyList("<plist version=\"1.0\">" + std::string(content) + "</plist>");
  return 0;
}
