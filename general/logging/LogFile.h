#pragma once

#include <cstddef>
#include <string>

namespace logging {

/// Added to the name of a log file that gave way to a new one.
inline constexpr const char* kEarlierLogSuffix = ".1";

/// Keeps an open file within a size while it is written to: when it is full it is renamed, and the descriptor is
/// connected to a new file of the same name. Only a regular file of the effective user that has this one name is ever
/// renamed; another process may have done so already, and then the file that it made is used. Use from one thread at a
/// time.
class LogFile {
 public:
  /// @param path absolute; the file that the descriptor was opened from.
  LogFile(std::string path, std::size_t mostBytes) : path_(std::move(path)), mostBytes_(mostBytes) {}

  /// Whether the descriptor is open at the file of this path; any other is not this object's business.
  [[nodiscard]] bool isOpenAt(int descriptor) const;
  /// Whether so many bytes may be written to the descriptor. False when the file is full and cannot give way.
  [[nodiscard]] bool makeRoom(int descriptor, std::size_t bytes) const;

 private:
  [[nodiscard]] bool giveWay(int descriptor) const;

  const std::string path_;
  const std::size_t mostBytes_;
};

}  // namespace logging
