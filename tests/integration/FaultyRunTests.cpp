#include <gtest/gtest.h>
#include <sys/syscall.h>

#include <array>
#include <cerrno>
#include <chrono>
#include <filesystem>
#include <memory>
#include <string>
#include <vector>

#include "tests/support/FaultyRun.h"

namespace tests {
namespace {

using support::EngineRole;
using support::Fault;
using support::FaultOutcome;
using support::FaultyRun;

/// Ordinary programs under the engine's name: every open that they ask for is known.
class FaultyRunTest : public ::testing::Test {
 protected:
  static constexpr const char* kCat = "/opt/cat/InstallationDeployer";
  static constexpr const char* kOtherCat = "/opt/other/InstallationDeployer";
  static constexpr const char* kShell = "/opt/shell/InstallationDeployer";

  void SetUp() override {
    if (const auto reason = support::PrivateRoot::whyImpossible()) {
      GTEST_SKIP() << *reason;
    }
    if (const auto reason = FaultyRun::whyImpossible()) {
      GTEST_SKIP() << *reason;
    }
    root_ = std::make_unique<support::PrivateRoot>();
    root().copyIn(std::filesystem::canonical("/bin/cat"), kCat);
    root().copyIn(std::filesystem::canonical("/bin/cat"), kOtherCat);
    root().copyIn(std::filesystem::canonical("/bin/sh"), kShell);
    root().writeFile("/one", "one;");
    root().writeFile("/two", "two;");
    root().writeFile("/three", "three;");
  }
  support::PrivateRoot& root() { return *root_; }

  static Fault openFails(unsigned long number, EngineRole role = EngineRole::Engine) {
    return {{SYS_openat}, role, number, EIO};
  }
  static Fault allocation(unsigned long number = Fault::kNever, EngineRole role = EngineRole::Engine) {
    return {{}, role, number, ENOMEM, true};
  }
  FaultOutcome allocationFails(unsigned long number, EngineRole role) {
    return run({kCat, "/one"}, allocation(number, role));
  }
  FaultOutcome run(const std::vector<std::string>& arguments, const Fault& fault,
                   const support::RunOptions& options = {}) {
    return FaultyRun(root(), arguments, fault, options).finish();
  }
  FaultOutcome shell(const std::string& command, const Fault& fault) { return run({kShell, "-c", command}, fault); }

 private:
  std::unique_ptr<support::PrivateRoot> root_;
};

TEST_F(FaultyRunTest, OneAllocationFailsAndIsNamed) {
  if (!root().hasProcesses()) {
    GTEST_SKIP() << root().whyNoMounts();
  }
  const FaultOutcome undisturbed = allocationFails(Fault::kNever, EngineRole::Engine);
  EXPECT_FALSE(undisturbed.reached);
  EXPECT_EQ(undisturbed.outcome.standardOutput, "one;");
  ASSERT_GT(undisturbed.allocationsSeen[0], 0U);

  std::size_t failed = 0;
  for (unsigned long number = 1; number <= undisturbed.allocationsSeen[0]; ++number) {
    const FaultOutcome outcome = allocationFails(number, EngineRole::Engine);
    EXPECT_TRUE(outcome.reached) << number;
    EXPECT_NE(outcome.call.find("bytes, asked for at 0x"), std::string::npos) << outcome.call;
    failed += outcome.outcome.succeeded() ? 0 : 1;
  }
  EXPECT_GT(failed, 0U);
}

TEST_F(FaultyRunTest, AllocationsAreCountedForTheEngineThatMakesThem) {
  if (!root().hasProcesses()) {
    GTEST_SKIP() << root().whyNoMounts();
  }
  const FaultOutcome outcome = run({kShell, "-c", std::string(kOtherCat) + " /one; /bin/cat /two"}, allocation());
  EXPECT_EQ(outcome.outcome.standardOutput, "one;two;");
  const auto [engine, receipt, nested] = outcome.allocationsSeen;
  EXPECT_GT(engine, 0U);
  EXPECT_EQ(receipt, 0U);
  // The other program of that name allocates what it does alone, the one of another name is not counted.
  EXPECT_EQ(nested, allocationFails(Fault::kNever, EngineRole::Engine).allocationsSeen[0]);
}

TEST_F(FaultyRunTest, OneCallAnswersTheErrorAndTheOthersWhatTheyAlwaysDo) {
  const FaultOutcome outcome = run({kCat, "/one", "/two", "/three"}, openFails(2));
  EXPECT_TRUE(outcome.reached);
  EXPECT_EQ(outcome.call, "openat  '/two'");
  EXPECT_EQ(outcome.outcome.standardOutput, "one;three;");
  EXPECT_NE(outcome.outcome.standardError.find("/two: Input/output error"), std::string::npos);
  EXPECT_EQ(outcome.outcome.exitCode, 1);
}

TEST_F(FaultyRunTest, WithoutTheCallNothingFailsAndTheCallsAreCountedWithoutThoseOfTheLoader) {
  const FaultOutcome outcome = run({kCat, "/one", "/two", "/three"}, openFails(4));
  EXPECT_FALSE(outcome.reached);
  EXPECT_EQ(outcome.outcome.exitCode, 0) << outcome.outcome.description();
  EXPECT_EQ(outcome.outcome.standardOutput, "one;two;three;");
  ASSERT_TRUE(outcome.callsSeen.contains(SYS_openat));
  EXPECT_EQ(outcome.callsSeen.at(SYS_openat)[0], 3U);
  EXPECT_TRUE(outcome.leftNobody);
}

TEST_F(FaultyRunTest, TheCallsOfOtherProgramsAreNotTouched) {
  const FaultOutcome outcome = shell("/bin/cat /one /two; true", openFails(1));
  EXPECT_FALSE(outcome.reached) << outcome.call;
  EXPECT_EQ(outcome.outcome.standardOutput, "one;two;");
  EXPECT_FALSE(outcome.callsSeen.contains(SYS_openat));
}

TEST_F(FaultyRunTest, EveryRoleIsCountedForItself) {
  const std::string command = std::string(kOtherCat) + " /one /two; " + kCat + " -- --receipt; true";
  const FaultOutcome nested = shell(command, openFails(2, EngineRole::Nested));
  EXPECT_EQ(nested.call, "openat  '/two'");
  EXPECT_EQ(nested.outcome.standardOutput, "one;");
  const FaultOutcome receipt = shell(command, openFails(1, EngineRole::Receipt));
  EXPECT_EQ(receipt.call, "openat  '--receipt'");
  EXPECT_EQ(receipt.outcome.standardOutput, "one;two;");
  ASSERT_TRUE(receipt.callsSeen.contains(SYS_openat));
  EXPECT_EQ(receipt.callsSeen.at(SYS_openat), (std::array<unsigned long, support::kEngineRoles>{0, 1, 2}));
}

TEST_F(FaultyRunTest, ARunThatDoesNotEndIsKilledAtItsLimit) {
  ASSERT_TRUE(root().shell("mkfifo /never").succeeded());
  support::RunOptions options;
  options.limit = std::chrono::seconds(1);
  const FaultOutcome outcome = run({kCat, "/never"}, {{SYS_read}, EngineRole::Engine, 1, EIO}, options);
  EXPECT_TRUE(outcome.outcome.timedOut);
  EXPECT_TRUE(outcome.leftNobody);
}

TEST_F(FaultyRunTest, WhoOutlivesTheRunIsSeenAndKilled) {
  ASSERT_TRUE(root().shell("mkfifo /never").succeeded());
  const FaultOutcome outcome = shell(std::string(kOtherCat) + " /one /never & read line <&-; true", openFails(9));
  EXPECT_EQ(outcome.outcome.exitCode, 0) << outcome.outcome.description();
  EXPECT_FALSE(outcome.leftNobody);
}

TEST_F(FaultyRunTest, AProgramThatCannotBeStartedThrows) {
  EXPECT_THROW(static_cast<void>(run({"/no/InstallationDeployer"}, openFails(1))), support::PrivateRootError);
}

}  // namespace
}  // namespace tests
