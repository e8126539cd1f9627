#include <gtest/gtest.h>

#include "frontend/ProblemText.h"
#include "tests/unit/frontend/PrintedRun.h"

namespace frontend {
namespace {

TEST(ProblemText, HasALineForEachProblemAndCountsTheRest) {
  EXPECT_EQ(problemsText(someReport()),
            "/b/one is missing\n"
            "/b/t\\x1bwo is damaged\n"
            "    expected abc\n"
            "    found    def\n"
            "... and 7 more.\n");
}

TEST(ProblemText, CountsNoRestWhereThereIsNone) {
  deployer::BundleReport report = someReport();
  report.problemCount = report.problems.size();
  EXPECT_TRUE(problemsText(report).ends_with("    found    def\n"));
  EXPECT_EQ(problemsText({}), "");
}

}  // namespace
}  // namespace frontend
