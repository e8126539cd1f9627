#pragma once

#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <utility>

#include "general/ipc/ProtocolChecker.h"
#include "general/ipc/ServerConnection.h"
#include "general/ipc/VRKConnectionAuthenticator.h"
#include "tests/support/LoopThread.h"

namespace tests {

/// A service of a protocol under a name, served on a thread of its own by whatever the target answers.
class VendedService {
 public:
  VendedService(const std::string& name, const ipc::Protocol& protocol, ipc::Target target) : thread_("service") {
    thread_.loop->perform(
        [&] {
          connection_ = std::make_unique<ipc::ServerConnection>(ipc::ServerConnection::Options{});
          connection_->setDelegate(std::make_shared<ipc::VRKConnectionAuthenticator>());
          connection_->setRootObject(std::make_shared<ipc::ProtocolChecker>(std::move(target), protocol));
          EXPECT_TRUE(connection_->registerName(name));
        },
        true);
  }
  ~VendedService() {
    thread_.loop->perform([this] { connection_.reset(); }, true);
  }
  VendedService(const VendedService&) = delete;
  VendedService& operator=(const VendedService&) = delete;

 private:
  LoopThread thread_;
  std::unique_ptr<ipc::ServerConnection> connection_;
};

}  // namespace tests
