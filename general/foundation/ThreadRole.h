#pragma once

#include "general/foundation/ThreadAnnotations.h"

namespace foundation {

/// Stands for the one thread to which members of an object belong. It costs nothing and checks nothing while the
/// program runs: where such a thread begins its work on the object (its body, a handler of its run loop) the code says
/// so, and the compiler refuses a member that is guarded by the role wherever nobody has.
class CORVANE_CAPABILITY("thread role") ThreadRole {
 public:
  /// From here to the end of the calling function, the calling thread counts as the one with the role.
  void assumeHere() const CORVANE_ASSERT_CAPABILITY(this) {}
};

}  // namespace foundation
