#pragma once

#include <cstddef>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace logging {

// Names of the facts a message carries.
inline constexpr std::string_view kSenderKey = "Sender";
inline constexpr std::string_view kFacilityKey = "Facility";
inline constexpr std::string_view kLevelKey = "Level";
inline constexpr std::string_view kMessageKey = "Message";
inline constexpr std::string_view kUserKey = "UID";
inline constexpr std::string_view kGroupKey = "GID";

enum class Level : int { Emergency = 0, Alert, Critical, Error, Warning, Notice, Info, Debug };

/// "Emergency" … "Debug".
[[nodiscard]] std::string_view levelName(Level level);

/// One message on its way to the log: keys with their values in the order in which they were first set. A key holds one
/// value; setting it again replaces that.
class LogMessage {
 public:
  using Entry = std::pair<std::string, std::string>;

  void set(std::string_view key, std::string_view value);
  void setLevel(Level level) { set(kLevelKey, levelName(level)); }
  /// The value under a key; empty when it was never set.
  [[nodiscard]] std::string_view value(std::string_view key) const;
  /// The level under its key; Debug when that is missing or unknown.
  [[nodiscard]] Level level() const;
  [[nodiscard]] const std::vector<Entry>& entries() const { return entries_; }

 private:
  std::vector<Entry> entries_;
};

/// Says under the sender and facility of the latest message how many could not be written, and where to.
[[nodiscard]] LogMessage messageOfLoss(const LogMessage& latest, std::size_t count, std::string_view where);

}  // namespace logging
