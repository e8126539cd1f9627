#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <string>
#include <string_view>
#include <vector>

#include "tests/integration/SampleOfFaults.h"

namespace tests {
namespace {

using sweep::FaultPoint;

bool hasSanitizers() { return std::string_view(CORVANE_SANITIZERS) != ""; }

/// Whether only the engine itself makes such calls: the runtime of a sanitizer does not bear to be refused its own.
bool isTheEnginesOwn(const FaultPoint& point) {
  constexpr std::array<std::string_view, 12> kOwn = {"rename", "link",  "symlink", "mkdir",  "unlink", "chmod",
                                                     "chown",  "flock", "sync",    "statfs", "bind",   "connect"};
  return std::ranges::find(kOwn, point.kind) != kOwn.end();
}

/// One call of every kind and of every process that makes it, chosen by chance but always the same; few of them in a
/// build whose runs take long.
std::vector<FaultPoint> sampleOf(std::vector<FaultPoint> points) {
  sweep::mix(points);
  std::vector<FaultPoint> sample = sweep::firstOfEachKind(points);
  if (hasSanitizers()) {
    constexpr std::size_t kFew = 4;
    std::erase_if(sample, [](const FaultPoint& point) { return !isTheEnginesOwn(point); });
    sample.resize(std::min(sample.size(), kFew));
  }
  return sample;
}

using FaultSample = SampleOfFaults;

TEST_P(FaultSample, NoFailingCallMakesARunLieOrIsFinal) {
  withCheck([](sweep::FaultCheck& check) {
    for (const FaultPoint& point : sampleOf(check.points())) {
      expectNothingWrong(check, point);
    }
  });
}

INSTANTIATE_TEST_SUITE_P(OfEachKind, FaultSample, ::testing::ValuesIn(sweep::flowNames()), [](const auto& flow) {
  std::string name = flow.param;
  std::erase(name, '-');
  return name;
});

}  // namespace
}  // namespace tests
