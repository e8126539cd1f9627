#include "frontend/watch/RunFollower.h"

#include <utility>

#include "frontend/watch/EngineProcesses.h"
#include "general/foundation/propertylist/TextFormat.h"
#include "general/ipc/RemoteException.h"

namespace frontend {

using deployer::QVNInstallerState;
using foundation::format;
using foundation::RunLoop;
using std::chrono::milliseconds;
using std::chrono::seconds;

namespace {

constexpr milliseconds kBetweenAttemptsToConnect(20);
constexpr milliseconds kBetweenQuestions(250);
// An engine leaves at once when it may.
constexpr seconds kPatienceWithEnd(30);
constexpr int kMostFailures = 5;

}  // namespace

RunFollower::RunFollower(RunListener& listener, foundation::Task& engine, Clock::duration patience)
    : listener_(listener), engine_(&engine), process_(engine.processIdentifier()), patience_(patience) {
  engineExit_.emplace(*loop_, engine);
}

RunFollower::RunFollower(RunListener& listener, int processIdentifier)
    : listener_(listener), process_(processIdentifier) {}

RunFollower::~RunFollower() = default;

RunEnd RunFollower::follow() {
  setTimer(kBetweenAttemptsToConnect);
  turn();
  while (!end_) {
    loop_->runUntil(Clock::time_point::max());
    reconsiderEngineProcess();
  }
  return *end_;
}

void RunFollower::cancel() {
  cancelWanted_ = true;
  if (!connection_) {
    return;
  }
  try {
    connection_->cancelInstallation();
  } catch (const ipc::RemoteException& exception) {
    loseConnection(exception.what());
  }
}

void RunFollower::detach() { end(finalState_ ? RunEnd::Kind::Finished : RunEnd::Kind::Detached); }

void RunFollower::turn() {
  connection_ ? update() : connect();
  if (finalState_ && Clock::now() - acknowledged_ > kPatienceWithEnd) {
    end(RunEnd::Kind::Finished);
  }
}

void RunFollower::connect() {
  if (engine_ == nullptr && isReceiptProcess(process_)) {
    end(RunEnd::Kind::Unwatched,
        format("Process %d is the engine of a receipt, which another engine started. Watch that one.", process_));
    return;
  }
  connection_ = StatusConnection::toEngine(process_);
  if (!connection_) {
    reconsiderUnreachableEngine();
    return;
  }
  readable_ = loop_->addDescriptor(connection_->descriptor(), RunLoop::Interest::Readable, [this] { hear(); });
  setTimer(kBetweenQuestions);
  greet();
}

void RunFollower::greet() {
  try {
    connection_->observeChanges();
    if (cancelWanted_) {
      connection_->cancelInstallation();
    }
  } catch (const ipc::RemoteException& exception) {
    loseConnection(exception.what());
    return;
  }
  update();
}

void RunFollower::update() {
  try {
    const QVNInstallerState state = connection_->state();
    failures_ = 0;
    heard_ = Clock::now();
    if (!std::exchange(wasWatched_, true)) {
      listener_.watching(process_);
    }
    if (std::exchange(state_, state) != state) {
      listener_.stateChanged(state);
    }
    noteRefusal();
    if (deployer::isCompletionState(state)) {
      acknowledge(state);
      return;
    }
    const int progress = connection_->progress();
    if (std::exchange(progress_, progress) != progress) {
      listener_.progressChanged(progress);
    }
  } catch (const ipc::RemoteException& exception) {
    loseConnection(exception.what());
  }
}

void RunFollower::noteRefusal() {
  const auto refusal = connection_->takeRefusal();
  if (!refusal) {
    return;
  }
  if (finalState_) {
    // The end was seen; others let the engine leave.
    end(RunEnd::Kind::Finished);
  } else {
    listener_.orderRefused(*refusal);
  }
}

void RunFollower::acknowledge(QVNInstallerState state) {
  if (!finalState_) {
    acknowledged_ = Clock::now();
  }
  finalState_ = state;
  connection_->shutdownService();
}

void RunFollower::hear() {
  try {
    connection_->takeChanges();
  } catch (const ipc::RemoteException& exception) {
    loseConnection(exception.what());
    return;
  }
  update();
}

void RunFollower::loseConnection(const std::string& reason) {
  dropConnection();
  ++failures_;
  if (engine_ == nullptr && finalState_) {
    end(RunEnd::Kind::Finished);
  } else if (engine_ == nullptr && failures_ >= kMostFailures) {
    end(wasWatched_ ? RunEnd::Kind::Lost : RunEnd::Kind::Unwatched,
        format("Process %d does not let itself be watched. %@", process_, reason));
  } else {
    setTimer(failures_ < kMostFailures ? kBetweenAttemptsToConnect : kBetweenQuestions);
  }
}

void RunFollower::dropConnection() {
  readable_.reset();
  connection_.reset();
}

void RunFollower::reconsiderUnreachableEngine() {
  const bool isPatient = Clock::now() - heard_ <= patience_;
  if (engine_ != nullptr) {
    // Its process tells when there is nothing to wait for; until then somebody wants to know why nothing is shown.
    if (!isPatient && !std::exchange(wasUnreachable_, true)) {
      listener_.unreachable();
    }
    return;
  }
  if (finalState_) {
    end(RunEnd::Kind::Finished);
  } else if (wasWatched_) {
    end(RunEnd::Kind::Lost, format("The engine (process %d) has gone without saying how the run ended.", process_));
  } else {
    const auto found = lookForEngine(process_);
    if (found != EngineProcess::Engine || !isPatient) {
      end(RunEnd::Kind::Unwatched, reasonNotToWatch(process_, found));
    }
  }
}

void RunFollower::reconsiderEngineProcess() {
  if (!end_ && engine_ != nullptr && !engine_->isRunning()) {
    engineExited();
  }
}

void RunFollower::engineExited() {
  const auto exitState = static_cast<QVNInstallerState>(engine_->terminationStatus());
  if (finalState_) {
    end(RunEnd::Kind::Finished);
  } else if (engine_->wasSignalled() || !deployer::isCompletionState(exitState)) {
    end(RunEnd::Kind::Lost, format("The engine (process %d) ended with %@, without saying how the run ended.", process_,
                                   engine_->endDescription()));
  } else {
    // Somebody else acknowledged the end, or the engine did not come far enough to be watched.
    finalState_ = exitState;
    end(wasWatched_ ? RunEnd::Kind::Finished : RunEnd::Kind::Refused);
  }
}

void RunFollower::setTimer(milliseconds interval) {
  timer_ = loop_->addTimer(interval, true, [this] { turn(); });
}

void RunFollower::end(RunEnd::Kind kind, const std::string& reason) {
  if (!end_) {
    end_ = RunEnd{kind, finalState_.value_or(deployer::QVNInstallerStateSuccess), reason};
  }
}

}  // namespace frontend
