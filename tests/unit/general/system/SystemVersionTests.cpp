#include <gtest/gtest.h>

#include <optional>

#include "general/system/SystemVersion.h"
#include "tests/support/TemporaryDirectory.h"
#include "tests/unit/general/system/VersionFile.h"

namespace {

using platform::SystemVersion;
using tests::versionFile;

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

}  // namespace
