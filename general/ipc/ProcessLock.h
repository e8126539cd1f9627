#pragma once

#include <string>
#include <string_view>

#include "general/foundation/Descriptor.h"

namespace ipc {

/// Held by one of root's processes on this machine at a time, under a name in the folder where processes meet; the
/// system knows by whom. It ends with the object or the process, however that ends, and is never handed on to a child.
/// A process must have one object for a name at most: the system takes the end of any for the end of all. Use from one
/// thread.
class ProcessLock {
 public:
  enum class Attempt {
    Locked,       ///< also when it was before
    HeldByOther,  ///< see holder()
    Failed,       ///< the error is in the log
  };

  /// @param name a single path component that begins with a dot. Nothing happens yet.
  explicit ProcessLock(std::string_view name);

  /// Locks it if nobody else holds it; never waits.
  [[nodiscard]] Attempt tryToLock();
  static constexpr int kGone = 0;     ///< as a holder: it has let go meanwhile
  static constexpr int kUnseen = -1;  ///< as a holder: a process of a container, with no number here
  /// The process that held it at the last attempt.
  [[nodiscard]] int holder() const { return holder_; }

 private:
  [[nodiscard]] bool openFile();
  [[nodiscard]] Attempt fail() const;

  std::string path_;
  foundation::Descriptor file_;
  int holder_ = kGone;
};

}  // namespace ipc
