#include <sys/resource.h>

#include "tests/integration/ProductLife.h"

namespace tests {
namespace {

using support::Outcome;
using support::RunOptions;
using support::Snapshot;

// Below this the system cannot load the engine: it has nothing left for the C library beside the standard three.
constexpr rlim_t kLeastToBeLoaded = 4;
constexpr rlim_t kMostTried = 64;
// From here on nothing depends on a single one.
constexpr rlim_t kLastThatMatters = 20;

/// The engine with few descriptors, and its helpers with as few.
class DescriptorLimit : public ProductLife {
 protected:
  Outcome installWith(rlim_t descriptors) {
    RunOptions options;
    options.limits = {{RLIMIT_NOFILE, descriptors}};
    return install(options);
  }
  /// Ends by itself, with 0 and the whole tree or with 1 and an Error; never by a signal.
  void expectTruth(const Outcome& outcome, rlim_t descriptors, const Snapshot& whole) {
    ASSERT_FALSE(outcome.timedOut) << descriptors << "\n" << outcome.standardError;
    ASSERT_EQ(outcome.signal, 0) << descriptors << "\n" << outcome.standardError;
    if (descriptors < kLeastToBeLoaded) {
      EXPECT_NE(outcome.exitCode, 0) << descriptors;
    } else if (outcome.exitCode == 0) {
      EXPECT_EQ(machine(), whole) << descriptors;
    } else {
      EXPECT_EQ(outcome.exitCode, 1) << descriptors << "\n" << outcome.standardError;
      EXPECT_TRUE(loggedAnything(outcome, "Error")) << descriptors << "\n" << outcome.standardError;
    }
    EXPECT_EQ(enginesRunning(), "") << descriptors;
  }
};

TEST_F(DescriptorLimit, OfAnyNumberAnInstallEndsByItselfWithTheTruth) {
  deliverBundle();
  ASSERT_EQ(install().exitCode, 0);
  const Snapshot whole = machine();
  rlim_t succeeded = 0;
  for (rlim_t descriptors = 3; descriptors <= kMostTried; descriptors += descriptors < kLastThatMatters ? 1 : 11) {
    beginAgain();
    deliverBundle();
    const Outcome outcome = installWith(descriptors);
    expectTruth(outcome, descriptors, whole);
    succeeded += outcome.exitCode == 0 ? 1U : 0U;
  }
  EXPECT_GE(succeeded, 5U);
}

TEST_F(DescriptorLimit, OfAnyNumberAnUpgradeEndsByItselfWithTheTruth) {
  installFirstVersion();
  deliverNewBundle();
  ASSERT_EQ(install().exitCode, 0);
  const Snapshot whole = machine();
  rlim_t succeeded = 0;
  for (rlim_t descriptors = 3; descriptors <= kMostTried; descriptors += descriptors < kLastThatMatters ? 1 : 11) {
    beginAgain();
    installFirstVersion();
    deliverNewBundle();
    const Outcome outcome = installWith(descriptors);
    expectTruth(outcome, descriptors, whole);
    succeeded += outcome.exitCode == 0 ? 1U : 0U;
  }
  EXPECT_GE(succeeded, 5U);
}

}  // namespace
}  // namespace tests
