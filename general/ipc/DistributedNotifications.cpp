#include "general/ipc/DistributedNotifications.h"

#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <optional>
#include <string>
#include <string_view>

#include "general/foundation/Descriptor.h"
#include "general/foundation/Paths.h"
#include "general/foundation/files/FileManager.h"
#include "general/foundation/files/TrustedFolder.h"
#include "general/ipc/Frame.h"
#include "general/ipc/Message.h"
#include "general/ipc/ServiceFolder.h"
#include "general/ipc/ServiceSocket.h"
#include "general/ipc/SocketErrors.h"
#include "general/ipc/SocketPrimitives.h"
#include "general/ipc/VRKConnectionAuthenticator.h"
#include "general/logging/SystemLog.h"
#include "general/system/ProcessSelf.h"

namespace ipc {

namespace paths = foundation::paths;
namespace trusted_folder = foundation::trusted_folder;
using foundation::Descriptor;

namespace {

// What failed once is no reason to give an observer up.
constexpr int kMostAttemptsToSend = 3;

std::optional<std::string> frameOf(const Notification& notification) {
  Message message;
  message.kind = Message::Kind::Notification;
  message.notification = notification;
  VRKConnectionAuthenticator authenticator;
  const auto content = encode(message, authenticator);
  if (!content || content->size() > kLargestNotification) {
    return std::nullopt;
  }
  return framed(*content);
}

bool isSocket(const std::string& path) {
  struct stat status {};
  return lstat(path.c_str(), &status) == 0 && S_ISSOCK(status.st_mode);
}

void complain(const std::string& observer, const Notification& notification) {
  const int number = errno;
  logging::error("Unable to notify %@ of %@. %s", observer, notification.name, std::strerror(number));
}

enum class Delivery { Done, OwnerIsDead, Failed };

/// Failed, with errno set, when another attempt may do better.
Delivery tryToSendTo(const std::string& observer, std::string_view frame) {
  const Descriptor connection = connectTo(observer, false);
  if (!connection.isOpen()) {
    // A socket listens before its name shows, and no name comes twice.
    return errno == ECONNREFUSED ? Delivery::OwnerIsDead : meansNoSocket(errno) ? Delivery::Done : Delivery::Failed;
  }
  const auto owner = primitives::userOfPeer(connection.number());
  if (!owner) {
    return Delivery::Failed;
  }
  if (*owner != 0) {
    return Delivery::Done;
  }
  const ssize_t sent = primitives::sendSome(connection.number(), frame);
  return sent == static_cast<ssize_t>(frame.size()) ? Delivery::Done : Delivery::Failed;
}

void sendTo(const std::string& observer, std::string_view frame, const Notification& notification) {
  Delivery delivery = Delivery::Failed;
  for (int attempt = 0; attempt < kMostAttemptsToSend && delivery == Delivery::Failed; ++attempt) {
    delivery = tryToSendTo(observer, frame);
  }
  if (delivery == Delivery::Failed) {
    complain(observer, notification);
  } else if (delivery == Delivery::OwnerIsDead) {
    unlink(observer.c_str());
  }
}

}  // namespace

void postDistributedNotification(const Notification& notification) {
  // In a folder that others can write in, anything may stand.
  if (platform::self::effectiveUserId() != 0 || !trusted_folder::isRootsAlone(std::string(kServiceFolder)) ||
      !trusted_folder::isRootsAlone(std::string(kObserverFolder))) {
    return;
  }
  const auto observers = foundation::files::contentsOfDirectory(std::string(kObserverFolder));
  if (!observers) {
    return;
  }
  const auto frame = frameOf(notification);
  if (!frame) {
    logging::error("The notification %@ cannot be posted: it is too long.", notification.name);
    return;
  }
  for (const std::string& name : *observers) {
    const std::string path = paths::append(std::string(kObserverFolder), name);
    // Sockets that are being made have hidden names.
    if (!name.starts_with(".") && isSocket(path)) {
      sendTo(path, *frame, notification);
    }
  }
}

}  // namespace ipc
