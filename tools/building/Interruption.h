#pragma once

namespace bundletool {

/// While it lives, the signals that ask a process to end (INT, TERM, HUP) are noted instead of obeyed, so that work can
/// be stopped at a good moment and leave nothing behind. One at a time.
class Interruption {
 public:
  Interruption();
  ~Interruption();
  Interruption(const Interruption&) = delete;
  Interruption& operator=(const Interruption&) = delete;

  /// True once such a signal came to the one that lives. Callable from any thread.
  [[nodiscard]] static bool requested();
};

}  // namespace bundletool
