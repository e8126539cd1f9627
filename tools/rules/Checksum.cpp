#include "tools/rules/Checksum.h"

#include "general/foundation/Hexadecimal.h"
#include "general/foundation/SHA256.h"

namespace bundletool {

std::optional<std::string> faultOfChecksum(std::string_view text) {
  constexpr std::size_t kDigits = 2 * std::tuple_size_v<foundation::SHA256::Digest>;
  if (text.size() != kDigits || !foundation::hexadecimal::isLowerCase(text)) {
    return "the checksum is not 64 lowercase hexadecimal digits";
  }
  return std::nullopt;
}

}  // namespace bundletool
