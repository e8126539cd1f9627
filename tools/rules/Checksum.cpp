#include "tools/rules/Checksum.h"

#include "general/foundation/Hexadecimal.h"
#include "general/foundation/SHA256.h"

namespace bundletool {

bool isChecksum(std::string_view text) {
  constexpr std::size_t kDigits = 2 * std::tuple_size_v<foundation::SHA256::Digest>;
  return text.size() == kDigits && foundation::hexadecimal::isLowerCase(text);
}

}  // namespace bundletool
