#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <iterator>
#include <string>
#include <string_view>
#include <vector>

#include "tests/sweep/SweepRoot.h"

namespace tests {
namespace {

using support::EngineRole;
using support::FaultyRun;
using support::PrivateRoot;
using sweep::FaultCheck;
using sweep::FaultPoint;

constexpr std::chrono::seconds kLimitOfABusyMachine{60};

/// Some spread over the run, and the last of each process, where threads and statics end and nobody catches.
std::vector<FaultPoint> sampleOf(const std::vector<FaultPoint>& points, EngineRole role) {
  constexpr std::size_t kSpread = 4;
  constexpr std::size_t kLast = 6;
  std::vector<FaultPoint> own;
  std::ranges::copy_if(points, std::back_inserter(own), [&](const FaultPoint& point) { return point.role == role; });
  std::vector<FaultPoint> sample;
  for (std::size_t index = 0; index < own.size(); ++index) {
    const bool isSpread = index % (own.size() / kSpread + 1) == 0;
    if (isSpread || index + kLast >= own.size()) {
      sample.push_back(own[index]);
    }
  }
  return sample;
}

class AllocationSample : public ::testing::TestWithParam<std::string> {
 protected:
  void SetUp() override {
    if (std::string_view(CORVANE_SANITIZERS) != "") {
      GTEST_SKIP() << "a sanitizer brings an allocator of its own, which no other library may replace";
    }
    if (const auto reason = PrivateRoot::whyImpossible(PrivateRoot::Way::Mounts)) {
      GTEST_SKIP() << *reason;
    }
    if (const auto reason = FaultyRun::whyImpossible()) {
      GTEST_SKIP() << *reason;
    }
  }

  static void expectNothingWrong(FaultCheck& check, const FaultPoint& point) {
    const sweep::Verdict verdict = check.check(point);
    for (const sweep::Finding& finding : verdict.findings) {
      ADD_FAILURE() << point.text() << " [" << verdict.call << "]: " << nameOfWrong(finding.wrong) << ' '
                    << finding.text;
    }
  }
};

TEST_P(AllocationSample, NoFailingAllocationMakesARunLieOrIsFinal) {
  const sweep::Products products(CORVANE_ENGINE);
  sweep::SweepRoot place(products, CORVANE_STATUS_WATCHER);
  const sweep::Flow flow = sweep::makeFlow(place.root(), GetParam());
  FaultCheck check(place.root(), flow, kLimitOfABusyMachine);
  const std::vector<FaultPoint> points = check.allocationPoints();
  ASSERT_FALSE(points.empty());
  for (const EngineRole role : {EngineRole::Engine, EngineRole::Receipt}) {
    for (const FaultPoint& point : sampleOf(points, role)) {
      expectNothingWrong(check, point);
    }
  }
}

INSTANTIATE_TEST_SUITE_P(OfSmallRuns, AllocationSample, ::testing::Values("install", "upgrade", "removal"),
                         [](const auto& flow) { return flow.param; });

}  // namespace
}  // namespace tests
