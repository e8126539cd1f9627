#include <csignal>

#include "tests/integration/PrivateRootTest.h"
#include "tests/support/KilledRun.h"

namespace {

using support::KilledOutcome;
using support::KilledRun;
using support::KillMoment;
using support::PrivateRoot;
using support::PrivateRootError;
using tests::PrivateRootTest;
using tests::wayName;

class KilledRunTest : public PrivateRootTest {
 protected:
  void SetUp() override {
    PrivateRootTest::SetUp();
    if (const auto reason = KilledRun::whyImpossible(); reason && !IsSkipped()) {
      GTEST_SKIP() << *reason;
    }
  }

  KilledOutcome makeFolders(unsigned long number, KillMoment::When when) {
    KillMoment moment;
    moment.calls = KilledRun::nameAndAttributeChanges();
    moment.number = number;
    moment.when = when;
    return KilledRun::run(root(), {"/bin/mkdir", "/one", "/two", "/three"}, moment);
  }
};

INSTANTIATE_TEST_SUITE_P(BothWays, KilledRunTest, ::testing::Values(PrivateRoot::Way::Mounts, PrivateRoot::Way::Copies),
                         wayName);

TEST_P(KilledRunTest, KillsBeforeTheCallHasItsEffect) {
  const KilledOutcome killed = makeFolders(2, KillMoment::When::Before);
  EXPECT_TRUE(killed.reached);
  EXPECT_EQ(killed.outcome.signal, SIGKILL);
  EXPECT_TRUE(root().exists("/one"));
  EXPECT_FALSE(root().exists("/two"));
}

TEST_P(KilledRunTest, KillsAfterTheCallHasHadItsEffect) {
  const KilledOutcome killed = makeFolders(2, KillMoment::When::After);
  EXPECT_TRUE(killed.reached);
  EXPECT_EQ(killed.outcome.signal, SIGKILL);
  EXPECT_TRUE(root().exists("/two"));
  EXPECT_FALSE(root().exists("/three"));
}

TEST_P(KilledRunTest, LetsTheProgramEndWhenTheMomentNeverComes) {
  const KilledOutcome ended = makeFolders(4, KillMoment::When::Before);
  EXPECT_FALSE(ended.reached);
  EXPECT_EQ(ended.callsSeen, 3U);
  EXPECT_EQ(ended.outcome.exitCode, 0);
  EXPECT_TRUE(root().exists("/three"));
}

TEST_P(KilledRunTest, DoesNotFollowTheProgramsChildren) {
  KillMoment moment;
  moment.calls = KilledRun::nameAndAttributeChanges();
  const KilledOutcome ended = KilledRun::run(root(), {"/bin/sh", "-c", "mkdir /by-a-child; exit 5"}, moment);
  EXPECT_FALSE(ended.reached);
  EXPECT_EQ(ended.outcome.exitCode, 5);
  EXPECT_TRUE(root().exists("/by-a-child"));
}

TEST_P(KilledRunTest, SaysWhyAProgramCannotBeStarted) {
  EXPECT_THROW(static_cast<void>(KilledRun::run(root(), {"/no/such/program"}, KillMoment{})), PrivateRootError);
}

}  // namespace
