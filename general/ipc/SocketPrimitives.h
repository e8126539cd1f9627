#pragma once

#include <sys/types.h>

#include <optional>
#include <string_view>

#include "general/foundation/Descriptor.h"

/// What the systems do differently with local sockets.
namespace ipc::primitives {

/// A non-blocking stream socket that no child inherits; not open, with errno set, when there is none to be had.
[[nodiscard]] foundation::Descriptor makeSocket();
/// The next connection that waits at a listener, non-blocking; not open, with errno set, when there is none.
[[nodiscard]] foundation::Descriptor acceptFrom(int listener);
void setBlocking(int socket, bool blocking);
/// Sends what the socket takes at once; -1 with errno set. A peer that is gone is an error, never a signal.
[[nodiscard]] ssize_t sendSome(int socket, std::string_view bytes);
/// The user whose process is at the other end; for a connection to a listener, the user who began to listen. Nothing
/// when the system does not say.
[[nodiscard]] std::optional<uid_t> userOfPeer(int socket);
/// The process that made the connection; nothing when the system does not say.
[[nodiscard]] std::optional<pid_t> processOfPeer(int socket);

}  // namespace ipc::primitives
