#include <gtest/gtest.h>

#include "tools/rules/Problem.h"

namespace bundletool {
namespace {

TEST(Problem, NamesItsFileItsKeyAndWhatToDo) {
  EXPECT_EQ((Problem{"f", "A[0].B", "is wrong", "mend it"}.text()), "f: A[0].B: is wrong; mend it");
  EXPECT_EQ((Problem{"f", "", "is wrong", ""}.text()), "f: is wrong");
}

TEST(Problem, IsOneLineThatIsSafeToPrint) {
  EXPECT_EQ((Problem{"a\nb", "\x1b", "\r", "\x7f"}.text()), "a\\x0ab: \\x1b: \\x0d; \\x7f");
}

TEST(Problems, AreNoneWhileThereAreOnlyWarnings) {
  Problems problems;
  EXPECT_TRUE(problems.none());
  problems.warning({"f", "", "odd", ""});
  EXPECT_TRUE(problems.none());
  problems.error({"f", "", "first", ""});
  problems.error({"f", "", "second", ""});
  EXPECT_FALSE(problems.none());
  ASSERT_EQ(problems.errors().size(), 2U);
  EXPECT_EQ(problems.errors()[0].what, "first");
  EXPECT_EQ(problems.warnings().size(), 1U);
}

}  // namespace
}  // namespace bundletool
