#include <gtest/gtest.h>
#include <unistd.h>

#include "general/system/ProgramName.h"

namespace platform {
namespace {

TEST(ProgramName, IsTheOneInTheTableOfProcesses) {
  const auto name = programNameOf(getpid());
  ASSERT_TRUE(name);
  EXPECT_TRUE(name->starts_with("system_tests")) << *name;
}

TEST(ProgramName, OfNoProcessIsNone) { EXPECT_FALSE(programNameOf(-1)); }

}  // namespace
}  // namespace platform
