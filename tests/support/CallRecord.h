#pragma once

#include <sys/types.h>

#include <optional>
#include <string>
#include <string_view>
#include <vector>

/// What the command recorder writes down and what it is told to do: one line of text each, written by one side and read
/// by the other. Every byte below 0x20, above 0x7e, the quote and the backslash is written as \u00XX, one per byte, so
/// that no argument can look like two or like the end of a line.
namespace support {

/// Where the recorder finds its rules and leaves its records, seen from inside the private root.
inline constexpr std::string_view kRecorderDirectory = "/run/recorder";
inline constexpr std::string_view kRecorderCalls = "/run/recorder/calls";
inline constexpr std::string_view kRecorderRules = "/run/recorder/rules";

/// One call of a recorded command.
struct RecordedCall {
  std::string path;  ///< as it was handed to the system to start
  uid_t realUser = 0;
  uid_t effectiveUser = 0;
  std::string currentDirectory;
  std::vector<std::string> arguments;  ///< the whole vector, the command's own name first

  [[nodiscard]] std::string line() const;  ///< with its newline
  [[nodiscard]] static std::optional<RecordedCall> fromLine(std::string_view line);
};

/// What the recorder does in a call that matches; without any rule it exits with 0 and prints nothing.
struct CommandRule {
  /// A shell pattern over the command's path and its arguments, joined by single blanks.
  std::string pattern;
  int exitCode = 0;
  std::string standardError;            ///< printed as it stands
  std::size_t standardErrorBytes = 0;   ///< so many bytes 'e' more, for a talkative command
  std::size_t standardOutputBytes = 0;  ///< so many bytes 'o'

  [[nodiscard]] std::string line() const;  ///< with its newline
  [[nodiscard]] static std::optional<CommandRule> fromLine(std::string_view line);
  [[nodiscard]] bool matches(const RecordedCall& call) const;
};

}  // namespace support
