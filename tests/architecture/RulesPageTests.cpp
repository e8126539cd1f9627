#include <gtest/gtest.h>

#include <stdexcept>
#include <string>

#include "tests/architecture/RulesPage.h"

namespace {

using architecture::Problems;

const architecture::Row kHeader = {"Promise", "Shown by"};
const std::string kTable = "# Rules\n\n| Promise | Shown by |\n|---|---|\n";

TEST(RulesPage, GivesTheRulesOfAllItsTables) {
  const auto rules = architecture::rulesOn(kTable + "| one | `A.One`, `A.Two` |\n\n" + kTable + "| two | |\n", kHeader);
  ASSERT_EQ(rules.size(), 2U);
  EXPECT_EQ(rules[0].promise, "one");
  EXPECT_EQ(rules[0].tests, (std::vector<std::string>{"A.One", "A.Two"}));
  EXPECT_EQ(rules[1].promise, "two");
  EXPECT_TRUE(rules[1].tests.empty());
}

TEST(RulesPage, WithoutARuleIsRefused) {
  EXPECT_THROW(architecture::rulesOn("# Rules\n", kHeader), std::runtime_error);
  EXPECT_THROW(architecture::rulesOn(kTable, kHeader), std::runtime_error);
}

TEST(RulesPage, KnowsATestByItsMacro) {
  EXPECT_EQ(
      architecture::testsIn("\nTEST(A, One) {}\nTEST_F(B,\n       Two) {\nTEST_P(C, Three) {}\n// TEST(D, Four)\n"),
      (std::set<std::string>{"A.One", "B.Two", "C.Three"}));
}

TEST(RulesPage, IsWrongAboutATestThatIsNotThere) {
  EXPECT_EQ(architecture::rulesWithoutTests({{"nothing is lost", {"A.One", "A.Two"}}}, {"A.One"}),
            Problems{"the test A.Two is not there; it shows: nothing is lost"});
}

TEST(RulesPage, GuessesWhatATestIsCalledNow) {
  EXPECT_EQ(architecture::rulesWithoutTests({{"nothing is lost", {"A.One"}}}, {"B.One", "C.One", "D.Two"}),
            Problems{"the test A.One is not there (perhaps it is now B.One or C.One); it shows: nothing is lost"});
}

TEST(RulesPage, IsWrongAboutARuleWithoutATest) {
  EXPECT_EQ(architecture::rulesWithoutTests({{"nothing is lost", {}}}, {"A.One"}),
            Problems{"no test is named for: nothing is lost"});
}

}  // namespace
