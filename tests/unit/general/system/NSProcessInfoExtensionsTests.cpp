#include <gtest/gtest.h>

#include "general/system/NSProcessInfoExtensions.h"

namespace {

namespace processInfo = platform::NSProcessInfoExtensions;

TEST(KernelThresholds, LieAtTenAndThirteen) {
  EXPECT_FALSE(processInfo::isMacOSX7AndAbove(10));
  EXPECT_TRUE(processInfo::isMacOSX7AndAbove(11));
  EXPECT_TRUE(processInfo::isMacOSX7AndAbove(12));
  EXPECT_TRUE(processInfo::isMacOSX8AndBelow(12));
  EXPECT_FALSE(processInfo::isMacOSX8AndBelow(13));
}

}  // namespace
