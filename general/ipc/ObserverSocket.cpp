#include "general/ipc/ObserverSocket.h"

#include <unistd.h>

#include <utility>

#include "general/foundation/Paths.h"
#include "general/foundation/extensions/NSStringExtensions.h"
#include "general/ipc/ServiceFolder.h"
#include "general/ipc/ServiceSocket.h"
#include "general/logging/SystemLog.h"

namespace ipc {

using foundation::Descriptor;

std::unique_ptr<ObserverSocket> ObserverSocket::make() {
  const auto lock = ServiceFolderLock::acquire();
  if (!lock) {
    logging::debug("Distributed notifications are not observed.");
    return nullptr;
  }
  sweepStaleSockets(kObserverFolder, *lock);
  std::string path =
      foundation::paths::append(std::string(kObserverFolder), foundation::NSStringExtensions::stringWithUUID());
  Descriptor socket = listenAt(path, kModeForRoot, *lock);
  return socket.isOpen() ? std::make_unique<ObserverSocket>(std::move(path), std::move(socket)) : nullptr;
}

ObserverSocket::ObserverSocket(std::string path, Descriptor socket)
    : path_(std::move(path)), socket_(std::move(socket)) {}

ObserverSocket::~ObserverSocket() { unlink(path_.c_str()); }

}  // namespace ipc
