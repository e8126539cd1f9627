#include <gtest/gtest.h>

#include "tools/rules/Problem.h"

namespace bundletool {
namespace {

TEST(Problem, NamesItsFileItsKeyAndWhatToDo) {
  EXPECT_EQ((Problem{"f", "A[0].B", "is wrong", "mend it"}.text()), "f: A[0].B: is wrong; mend it");
  EXPECT_EQ((Problem{"f", "", "is wrong", ""}.text()), "f: is wrong");
  EXPECT_EQ((Problem{"f", "", "is odd", "", "odd-thing"}.text()), "[odd-thing] f: is odd");
}

TEST(Problem, IsOneLineThatIsSafeToPrint) {
  EXPECT_EQ((Problem{"a\nb", "\x1b", "\r", "\x7f"}.text()), "a\\x0ab: \\x1b: \\x0d; \\x7f");
}

TEST(Problems, AreNoneWhileThereAreOnlyWarnings) {
  Problems problems;
  EXPECT_TRUE(problems.none());
  problems.warning("odd-thing", {"f", "", "odd", ""});
  EXPECT_TRUE(problems.none());
  problems.error({"f", "", "first", ""});
  problems.error({"f", "", "second", ""});
  EXPECT_FALSE(problems.none());
  ASSERT_EQ(problems.errors().size(), 2U);
  EXPECT_EQ(problems.errors()[0].what, "first");
  EXPECT_EQ(problems.warnings().size(), 1U);
}

TEST(Problems, KeepNoWarningsOfASilencedName) {
  Problems problems;
  problems.silence("odd-thing");
  problems.warning("odd-thing", {"f", "", "odd", ""});
  problems.warning("other-thing", {"f", "", "other", ""});
  ASSERT_EQ(problems.warnings().size(), 1U);
  EXPECT_EQ(problems.warnings()[0].name, "other-thing");
}

}  // namespace
}  // namespace bundletool
