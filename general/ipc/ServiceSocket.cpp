#include "general/ipc/ServiceSocket.h"

#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/time.h>
#include <sys/un.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <cstring>
#include <exception>
#include <utility>

#include "general/foundation/Paths.h"
#include "general/foundation/files/FileManager.h"
#include "general/foundation/files/TemporaryNames.h"
#include "general/ipc/ServiceFolder.h"
#include "general/ipc/SocketErrors.h"
#include "general/ipc/SocketPrimitives.h"
#include "general/logging/SystemLog.h"

namespace ipc {

namespace paths = foundation::paths;
using foundation::Descriptor;

namespace {

constexpr std::string_view kLockName = ".lock";
constexpr std::chrono::seconds kPatienceWithBusyListener{10};
// A socket at which nobody listens refuses every time; a call that was disturbed fails once.
constexpr int kMostAttemptsToConnect = 3;

bool addressOf(const std::string& path, sockaddr_un& address) {
  if (path.size() >= sizeof address.sun_path) {
    return false;
  }
  address = {};
  address.sun_family = AF_UNIX;
  std::memcpy(address.sun_path, path.data(), path.size());
  return true;
}

const sockaddr* generic(const sockaddr_un& address) { return reinterpret_cast<const sockaddr*>(&address); }

void waitForBusyListener(int socket) {
  const timeval patience{kPatienceWithBusyListener.count(), 0};
  primitives::setBlocking(socket, true);
  setsockopt(socket, SOL_SOCKET, SO_SNDTIMEO, &patience, sizeof patience);
}

/// Not open, with errno set, when this attempt failed.
Descriptor connectOnce(const sockaddr_un& address, bool wait) {
  Descriptor connection = primitives::makeSocket();
  if (!connection.isOpen()) {
    return {};
  }
  if (wait) {
    waitForBusyListener(connection.number());
  }
  if (connect(connection.number(), generic(address), sizeof address) != 0) {
    const int number = errno;
    connection.reset();
    errno = number;
    return {};
  }
  primitives::setBlocking(connection.number(), false);
  return connection;
}

void complain(std::string_view what, std::string_view path) {
  const int number = errno;
  logging::error("%@ %@. %s", what, path, std::strerror(number));
}

}  // namespace

std::optional<std::string> socketPathOfService(std::string_view name) {
  if (name.starts_with(".") || !paths::isSingleComponent(std::string(name))) {
    return std::nullopt;
  }
  std::string path = paths::append(std::string(kServiceFolder), std::string(name));
  sockaddr_un address{};
  return addressOf(path, address) ? std::optional(std::move(path)) : std::nullopt;
}

std::optional<ServiceFolderLock> ServiceFolderLock::acquire(std::chrono::milliseconds patience) {
  auto lock = NamedLock::acquire(kLockName, patience);
  return lock ? std::optional(ServiceFolderLock(std::move(*lock))) : std::nullopt;
}

SocketState stateOfSocket(const std::string& path) {
  struct stat status {};
  if (lstat(path.c_str(), &status) != 0) {
    return meansNoSocket(errno) ? SocketState::Absent : SocketState::Alive;
  }
  if (!S_ISSOCK(status.st_mode)) {
    return SocketState::Stale;
  }
  errno = 0;
  const Descriptor connection = connectTo(path, false);
  // A listener that is too busy to be connected to is alive as well.
  return connection.isOpen() || errno != ECONNREFUSED ? SocketState::Alive : SocketState::Stale;
}

Descriptor listenAt(const std::string& path, mode_t mode, const ServiceFolderLock& /*lock*/) {
  const std::string unfinished = foundation::temporary_names::make(paths::deleteLastComponent(path));
  sockaddr_un address{};
  Descriptor listener = primitives::makeSocket();
  if (!listener.isOpen() || !addressOf(unfinished, address) ||
      bind(listener.number(), generic(address), sizeof address) != 0) {
    complain("Unable to make the socket", path);
    return {};
  }
  if (chmod(unfinished.c_str(), mode) != 0 || listen(listener.number(), SOMAXCONN) != 0 ||
      rename(unfinished.c_str(), path.c_str()) != 0) {
    complain("Unable to listen at the socket", path);
    unlink(unfinished.c_str());
    return {};
  }
  return listener;
}

SocketName::SocketName(std::string path) : path_(std::move(path)) { lstat(path_.c_str(), &status_); }

SocketName::~SocketName() {
  try {
    const auto lock = ServiceFolderLock::acquire();
    struct stat now {};
    if (lock && lstat(path_.c_str(), &now) == 0 && now.st_dev == status_.st_dev && now.st_ino == status_.st_ino) {
      unlink(path_.c_str());
    }
  } catch (const std::exception&) {
    // Too little memory to lock the folder: the name stays and is swept as a stale one.
  }
}

void sweepStaleSockets(std::string_view folder, const ServiceFolderLock& /*lock*/) {
  const auto names = foundation::files::contentsOfDirectory(std::string(folder));
  if (!names) {
    return;
  }
  for (const std::string& name : *names) {
    const std::string path = paths::append(std::string(folder), name);
    struct stat status {};
    if (lstat(path.c_str(), &status) == 0 && S_ISSOCK(status.st_mode) && stateOfSocket(path) == SocketState::Stale) {
      unlink(path.c_str());
    }
  }
}

Descriptor connectTo(const std::string& path, bool wait) {
  sockaddr_un address{};
  if (!addressOf(path, address)) {
    errno = ENAMETOOLONG;
    return {};
  }
  const auto deadline = std::chrono::steady_clock::now() + kPatienceWithBusyListener;
  for (int attempt = 1;; ++attempt) {
    Descriptor connection = connectOnce(address, wait);
    if (connection.isOpen() || meansNoSocket(errno) || attempt == kMostAttemptsToConnect ||
        std::chrono::steady_clock::now() >= deadline) {
      return connection;
    }
  }
}

Vending vendingUnder(std::string_view name) {
  const auto path = socketPathOfService(name);
  if (!path) {
    return Vending::No;
  }
  const Descriptor connection = connectTo(*path, false);
  if (connection.isOpen() || isMomentary(errno)) {
    // One that is too busy to be connected to listens as well.
    return Vending::Yes;
  }
  return meansNoSocket(errno) || errno == ECONNREFUSED ? Vending::No : Vending::CannotTell;
}

}  // namespace ipc
