#pragma once

#include <gtest/gtest.h>

#include <chrono>
#include <string>

#include "tests/sweep/SweepRoot.h"

namespace tests {

/// A sample of the faults that the sweep goes through, in the flow that the parameter names.
class SampleOfFaults : public ::testing::TestWithParam<std::string> {
 protected:
  void SetUp() override {
    if (const auto reason = support::PrivateRoot::whyImpossible(support::PrivateRoot::Way::Mounts)) {
      GTEST_SKIP() << *reason;
    }
    if (const auto reason = support::FaultyRun::whyImpossible()) {
      GTEST_SKIP() << *reason;
    }
  }

  /// Hands a check of the flow to the test.
  template <class Body>
  static void withCheck(Body body) {
    constexpr std::chrono::seconds kLimitOfABusyMachine{60};
    const sweep::Products products(CORVANE_ENGINE);
    sweep::SweepRoot place(products, CORVANE_STATUS_WATCHER);
    const sweep::Flow flow = sweep::makeFlow(place.root(), GetParam());
    sweep::FaultCheck check(place.root(), flow, kLimitOfABusyMachine);
    body(check);
  }
  static void expectNothingWrong(sweep::FaultCheck& check, const sweep::FaultPoint& point) {
    const sweep::Verdict verdict = check.check(point);
    for (const sweep::Finding& finding : verdict.findings) {
      ADD_FAILURE() << point.text() << " [" << verdict.call << "]: " << nameOfWrong(finding.wrong) << ' '
                    << finding.text;
    }
  }
};

}  // namespace tests
