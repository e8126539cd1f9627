#include "general/system/ConsoleSessionPrimitives.h"

#include <ApplicationServices/ApplicationServices.h>

namespace platform {

std::optional<std::uint32_t> consoleSessionUserId() {
  const CFDictionaryRef session = CGSessionCopyCurrentDictionary();
  if (session == nullptr) {
    return std::nullopt;
  }
  std::int32_t userId = 0;
  const auto number = static_cast<CFNumberRef>(CFDictionaryGetValue(session, CFSTR("kCGSSessionUserIDKey")));
  const bool known = number != nullptr && CFNumberGetValue(number, kCFNumberSInt32Type, &userId);
  CFRelease(session);
  return known ? std::optional(static_cast<std::uint32_t>(userId)) : std::nullopt;
}

}  // namespace platform
