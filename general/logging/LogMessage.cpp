#include "general/logging/LogMessage.h"

#include <algorithm>
#include <array>

namespace logging {

namespace {

constexpr std::array<std::string_view, 8> kLevelNames{"Emergency", "Alert",  "Critical", "Error",
                                                      "Warning",   "Notice", "Info",     "Debug"};

}  // namespace

std::string_view levelName(Level level) {
  const auto number =
      std::clamp(static_cast<int>(level), static_cast<int>(Level::Emergency), static_cast<int>(Level::Debug));
  return kLevelNames.at(static_cast<std::size_t>(number));
}

void LogMessage::set(std::string_view key, std::string_view value) {
  for (Entry& entry : entries_) {
    if (entry.first == key) {
      entry.second = value;
      return;
    }
  }
  entries_.emplace_back(key, value);
}

std::string_view LogMessage::value(std::string_view key) const {
  for (const Entry& entry : entries_) {
    if (entry.first == key) {
      return entry.second;
    }
  }
  return {};
}

Level LogMessage::level() const {
  const auto* const found = std::find(kLevelNames.begin(), kLevelNames.end(), value(kLevelKey));
  return found == kLevelNames.end() ? Level::Debug : static_cast<Level>(found - kLevelNames.begin());
}

LogMessage messageOfLoss(const LogMessage& latest, std::size_t count, std::string_view where) {
  LogMessage message;
  message.set(kSenderKey, latest.value(kSenderKey));
  message.set(kFacilityKey, latest.value(kFacilityKey));
  message.setLevel(Level::Warning);
  message.set(kMessageKey,
              std::to_string(count).append(" messages could not be written to ").append(where).append("."));
  return message;
}

}  // namespace logging
