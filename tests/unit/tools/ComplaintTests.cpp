#include <gtest/gtest.h>

#include <algorithm>
#include <string>

#include "tools/Complaint.h"

namespace {

/// What is printed on standard error.
template <class Work>
std::string printedBy(const Work& work) {
  testing::internal::CaptureStderr();
  work();
  return testing::internal::GetCapturedStderr();
}

TEST(Complaint, BeginsWithTheNameOfTheTool) {
  EXPECT_EQ(printedBy([] { bundletool::complain("no"); }), "installer-tool: no\n");
}

TEST(Complaint, TellsWarningsBeforeErrors) {
  bundletool::Problems problems;
  problems.error({"f", "K", "bad", "mend it"});
  problems.warning("odd-thing", {"f", "", "odd", ""});
  EXPECT_EQ(printedBy([&] { bundletool::complainOf(problems); }),
            "installer-tool: warning: [odd-thing] f: odd\ninstaller-tool: f: K: bad; mend it\n");
}

TEST(Complaint, TellsTheFirstOfVeryManyAndCountsTheRest) {
  bundletool::Problems problems;
  for (int problem = 0; problem < 103; ++problem) {
    problems.error({"f", "", "bad", ""});
  }
  const std::string printed = printedBy([&] { bundletool::complainOf(problems); });
  EXPECT_EQ(std::ranges::count(printed, '\n'), 101);
  EXPECT_TRUE(printed.ends_with("installer-tool: and 3 more like these\n")) << printed;
}

}  // namespace
