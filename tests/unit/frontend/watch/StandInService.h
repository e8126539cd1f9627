#pragma once

#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <condition_variable>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <span>
#include <string>
#include <utility>
#include <vector>

#include "InstallationDeployer/protocols/QVNInstallationStatusProtocol.h"
#include "general/foundation/Thread.h"
#include "general/foundation/execution/RunLoop.h"
#include "general/ipc/ConnectionDelegate.h"
#include "general/ipc/RemoteException.h"
#include "general/ipc/ServerConnection.h"
#include "general/ipc/VRKConnectionAuthenticator.h"

namespace frontend {

/// Vouches for nobody.
class Impostor : public ipc::ConnectionDelegate {
 public:
  std::vector<std::byte> authenticationDataForComponents(std::span<const std::byte> /*components*/) override {
    return std::vector<std::byte>(16);
  }
  bool authenticateComponents(std::span<const std::byte> /*components*/, std::span<const std::byte> /*data*/) override {
    return true;
  }
};

/// The status service of an engine, on a thread of its own: tells one state after the other, each time it is asked, and
/// stays at the last one. It never announces a change.
class StandInService : public deployer::QVNInstallationStatusProtocol {
 public:
  struct Script {
    std::vector<std::int32_t> states;
    std::int64_t progress = 0;
    std::size_t breakAfter = 0;  ///< answers about the state until all connections break once; 0: never
    std::size_t goneAfter = 0;   ///< answers about the state until the service ends; 0: when it is told to
    bool isImpostor = false;
    bool refusesOrders = false;
    std::function<void()> atEachState = [] {};
  };

  StandInService(int process, Script script)
      : name_(deployer::statusServiceNameOfProcess(process)), script_(std::move(script)) {
    thread_.emplace("stand-in", [this] { serve(); });
    std::unique_lock lock(lock_);
    changed_.wait(lock, [this] { return isVended_; });
  }
  ~StandInService() override {
    over_ = true;
    loop_->wakeUp();
  }
  StandInService(const StandInService&) = delete;
  StandInService& operator=(const StandInService&) = delete;

  std::int32_t getCurrentState() override {
    const std::size_t asked = asked_++;
    script_.atEachState();
    breakNow_ = asked_ == script_.breakAfter;
    over_ = over_ || asked_ == script_.goneAfter;
    return script_.states[std::min(asked, script_.states.size() - 1)];
  }
  std::int64_t getProgress() override { return script_.progress; }
  void cancelInstallation() override {
    refuseIfScripted();
    cancelled = true;
  }
  void shutdownService() override {
    refuseIfScripted();
    over_ = wasShutDown = true;
  }

  std::atomic<bool> cancelled = false;
  std::atomic<bool> wasShutDown = false;

 private:
  static constexpr const char* kRefusal = "TestException";

  void refuseIfScripted() const {
    if (script_.refusesOrders) {
      throw ipc::RemoteException(kRefusal, "It is not yours.");
    }
  }
  void serve() {
    auto connection = vend();
    loop_ = foundation::RunLoop::current();
    {
      const std::lock_guard lock(lock_);
      isVended_ = true;
      changed_.notify_all();
    }
    while (!over_) {
      loop_->runUntil(foundation::RunLoop::Clock::time_point::max());
      if (std::exchange(breakNow_, false)) {
        connection.reset();
        connection = vend();
      }
    }
  }
  std::unique_ptr<ipc::ServerConnection> vend() {
    ipc::ServerConnection::Options options;
    options.peers = ipc::ServerConnection::Peers::Everybody;
    options.refusal = kRefusal;
    auto connection = std::make_unique<ipc::ServerConnection>(options);
    if (script_.isImpostor) {
      connection->setDelegate(std::make_shared<Impostor>());
    } else {
      connection->setDelegate(std::make_shared<ipc::VRKConnectionAuthenticator>());
    }
    connection->setRootObject(
        std::make_shared<const ipc::ProtocolChecker>(targetFor(*this), deployer::kQVNInstallationStatusProtocol));
    EXPECT_TRUE(connection->registerName(name_));
    return connection;
  }

  const std::string name_;
  const Script script_;
  std::size_t asked_ = 0;  // of the service's thread alone
  bool breakNow_ = false;
  std::atomic<bool> over_ = false;
  std::shared_ptr<foundation::RunLoop> loop_;
  std::mutex lock_;
  std::condition_variable changed_;
  bool isVended_ = false;
  std::optional<foundation::NamedThread> thread_;
};

}  // namespace frontend
