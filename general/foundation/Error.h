#pragma once

#include <map>
#include <optional>
#include <string>
#include <string_view>

namespace foundation {

/// Domain of the errors that file operations report.
inline constexpr std::string_view kFileErrorDomain = "NSCocoaErrorDomain";
/// Domain of the system's own error numbers, used for the underlying error.
inline constexpr std::string_view kPosixErrorDomain = "NSPOSIXErrorDomain";

// The names of an error's further facts.
inline constexpr std::string_view kFilePathErrorKey = "NSFilePath";
inline constexpr std::string_view kUnderlyingErrorKey = "NSUnderlyingError";
inline constexpr std::string_view kLocalizedDescriptionKey = "NSLocalizedDescription";
inline constexpr std::string_view kLocalizedFailureReasonErrorKey = "NSLocalizedFailureReason";

/// Codes of kFileErrorDomain. Callers test for them, so they never change.
enum FileErrorCode : long {
  kNoSuchFileOnWrite = 4,  ///< nothing there to write into, move, link or remove
  kReadUnknown = 256,
  kReadNoPermission = 257,
  kReadInvalidName = 258,  ///< the path holds a NUL or is longer than the system takes
  kReadCorrupt = 259,
  kNoSuchFileOnRead = 260,
  kReadTooLarge = 263,
  kWriteUnknown = 512,
  kWriteNoPermission = 513,
  kWriteInvalidName = 514,
  kWriteFileExists = 516,
  kWriteOutOfSpace = 640,
  kWriteVolumeReadOnly = 642,
};

/// Why something failed: who says so, a code that callers may test, a text for people, the path concerned and the
/// system's own number when there is one. A plain value; copying it is cheap enough for error paths.
struct Error {
  std::string domain;
  long code = 0;
  std::string text;
  std::optional<std::string> path;
  int underlyingErrno = 0;
  /// Further facts, by name. Path and underlying error need no entry here; userInfo() adds them.
  std::map<std::string, std::string, std::less<>> details;

  /// True for the two codes that mean "no such file", whichever direction reported it.
  [[nodiscard]] bool isNoSuchFile() const { return code == kNoSuchFileOnWrite || code == kNoSuchFileOnRead; }
  /// True when a look-up that follows links ended at nothing: no such file, a way through what is no folder, links that
  /// lead in circles, or a path that no item can have. Every other error leaves open whether something is there.
  [[nodiscard]] bool meansNothingThere() const;

  /// The details, and with them the path and the underlying error where there are any.
  [[nodiscard]] std::map<std::string, std::string, std::less<>> userInfo() const;
  /// `Error Domain=… Code=… "text" UserInfo={…}`; how an error prints in a message.
  [[nodiscard]] std::string description() const;
};

/// The two directions of file work, which report the same errno under different codes.
enum class Access { Read, Write };

/// Turns an errno of a file operation into an Error of kFileErrorDomain.
[[nodiscard]] Error fileError(int errnoValue, Access access, std::string_view path);
/// An error of kFileErrorDomain without an errno of its own, such as content that does not parse.
[[nodiscard]] Error fileError(FileErrorCode code, std::string_view text, std::string_view path);

}  // namespace foundation
