#pragma once

#include <cerrno>
#include <chrono>

/// What errors of sockets mean for those who serve many of them.
namespace ipc {

/// How long who listens leaves those who connect waiting when the system has no descriptor left for one more: asking
/// again at once would only burn time.
inline constexpr std::chrono::milliseconds kPauseWithoutDescriptors{500};

/// The call did nothing, and may do something later.
[[nodiscard]] inline bool isMomentary(int errorNumber) {
  return errorNumber == EAGAIN || errorNumber == EWOULDBLOCK || errorNumber == EINTR;
}

/// What an attempt to accept a connection says of that connection alone, or of nothing: the next one may be accepted.
[[nodiscard]] inline bool concernsOneConnection(int errorNumber) {
  return errorNumber == ECONNABORTED || errorNumber == EINTR;
}

/// There is no such socket: asking again would find nothing either.
[[nodiscard]] inline bool meansNoSocket(int errorNumber) {
  return errorNumber == ENOENT || errorNumber == ENOTDIR || errorNumber == ENAMETOOLONG;
}

}  // namespace ipc
