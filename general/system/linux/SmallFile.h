#pragma once

#include <cstddef>
#include <optional>
#include <string>

namespace platform {

/// The content of a short regular file, such as the kernel and the login manager write. Nothing, with errno set, when
/// it cannot be read, is no regular file, or is longer than the limit.
[[nodiscard]] std::optional<std::string> readSmallFile(const std::string& path, std::size_t limit);

}  // namespace platform
