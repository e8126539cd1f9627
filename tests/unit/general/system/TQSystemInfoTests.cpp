#include <gtest/gtest.h>
#include <unistd.h>

#include <functional>
#include <string>

#include "general/system/NSProcessInfoExtensions.h"
#include "general/system/TQSystemInfo.h"
#include "tests/support/TemporaryDirectory.h"
#include "tests/unit/general/system/ChildRun.h"
#include "tests/unit/general/system/VersionFile.h"

namespace {

using platform::TQSystemInfo;
using tests::versionFile;
namespace processInfo = platform::NSProcessInfoExtensions;

/// Whether a question is answered with yes on a machine whose version file has this content.
class Machine {
 public:
  explicit Machine(const std::string& fileContent) {
    root_.write("System/Library/CoreServices/SystemVersion.plist", fileContent);
  }
  [[nodiscard]] bool answers(const std::function<bool()>& question) const {
    const int result = tests::runInChild([&] {
      if (chroot(root_.path().c_str()) != 0) {
        return 2;
      }
      return question() ? 0 : 1;
    });
    EXPECT_NE(result, 2) << "cannot enter the machine's root";
    return result == 0;
  }

 private:
  tests::TemporaryDirectory root_;
};

class TQSystemInfoTest : public ::testing::Test {
 protected:
  void SetUp() override {
    if (geteuid() != 0) {
      GTEST_SKIP() << "only root may change its root directory";
    }
  }
};

TEST_F(TQSystemInfoTest, ReportsTheThreeNumbersAndTheirText) {
  const Machine machine(versionFile("10.6.8"));
  EXPECT_TRUE(machine.answers([] {
    const foundation::PropertyList version = TQSystemInfo::systemVersion();
    return version.count() == 3 && version["Major"].integer() == 10 && version["Minor"].integer() == 6 &&
           version["BugFix"].integer() == 8;
  }));
  EXPECT_TRUE(machine.answers([] { return TQSystemInfo::systemVersionString() == "10.6.8"; }));
}

TEST_F(TQSystemInfoTest, ReportsNumbersBeyondOneDigitInFull) {
  EXPECT_TRUE(Machine(versionFile("10.4.11")).answers([] { return TQSystemInfo::systemVersionString() == "10.4.11"; }));
  EXPECT_TRUE(Machine(versionFile("15.1")).answers([] { return TQSystemInfo::systemVersionString() == "15.1.0"; }));
}

TEST_F(TQSystemInfoTest, ReportsTenZeroZeroAndNoComparisonWhenTheSystemDoesNotSay) {
  const Machine machine("garbage");
  EXPECT_TRUE(machine.answers([] { return TQSystemInfo::systemVersionString() == "10.0.0"; }));
  EXPECT_FALSE(machine.answers([] { return TQSystemInfo::isVersionBetween(0, 0xFFFF); }));
  EXPECT_FALSE(machine.answers([] { return TQSystemInfo::isVersionAtLeast(0); }));
}

TEST_F(TQSystemInfoTest, ComparesThePackedVersion) {
  const Machine machine(versionFile("10.6.8"));
  EXPECT_TRUE(machine.answers([] { return TQSystemInfo::isVersionBetween(0x1068, 0x1069); }));
  EXPECT_FALSE(machine.answers([] { return TQSystemInfo::isVersionBetween(0x1060, 0x1068); }));
  EXPECT_FALSE(machine.answers([] { return TQSystemInfo::isVersionBetween(0x1069, 0x1070); }));
  EXPECT_TRUE(machine.answers([] { return TQSystemInfo::isVersionAtLeast(0x1068); }));
  EXPECT_FALSE(machine.answers([] { return TQSystemInfo::isVersionAtLeast(0x1069); }));
}

TEST_F(TQSystemInfoTest, IsRunningLionFrom1070To107fAndNotFrom1080On) {
  EXPECT_FALSE(Machine(versionFile("10.6.9")).answers(&TQSystemInfo::isRunningLion));
  EXPECT_TRUE(Machine(versionFile("10.7.0")).answers(&TQSystemInfo::isRunningLion));
  EXPECT_TRUE(Machine(versionFile("10.7.15")).answers(&TQSystemInfo::isRunningLion));
  EXPECT_FALSE(Machine(versionFile("10.8.0")).answers(&TQSystemInfo::isRunningLion));
}

TEST_F(TQSystemInfoTest, EveryReleaseOfTenIsKnownByItsName) {
  bool (*const tests[])() = {&TQSystemInfo::isRunningCheetah,     &TQSystemInfo::isRunningPuma,
                             &TQSystemInfo::isRunningJaguar,      &TQSystemInfo::isRunningPanther,
                             &TQSystemInfo::isRunningTiger,       &TQSystemInfo::isRunningLeopard,
                             &TQSystemInfo::isRunningSnowLeopard, &TQSystemInfo::isRunningLion};
  for (int minor = 0; minor <= 8; ++minor) {
    const Machine machine(versionFile("10." + std::to_string(minor) + ".3"));
    for (int name = 0; name < 8; ++name) {
      EXPECT_EQ(machine.answers(tests[name]), name == minor) << "10." << minor << " and name " << name;
    }
    EXPECT_EQ(machine.answers(&TQSystemInfo::isAtLeastRunningLeopard), minor >= 5);
    EXPECT_EQ(machine.answers(&TQSystemInfo::isAtLeastRunningSnowLeopard), minor >= 6);
  }
}

TEST_F(TQSystemInfoTest, TheKernelMajorFollowsTheVersionFile) {
  EXPECT_TRUE(Machine(versionFile("10.8.5")).answers([] { return processInfo::systemMajorNumber() == 12; }));
  EXPECT_TRUE(Machine(versionFile("10.8.5")).answers([] { return processInfo::isMacOSX8AndBelow(); }));
  EXPECT_FALSE(Machine(versionFile("10.9")).answers([] { return processInfo::isMacOSX8AndBelow(); }));
  EXPECT_FALSE(Machine(versionFile("10.6.8")).answers([] { return processInfo::isMacOSX7AndAbove(); }));
}

TEST_F(TQSystemInfoTest, AMachineWithoutAVersionFileCountsAsNewerThanTenEight) {
  const tests::TemporaryDirectory empty;
  const int result = tests::runInChild([&empty] {
    if (chroot(empty.path().c_str()) != 0) {
      return 2;
    }
    const bool newer = TQSystemInfo::isVersionAtLeast(0x1090) && !processInfo::isMacOSX8AndBelow();
    return newer && processInfo::isMacOSX7AndAbove() ? 0 : 1;
  });
  EXPECT_EQ(result, 0);
}

}  // namespace
