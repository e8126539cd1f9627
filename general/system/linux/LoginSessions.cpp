#include "general/system/linux/LoginSessions.h"

#include <algorithm>
#include <charconv>
#include <limits>
#include <string_view>

#include "general/system/linux/SmallFile.h"

namespace platform {

namespace {

constexpr std::size_t kLongestRecord = 65536;

/// The value of a `KEY=value` line.
std::optional<std::string_view> valueOf(std::string_view record, std::string_view key) {
  while (!record.empty()) {
    const std::size_t end = std::min(record.find('\n'), record.size());
    const std::string_view line = record.substr(0, end);
    if (line.size() > key.size() && line.starts_with(key) && line[key.size()] == '=') {
      return line.substr(key.size() + 1);
    }
    record.remove_prefix(std::min(end + 1, record.size()));
  }
  return std::nullopt;
}

std::optional<std::uint32_t> userIdIn(const std::optional<std::string_view>& text) {
  if (!text) {
    return std::nullopt;
  }
  std::uint32_t userId = 0;
  const auto [end, error] = std::from_chars(text->data(), text->data() + text->size(), userId);
  // The highest number stands for "no user" in every interface of the system.
  if (error != std::errc{} || end != text->data() + text->size() ||
      userId == std::numeric_limits<std::uint32_t>::max()) {
    return std::nullopt;
  }
  return userId;
}

bool isSessionName(std::string_view name) {
  return !name.empty() && std::all_of(name.begin(), name.end(), [](char letter) {
    return (letter >= '0' && letter <= '9') || (letter >= 'a' && letter <= 'z') || (letter >= 'A' && letter <= 'Z');
  });
}

bool isActiveUserSession(std::string_view session) {
  // Classes of people's sessions begin with this word; greeters, lock screens and background services do not.
  return valueOf(session, "ACTIVE").value_or("1") == "1" &&
         valueOf(session, "CLASS").value_or("user").starts_with("user");
}

}  // namespace

std::optional<std::uint32_t> activeSeatUserId(const std::string& directory) {
  const auto seat = readSmallFile(directory + "/seats/seat0", kLongestRecord);
  if (!seat) {
    return std::nullopt;
  }
  const auto name = valueOf(*seat, "ACTIVE");
  if (!name || !isSessionName(*name)) {
    return std::nullopt;
  }
  const auto session = readSmallFile(directory + "/sessions/" + std::string(*name), kLongestRecord);
  if (!session) {
    return userIdIn(valueOf(*seat, "ACTIVE_UID"));
  }
  return isActiveUserSession(*session) ? userIdIn(valueOf(*session, "UID")) : std::nullopt;
}

}  // namespace platform
