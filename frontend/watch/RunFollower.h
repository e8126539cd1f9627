#pragma once

#include <chrono>
#include <memory>
#include <optional>
#include <string>

#include "InstallationDeployer/QVNInstallerState.h"
#include "frontend/watch/StatusConnection.h"
#include "general/foundation/execution/RunLoop.h"
#include "general/foundation/execution/Task.h"
#include "general/foundation/execution/TaskExitSource.h"

namespace frontend {

/// Hears what becomes of a run, on the thread that follows it.
class RunListener {
 public:
  virtual ~RunListener() = default;
  /// The engine can be watched from now on; once.
  virtual void watching(int processIdentifier) = 0;
  /// The engine that this program started has not been reached for a while, though it runs; at most once.
  virtual void unreachable() = 0;
  /// The engine does not let this user cancel the run, and goes on.
  virtual void orderRefused(const std::string& reason) = 0;
  /// The run's state, each time it is another one than before. States that last for a moment only may be skipped.
  virtual void stateChanged(deployer::QVNInstallerState state) = 0;
  /// In percent, each time it is another value than before. It may also go down.
  virtual void progressChanged(int percent) = 0;
};

/// How following a run ended.
struct RunEnd {
  enum class Kind {
    Finished,   ///< with the final state
    Refused,    ///< the engine ended by itself, with that state, before it could be watched
    Lost,       ///< the engine ended or went away without a final state
    Unwatched,  ///< there was nothing to watch
    Detached,   ///< detach() was called
  };
  Kind kind = Kind::Finished;
  deployer::QVNInstallerState state = deployer::QVNInstallerStateSuccess;
  std::string reason;  ///< Lost and Unwatched: what happened, a sentence for people
};

/// Follows a run from wherever it stands to its end, and acknowledges the end so that the engine can leave.
///
/// It waits on the current thread's run loop; handlers of other sources of that loop may call cancel() and detach().
/// It connects as soon as the engine can be watched and again when the connection breaks, asks for the state whenever
/// the engine announces a change, and every now and then, so that a lost announcement costs no more than a moment.
class RunFollower {
 public:
  using Clock = foundation::RunLoop::Clock;
  // An engine that has just been started needs a moment until it can be watched.
  static constexpr Clock::duration kPatienceWithStart = std::chrono::seconds(10);

  /// Of an engine that this process started; its end ends the run in any case. Both outlive the follower.
  /// @param patience how long it may stay unreachable before the listener hears of it.
  RunFollower(RunListener& listener, foundation::Task& engine, Clock::duration patience = kPatienceWithStart);
  /// Of an engine that somebody else started. It is over when the engine's service is gone.
  RunFollower(RunListener& listener, int processIdentifier);
  ~RunFollower();
  RunFollower(const RunFollower&) = delete;
  RunFollower& operator=(const RunFollower&) = delete;

  [[nodiscard]] RunEnd follow();
  /// Asks the engine to cancel, now or as soon as it can be asked.
  void cancel();
  /// Leaves the engine to itself.
  void detach();

 private:
  void turn();
  void connect();
  void greet();
  void update();
  void noteRefusal();
  void acknowledge(deployer::QVNInstallerState state);
  void hear();
  void loseConnection(const std::string& reason);
  void dropConnection();
  void reconsiderUnreachableEngine();
  void reconsiderEngineProcess();
  void engineExited();
  void setTimer(std::chrono::milliseconds interval);
  void end(RunEnd::Kind kind, const std::string& reason = {});

  RunListener& listener_;
  foundation::Task* engine_ = nullptr;
  const int process_;
  std::shared_ptr<foundation::RunLoop> loop_ = foundation::RunLoop::current();
  std::optional<foundation::TaskExitSource> engineExit_;
  std::unique_ptr<StatusConnection> connection_;
  foundation::RunLoop::Source readable_;
  foundation::RunLoop::Source timer_;
  const Clock::duration patience_ = kPatienceWithStart;
  Clock::time_point heard_ = Clock::now();  ///< when it began, or when the engine last answered
  Clock::time_point acknowledged_;
  int failures_ = 0;  ///< connections in a row that broke before the engine answered
  bool wasWatched_ = false;
  bool wasUnreachable_ = false;
  bool cancelWanted_ = false;
  std::optional<deployer::QVNInstallerState> state_;
  std::optional<int> progress_;
  std::optional<deployer::QVNInstallerState> finalState_;
  std::optional<RunEnd> end_;
};

}  // namespace frontend
