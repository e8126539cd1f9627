#include <gtest/gtest.h>
#include <poll.h>
#include <unistd.h>

#include <cstdint>
#include <memory>

#include "frontend/watch/StatusConnection.h"
#include "general/ipc/RemoteException.h"
#include "tests/support/CapturedLog.h"
#include "tests/support/PrivateRunFolder.h"
#include "tests/unit/frontend/watch/StandInService.h"

namespace frontend {
namespace {

class StatusConnectionTest : public ::testing::Test {
 protected:
  void SetUp() override {
    if (const auto reason = tests::enterPrivateRunFolder()) {
      GTEST_SKIP() << *reason;
    }
  }

  const int process_ = getpid();
  const tests::CapturedLog log_;
};

TEST_F(StatusConnectionTest, IsNoneWithoutAnEngineThatCanBeWatched) {
  EXPECT_EQ(StatusConnection::toEngine(process_), nullptr);
}

TEST_F(StatusConnectionTest, TellsWhereTheRunStandsAtEachQuestion) {
  const StandInService service(process_, {.states = {11, 15, 99}, .progress = 40});
  const auto connection = StatusConnection::toEngine(process_);
  ASSERT_NE(connection, nullptr);
  EXPECT_EQ(connection->state(), deployer::QVNInstallerStatePreparing);
  EXPECT_EQ(connection->progress(), 40);
  EXPECT_EQ(connection->state(), deployer::QVNInstallerStateInstalling);
  EXPECT_EQ(static_cast<int>(connection->state()), 99) << "of a later engine";
}

TEST_F(StatusConnectionTest, AsksTheEngineToCancelWithoutWaiting) {
  const StandInService service(process_, {.states = {11}});
  const auto connection = StatusConnection::toEngine(process_);
  ASSERT_NE(connection, nullptr);
  connection->cancelInstallation();
  static_cast<void>(connection->state());  // answered after the request before it
  EXPECT_TRUE(service.cancelled);
  EXPECT_FALSE(service.wasShutDown);
}

TEST_F(StatusConnectionTest, LetsTheEngineLeaveAndIsOfNoMoreUseThen) {
  const StandInService service(process_, {.states = {0}});
  const auto connection = StatusConnection::toEngine(process_);
  ASSERT_NE(connection, nullptr);
  EXPECT_EQ(connection->state(), deployer::QVNInstallerStateSuccess);
  connection->shutdownService();
  pollfd gone{connection->descriptor(), POLLIN, 0};
  ASSERT_EQ(poll(&gone, 1, -1), 1);
  EXPECT_TRUE(service.wasShutDown);
  EXPECT_THROW(static_cast<void>(connection->state()), ipc::RemoteException);
}

TEST_F(StatusConnectionTest, BelievesNoEngineThatCannotVouchForItself) {
  const StandInService service(process_, {.states = {0}, .isImpostor = true});
  const auto connection = StatusConnection::toEngine(process_);
  ASSERT_NE(connection, nullptr);
  EXPECT_THROW(static_cast<void>(connection->state()), ipc::RemoteException);
}

}  // namespace
}  // namespace frontend
