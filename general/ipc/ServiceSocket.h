#pragma once

#include <sys/stat.h>
#include <sys/types.h>

#include <chrono>
#include <optional>
#include <string>
#include <string_view>
#include <utility>

#include "general/foundation/Descriptor.h"
#include "general/ipc/NamedLock.h"

/// The sockets in the service folder and their names. A name can outlive who listened at it: such a stale socket is
/// swept or replaced by the next process that vends or observes, under a lock. Use from any thread.
namespace ipc {

inline constexpr mode_t kModeForEverybody = 0666;
inline constexpr mode_t kModeForRoot = 0600;

/// Where the socket of a registered name lies; nothing for a name that cannot be one: empty, hidden, not a single path
/// component, or too long for a socket's address.
[[nodiscard]] std::optional<std::string> socketPathOfService(std::string_view name);

/// Who vends or observes holds this meanwhile, so that two processes never take over the same stale socket, and none
/// takes a socket that is being made for stale. Making it makes the folders; nothing, and an error in the log, when the
/// folders cannot be made or are not root's own, and when another process holds the lock and does not let go of it: it
/// is held for moments only, and no run waits for ever for a process that was stopped.
class ServiceFolderLock {
 public:
  static constexpr std::chrono::milliseconds kPatience = std::chrono::seconds(10);

  [[nodiscard]] static std::optional<ServiceFolderLock> acquire(std::chrono::milliseconds patience = kPatience);

 private:
  explicit ServiceFolderLock(NamedLock lock) : lock_(std::move(lock)) {}
  NamedLock lock_;
};

enum class SocketState { Absent, Stale, Alive };
/// Whether somebody listens at the socket. One that cannot be asked counts as alive.
[[nodiscard]] SocketState stateOfSocket(const std::string& path);

/// A socket that listens at the path from now on, replacing what is there; it has its mode before its name shows. Not
/// open, and an error in the log, when that fails. Under the lock.
[[nodiscard]] foundation::Descriptor listenAt(const std::string& path, mode_t mode, const ServiceFolderLock& lock);

/// The name of a socket that this process listens at: removed at the end, unless somebody else has taken it meanwhile.
class SocketName {
 public:
  explicit SocketName(std::string path);
  ~SocketName();
  SocketName(const SocketName&) = delete;
  SocketName& operator=(const SocketName&) = delete;

 private:
  std::string path_;
  struct stat status_ {};
};

/// Removes the sockets of the folder at which nobody listens, unfinished ones included. Under the lock.
void sweepStaleSockets(std::string_view folder, const ServiceFolderLock& lock);

/// A connection to the socket, non-blocking from then on; not open, with errno set, when nobody listens there. Waits
/// for a listener that is busy for a bounded time with `wait`, not at all without. One failure is no answer: what was
/// refused or interrupted is tried again at once, a few times.
[[nodiscard]] foundation::Descriptor connectTo(const std::string& path, bool wait);

enum class Vending { Yes, No, CannotTell };
/// Whether somebody vends under the name now, for who waits for that. It cannot tell, with errno set, when this process
/// lacks what it takes to ask, such as a descriptor. Does not wait.
[[nodiscard]] Vending vendingUnder(std::string_view name);

}  // namespace ipc
