#include "general/foundation/ProcessStartPrimitives.h"

#include <fcntl.h>
#include <unistd.h>

#include <array>
#include <charconv>
#include <string>
#include <string_view>
#include <system_error>

#include "general/foundation/Descriptor.h"

namespace foundation {

namespace {

// Fields after the name, which stands in parentheses and may hold anything: state, parent, ... The start is the 20th.
constexpr int kFieldsBetweenNameAndStart = 19;
// The name has 15 bytes, and what stands before the start is numbers.
constexpr std::size_t kRoom = 1024;

}  // namespace

std::optional<std::uint64_t> startOfProcess(pid_t process) {
  const Descriptor file(open(("/proc/" + std::to_string(process) + "/stat").c_str(), O_RDONLY | O_CLOEXEC));
  std::array<char, kRoom> room{};
  const ssize_t length = file.isOpen() ? read(file.number(), room.data(), room.size()) : -1;
  if (length <= 0) {
    return std::nullopt;
  }
  std::string_view text(room.data(), static_cast<std::size_t>(length));
  const std::size_t nameEnd = text.rfind(") ");
  if (nameEnd == std::string_view::npos) {
    return std::nullopt;
  }
  text.remove_prefix(nameEnd + 2);
  for (int field = 0; field < kFieldsBetweenNameAndStart; ++field) {
    const std::size_t space = text.find(' ');
    if (space == std::string_view::npos) {
      return std::nullopt;
    }
    text.remove_prefix(space + 1);
  }
  std::uint64_t start = 0;
  const auto [rest, error] = std::from_chars(text.data(), text.data() + text.size(), start);
  return error == std::errc() ? std::optional(start) : std::nullopt;
}

}  // namespace foundation
