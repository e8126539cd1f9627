#pragma once

#include <optional>
#include <string>
#include <string_view>

#include "general/foundation/Descriptor.h"

/// The folder in which this product's processes find each other: a socket per registered name, and one per observer of
/// distributed notifications. Only root can write in it.
namespace ipc {

inline constexpr std::string_view kServiceFolder = "/var/run/com.corvane.installer";
inline constexpr std::string_view kObserverFolder = "/var/run/com.corvane.installer/observers";

/// Where the socket of a registered name lies; nothing for a name that cannot be one: empty, not a single path
/// component, or too long for a socket's address.
[[nodiscard]] std::optional<std::string> socketPathOfService(std::string_view name);

}  // namespace ipc
