#include <gtest/gtest.h>

#include <algorithm>
#include <iterator>
#include <string>
#include <string_view>
#include <vector>

#include "tests/integration/SampleOfFaults.h"

namespace tests {
namespace {

using support::EngineRole;
using sweep::FaultPoint;

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

class AllocationSample : public SampleOfFaults {
 protected:
  void SetUp() override {
    if (std::string_view(CORVANE_SANITIZERS) != "") {
      GTEST_SKIP() << "a sanitizer brings an allocator of its own, which no other library may replace";
    }
    SampleOfFaults::SetUp();
  }
};

TEST_P(AllocationSample, NoFailingAllocationMakesARunLieOrIsFinal) {
  withCheck([](sweep::FaultCheck& check) {
    const std::vector<FaultPoint> points = check.allocationPoints();
    ASSERT_FALSE(points.empty());
    for (const EngineRole role : {EngineRole::Engine, EngineRole::Receipt}) {
      for (const FaultPoint& point : sampleOf(points, role)) {
        expectNothingWrong(check, point);
      }
    }
  });
}

INSTANTIATE_TEST_SUITE_P(OfSmallRuns, AllocationSample, ::testing::Values("install", "upgrade", "removal"),
                         [](const auto& flow) { return flow.param; });

}  // namespace
}  // namespace tests
