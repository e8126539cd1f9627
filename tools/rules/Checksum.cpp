#include "tools/rules/Checksum.h"

#include "general/foundation/SHA256.h"

namespace bundletool {

bool isChecksum(std::string_view text) {
  constexpr std::size_t kDigits = 2 * std::tuple_size_v<foundation::SHA256::Digest>;
  return text.size() == kDigits && text.find_first_not_of("0123456789abcdef") == std::string_view::npos;
}

}  // namespace bundletool
