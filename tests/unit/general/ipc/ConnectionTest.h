#pragma once

#include <gtest/gtest.h>

#include "tests/support/PrivateRunFolder.h"
#include "tests/unit/general/ipc/VendingProcess.h"

namespace ipctests {

/// A test of connections, in a service folder of its own.
class Connections : public ::testing::Test {
 protected:
  void SetUp() override {
    if (const auto reason = tests::enterPrivateRunFolder()) {
      GTEST_SKIP() << *reason;
    }
  }

  [[nodiscard]] VendingProcess vendForEverybody() const {
    return VendingProcess(*shared_, {.connection = {.peers = ipc::ServerConnection::Peers::Everybody}});
  }

  /// Whether a peer that has done nothing wrong is served.
  static bool isServed() {
    Client client;
    return client.isConnected() && client.call("echo:", {"still there"}) == foundation::PropertyList("still there");
  }

  const SharedMemory shared_;
};

}  // namespace ipctests
