#include "general/ipc/ServiceFolder.h"

#include <fcntl.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/time.h>
#include <sys/un.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

#include "general/foundation/Error.h"
#include "general/foundation/Paths.h"
#include "general/foundation/files/FileAttributes.h"
#include "general/foundation/files/FileManager.h"
#include "general/foundation/files/TemporaryNames.h"
#include "general/ipc/SocketPrimitives.h"
#include "general/logging/SystemLog.h"

namespace ipc {

namespace paths = foundation::paths;
using foundation::Descriptor;

namespace {

constexpr std::string_view kLockName = ".lock";
constexpr mode_t kFolderMode = 0755;
constexpr mode_t kWritableByOthers = 022;
constexpr timeval kPatienceWithBusyListener{10, 0};

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

void complain(std::string_view what, std::string_view path) {
  const int number = errno;
  logging::error("%@ %@. %s", what, path, std::strerror(number));
}

/// Root's own folder, in which nobody else can put or replace anything.
bool makeFolder(std::string_view path) {
  const std::string folder(path);
  if (mkdir(folder.c_str(), kFolderMode) != 0 && errno != EEXIST) {
    complain("Unable to make the folder for connections", path);
    return false;
  }
  const Descriptor opened(open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC));
  struct stat status {};
  if (!opened.isOpen() || fstat(opened.number(), &status) != 0) {
    complain("Unable to open the folder for connections", path);
    return false;
  }
  if (status.st_uid != 0 || (status.st_mode & kWritableByOthers) != 0) {
    logging::error("The folder for connections %@ is not used: others than root can write in it.", path);
    return false;
  }
  // Whatever the umask of who made it was, others have to find what is in it.
  if ((status.st_mode & foundation::kPermissionBits) != kFolderMode && fchmod(opened.number(), kFolderMode) != 0) {
    complain("Unable to open the folder for connections to others", path);
    return false;
  }
  return true;
}

}  // namespace

bool makeServiceFolders() {
  if (geteuid() != 0) {
    return false;
  }
  // The folder for what runs is made at every start of the system; a system that has none yet gets one.
  const std::string parent = paths::deleteLastComponent(std::string(kServiceFolder));
  for (const std::string& folder : {paths::deleteLastComponent(parent), parent}) {
    mkdir(folder.c_str(), kFolderMode);
  }
  return makeFolder(kServiceFolder) && makeFolder(kObserverFolder);
}

std::optional<std::string> socketPathOfService(std::string_view name) {
  if (name.starts_with(".") || !paths::isSingleComponent(std::string(name))) {
    return std::nullopt;
  }
  std::string path = paths::append(std::string(kServiceFolder), std::string(name));
  sockaddr_un address{};
  return addressOf(path, address) ? std::optional(std::move(path)) : std::nullopt;
}

std::optional<ServiceFolderLock> ServiceFolderLock::acquire() {
  auto lock = NamedLock::acquire(kLockName);
  return lock ? std::optional(ServiceFolderLock(std::move(*lock))) : std::nullopt;
}

SocketState stateOfSocket(const std::string& path) {
  struct stat status {};
  if (lstat(path.c_str(), &status) != 0) {
    return SocketState::Absent;
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
  const auto lock = ServiceFolderLock::acquire();
  struct stat now {};
  if (lock && lstat(path_.c_str(), &now) == 0 && now.st_dev == status_.st_dev && now.st_ino == status_.st_ino) {
    unlink(path_.c_str());
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
  Descriptor connection = primitives::makeSocket();
  if (!connection.isOpen() || !addressOf(path, address)) {
    return {};
  }
  if (wait) {
    primitives::setBlocking(connection.number(), true);
    setsockopt(connection.number(), SOL_SOCKET, SO_SNDTIMEO, &kPatienceWithBusyListener,
               sizeof kPatienceWithBusyListener);
  }
  int connected = -1;
  while ((connected = connect(connection.number(), generic(address), sizeof address)) != 0 && errno == EINTR) {
  }
  if (connected != 0) {
    const int number = errno;
    connection.reset();
    errno = number;
    return {};
  }
  primitives::setBlocking(connection.number(), false);
  return connection;
}

std::optional<uid_t> userOfPeer(int socket) { return primitives::userOfPeer(socket); }

}  // namespace ipc
