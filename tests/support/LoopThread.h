#pragma once

#include <atomic>
#include <future>
#include <memory>
#include <string>

#include "InstallationDeployer/EngineNames.h"
#include "general/foundation/Thread.h"
#include "general/foundation/execution/RunLoop.h"

namespace tests {

/// A thread that turns its run loop until it is ended.
class LoopThread {
 public:
  explicit LoopThread(const std::string& name)
      : thread_(std::make_unique<foundation::NamedThread>(name, [this] { run(); })) {
    loop = started_.get_future().get();
  }
  ~LoopThread() { end(); }
  LoopThread(const LoopThread&) = delete;
  LoopThread& operator=(const LoopThread&) = delete;

  void end() {
    ended_ = true;
    loop->wakeUp();
    thread_.reset();
  }
  std::shared_ptr<foundation::RunLoop> loop;

 private:
  void run() {
    const deployer::EngineLog log;
    const auto own = foundation::RunLoop::current();
    started_.set_value(own);
    own->runWhile([this] { return !ended_; });
  }

  std::atomic<bool> ended_ = false;
  std::promise<std::shared_ptr<foundation::RunLoop>> started_;
  std::unique_ptr<foundation::NamedThread> thread_;
};

}  // namespace tests
