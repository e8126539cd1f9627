#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace support {

/// A system call as it is shown to people.
struct NamedCall {
  static constexpr int kNone = -1;

  long number = 0;  ///< as in <sys/syscall.h>
  std::string_view name;
  int descriptor = kNone;  ///< which argument is the descriptor it is about
  int path = kNone;        ///< and which one a path
  int secondPath = kNone;
};

/// Nothing for a call that no kind has.
[[nodiscard]] std::optional<NamedCall> namedCall(long number);

/// System calls that do the same, under the names that C libraries and architectures have for it, and the errors that
/// they really give.
struct CallKind {
  std::string_view name;
  std::vector<long> numbers;
  std::vector<int> errors;
};

/// Every kind that the engine uses. Not among them: close(2), which gives the descriptor back whatever it answers, and
/// brk(2), which has no error.
[[nodiscard]] const std::vector<CallKind>& callKinds();
/// "ENOSPC" and the like; the number where it has no name here.
[[nodiscard]] std::string nameOfError(int error);
/// By its name; nothing for another text.
[[nodiscard]] std::optional<int> errorNamed(std::string_view name);

}  // namespace support
