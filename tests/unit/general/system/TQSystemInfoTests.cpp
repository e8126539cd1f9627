#include <gtest/gtest.h>
#include <unistd.h>

#include <functional>
#include <string>

#include "general/system/NSProcessInfoExtensions.h"
#include "general/system/SystemVersion.h"
#include "general/system/TQSystemInfo.h"
#include "tests/support/TemporaryDirectory.h"
#include "tests/unit/general/system/ChildRun.h"

namespace {

using platform::SystemVersion;
using platform::TQSystemInfo;
namespace processInfo = platform::NSProcessInfoExtensions;

std::string versionFile(const std::string& productVersion) {
  return "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<plist version=\"1.0\"><dict><key>ProductVersion</key><string>" +
         productVersion + "</string></dict></plist>\n";
}

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

TEST(SystemVersion, IsParsedFromUpToThreeNumbers) {
  EXPECT_EQ(platform::parseSystemVersion("10.6.8"), (SystemVersion{10, 6, 8}));
  EXPECT_EQ(platform::parseSystemVersion("11.0"), (SystemVersion{11, 0, 0}));
  EXPECT_EQ(platform::parseSystemVersion("12"), (SystemVersion{12, 0, 0}));
}

TEST(SystemVersion, IsNothingInAnyOtherText) {
  for (const char* const text :
       {"", ".", "10.", ".8", "10..8", "10.6.8.1", "10.6.8 ", " 10", "x", "-1", "10.-6", "99999999999", "10.6x"}) {
    EXPECT_EQ(platform::parseSystemVersion(text), std::nullopt) << text;
  }
}

TEST(PackedVersion, HasADigitEachForMinorAndBugFixAndTwoForMajor) {
  EXPECT_EQ(platform::packVersion({10, 6, 8}), 0x1068);
  EXPECT_EQ(platform::packVersion({10, 0, 0}), 0x1000);
  EXPECT_EQ(platform::packVersion({15, 2, 1}), 0x1521);
}

TEST(PackedVersion, StopsAtNine) {
  EXPECT_EQ(platform::packVersion({10, 4, 11}), 0x1049);
  EXPECT_EQ(platform::packVersion({10, 15, 7}), 0x1097);
  EXPECT_EQ(platform::packVersion({2000000000, 2000000000, 2000000000}), 0x9999);
}

TEST(PackedVersion, OfTenSixEightGivesItsThreeNumbers) {
  EXPECT_EQ(platform::unpackVersion(0x1068), (SystemVersion{10, 6, 8}));
  EXPECT_EQ(platform::unpackVersion(0x1521), (SystemVersion{15, 2, 1}));
}

TEST(VersionToReport, ComesFromThePackedFormBeforeTenFour) {
  const SystemVersion other{1, 2, 3};
  EXPECT_EQ(platform::versionToReport(0x1028, other), (SystemVersion{10, 2, 8}));
  EXPECT_EQ(platform::versionToReport(0x103F, other), (SystemVersion{10, 3, 15}));
  EXPECT_EQ(platform::versionToReport(0x1028, std::nullopt), (SystemVersion{10, 2, 8}));
}

TEST(VersionToReport, ComesFromTheNumbersFromTenFourOn) {
  EXPECT_EQ(platform::versionToReport(0x1040, SystemVersion{10, 4, 0}), (SystemVersion{10, 4, 0}));
  EXPECT_EQ(platform::versionToReport(0x1049, SystemVersion{10, 4, 11}), (SystemVersion{10, 4, 11}));
}

TEST(VersionToReport, IsTenZeroZeroWithoutTheNumbers) {
  EXPECT_EQ(platform::versionToReport(0x1049, std::nullopt), (SystemVersion{10, 0, 0}));
}

TEST(KernelMajor, IsFourAboveTheMinorOfTen) {
  EXPECT_EQ(platform::kernelMajorFor({10, 6, 8}), 10);
  EXPECT_EQ(platform::kernelMajorFor({10, 7, 0}), 11);
  EXPECT_EQ(platform::kernelMajorFor({10, 8, 5}), 12);
  EXPECT_EQ(platform::kernelMajorFor({10, 15, 7}), 19);
}

TEST(KernelMajor, GoesOnWithTheMajorAfterTen) {
  EXPECT_EQ(platform::kernelMajorFor({11, 0, 0}), 20);
  EXPECT_EQ(platform::kernelMajorFor({15, 1, 0}), 24);
  EXPECT_EQ(platform::kernelMajorFor({26, 0, 0}), 25);
}

TEST(KernelMajor, IsTheFirstFieldOfTheRelease) {
  EXPECT_EQ(platform::kernelMajorInRelease("12.5.0"), 12);
  EXPECT_EQ(platform::kernelMajorInRelease("24"), 24);
  EXPECT_EQ(platform::kernelMajorInRelease(""), 0);
  EXPECT_EQ(platform::kernelMajorInRelease("x.1"), 0);
}

TEST(KernelThresholds, LieAtTenAndThirteen) {
  EXPECT_FALSE(processInfo::isMacOSX7AndAbove(10));
  EXPECT_TRUE(processInfo::isMacOSX7AndAbove(11));
  EXPECT_TRUE(processInfo::isMacOSX7AndAbove(12));
  EXPECT_TRUE(processInfo::isMacOSX8AndBelow(12));
  EXPECT_FALSE(processInfo::isMacOSX8AndBelow(13));
}

TEST(SystemVersionFile, GivesItsProductVersion) {
  const tests::TemporaryDirectory directory;
  EXPECT_EQ(platform::systemVersionInFile(directory.write("v", versionFile("10.8.5"))), (SystemVersion{10, 8, 5}));
}

TEST(SystemVersionFile, ThatIsMissingMeansTheNewestKnown) {
  const tests::TemporaryDirectory directory;
  EXPECT_EQ(platform::systemVersionInFile(directory.path("v")), platform::kNewestKnownVersion);
  EXPECT_EQ(platform::systemVersionInFile(directory.path("no/folder/v")), platform::kNewestKnownVersion);
}

TEST(SystemVersionFile, ThatDoesNotHoldAVersionGivesNone) {
  const tests::TemporaryDirectory directory;
  EXPECT_EQ(platform::systemVersionInFile(directory.write("a", "garbage")), std::nullopt);
  EXPECT_EQ(platform::systemVersionInFile(directory.write("b", versionFile("ten"))), std::nullopt);
  EXPECT_EQ(platform::systemVersionInFile(directory.write(
                "c", "<plist version=\"1.0\"><dict><key>ProductVersion</key><integer>10</integer></dict></plist>")),
            std::nullopt);
  EXPECT_EQ(platform::systemVersionInFile(directory.write("d", "<plist version=\"1.0\"><dict/></plist>")),
            std::nullopt);
}

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
