#include <sys/syscall.h>

#include <cerrno>

#include "tests/integration/ProductLife.h"
#include "tests/support/FaultyRun.h"

namespace tests {
namespace {

using support::EngineRole;
using support::Fault;
using support::FaultOutcome;
using support::FaultyRun;

/// Upgrades in which one call of a conversation between two processes fails.
class ConversationWithFault : public ProductLife {
 protected:
  [[nodiscard]] std::optional<std::string> whyImpossible() override {
    const auto reason = ProductLife::whyImpossible();
    return reason ? reason : FaultyRun::whyImpossible();
  }
  FaultOutcome upgradeWith(const Fault& fault) {
    beginAgain();
    installFirstVersion();
    deliverNewBundle();
    support::RunOptions options;
    options.limit = std::chrono::seconds(60);
    return FaultyRun(root(), {kEngine, "--install"}, fault, options).finish();
  }
  void expectEndByItself(const FaultOutcome& run, const std::string& which) {
    ASSERT_FALSE(run.outcome.timedOut) << which << "\n" << run.outcome.standardError;
    EXPECT_EQ(run.outcome.signal, 0) << which << "\n" << run.outcome.standardError;
    EXPECT_TRUE(run.leftNobody) << which;
  }
};

using LostMessage = ConversationWithFault;
using UnreachableReceipt = ConversationWithFault;

TEST_F(LostMessage, OfAReceiptIsSaidOrAskedAgain) {
  struct Kind {
    const char* name;
    long call;
    int error;
  };
  for (const Kind& kind : {Kind{"connect", SYS_connect, ECONNREFUSED}, Kind{"sendto", SYS_sendto, EAGAIN}}) {
    for (const EngineRole role : {EngineRole::Engine, EngineRole::Receipt}) {
      for (unsigned long number = 1;; ++number) {
        const FaultOutcome run = upgradeWith({{kind.call}, role, number, kind.error});
        if (!run.reached) {
          EXPECT_GT(number, 1U) << kind.name;
          break;
        }
        const std::string which = run.call + " of " + std::string(support::nameOfRole(role));
        expectEndByItself(run, which);
        EXPECT_EQ(run.outcome.exitCode, 0) << which << "\n" << run.outcome.standardError;
      }
    }
  }
}

TEST_F(LostMessage, ThatTellsAReceiptToEndIsSaidAgain) {
  for (unsigned long number = 1;; ++number) {
    const FaultOutcome run = upgradeWith({{SYS_recvfrom}, EngineRole::Receipt, number, ECONNRESET});
    if (!run.reached) {
      EXPECT_GT(number, 1U);
      break;
    }
    expectEndByItself(run, run.call);
    EXPECT_TRUE(run.outcome.exitCode == 0 || loggedAnything(run.outcome, "Error")) << run.outcome.standardError;
  }
}

TEST_F(UnreachableReceipt, ThatCannotVendAServiceEndsByItselfAndFailsTheRun) {
  constexpr unsigned long kServices = 2;
  for (unsigned long number = 1; number <= kServices; ++number) {
    const FaultOutcome run = upgradeWith({{SYS_listen}, EngineRole::Receipt, number, EADDRINUSE});
    ASSERT_TRUE(run.reached);
    expectEndByItself(run, run.call);
    EXPECT_EQ(run.outcome.exitCode, 1) << run.outcome.standardError;
    EXPECT_EQ(logged(run.outcome, "Error",
                     "The receipt process " + std::string(kReceiptEngine) +
                         " ended before its services could be reached (exit status 1)."),
              1)
        << run.outcome.standardError;
  }
}

}  // namespace
}  // namespace tests
