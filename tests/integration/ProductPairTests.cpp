#include "tests/integration/PairInRoot.h"

namespace tests {
namespace {

/// What runs that nothing disturbs make of each start: the promise that all others are held against.
class PairOfVersions : public PairInRoot, public ::testing::WithParamInterface<std::tuple<Start, Way>> {};

TEST_P(PairOfVersions, EndsWithExactlyThePromisedTree) {
  const auto [start, way] = GetParam();
  machine().begin(start);
  const auto outcome = machine().go(way);
  EXPECT_EQ(outcome.exitCode, 0) << errorsOf(outcome);
  EXPECT_EQ(machine().whatIsWrong(start, way, Story::Undisturbed), "");
}

std::string nameOfPromise(const ::testing::TestParamInfo<std::tuple<Start, Way>>& promise) {
  const char* starts[] = {"FromNothing", "FromTheFirstVersion", "FromTheSecondVersion", "FromTheOlderProduct"};
  const char* ways[] = {"ToTheFirst", "ToTheSecond", "ToNothing"};
  const auto [start, way] = promise.param;
  return std::string(starts[static_cast<int>(start)]) + ways[static_cast<int>(way)];
}

INSTANTIATE_TEST_SUITE_P(FromEveryStart, PairOfVersions,
                         ::testing::Combine(::testing::Values(Start::Nothing, Start::First, Start::Second,
                                                              Start::Classic),
                                            ::testing::Values(Way::First, Way::Second, Way::Removal)),
                         nameOfPromise);

TEST(ProductPairKinds, AreManyAndEachShowsInOneOfTheTrees) {
  EXPECT_GE(ProductPair::kindsOfChange().size(), 23U);
  EXPECT_NE(difference(ProductPair::tree(ProductPair::Version::First), ProductPair::tree(ProductPair::Version::Second)),
            "");
}

}  // namespace
}  // namespace tests
