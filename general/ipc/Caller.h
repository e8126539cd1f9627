#pragma once

#include <sys/types.h>

namespace ipc {

/// Who is at the other end of a connection, as the system tells: nothing of it comes from the peer itself.
struct Caller {
  uid_t user = 0;
  pid_t process = 0;  ///< that connected; 0 when the system does not say. It may have ended since
};

}  // namespace ipc
