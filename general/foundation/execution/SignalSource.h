#pragma once

#include <csignal>
#include <functional>
#include <optional>
#include <vector>

#include "general/foundation/execution/Pipe.h"
#include "general/foundation/execution/RunLoop.h"

namespace foundation {

/// Delivers signals on a run loop, as long as it exists, instead of letting them do what they do. A signal that was
/// ignored before (a command started in the background) stays ignored. One at a time in a process; it belongs to the
/// loop's thread.
class SignalSource {
 public:
  /// @param handler called with the signal's number, once for each that came (the system may fold equal ones into one).
  SignalSource(RunLoop& loop, const std::vector<int>& signals, std::function<void(int)> handler);
  ~SignalSource();
  SignalSource(const SignalSource&) = delete;
  SignalSource& operator=(const SignalSource&) = delete;

 private:
  struct Earlier {
    int signal;
    struct sigaction action;
  };
  void deliver();

  std::function<void(int)> handler_;
  std::optional<Pipe> pipe_;
  RunLoop::Source source_;
  std::vector<Earlier> earlier_;
};

}  // namespace foundation
