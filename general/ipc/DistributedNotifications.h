#pragma once

#include "general/ipc/Notification.h"

namespace ipc {

/// Tells every observer on this machine, at once and without waiting for any of them. Only root can; from anybody else
/// it does nothing. Posts of one thread reach each observer in order. Use from any thread.
void postDistributedNotification(const Notification& notification);

}  // namespace ipc
