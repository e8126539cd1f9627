#include <gtest/gtest.h>

#include <fstream>

#include "InstallationDeployer/checks/BundleCheck.h"
#include "tests/support/CapturedLog.h"
#include "tests/unit/InstallationDeployer/checks/CheckedBundle.h"

namespace deployer {
namespace {

using Kind = BundleProblem::Kind;
using foundation::PropertyList;
using tests::CheckedBundle;

/// A bundle with the products Guard and Light, of one component each.
class CheckingABundle : public ::testing::Test {
 protected:
  CheckingABundle() {
    bundle_.writeIndex(PropertyList::dictionary(
        {{"Products",
          PropertyList::dictionary({{"Guard", CheckedBundle::product({CheckedBundle::localPayload({"Core"})})},
                                    {"Light", CheckedBundle::product({CheckedBundle::localPayload({"Small"})})}})}}));
    bundle_.writeManifest("Core", CheckedBundle::component({CheckedBundle::file("/opt/core", "core")}));
    bundle_.writeManifest("Small", CheckedBundle::component({CheckedBundle::file("/opt/small", "small")}));
    core_ = bundle_.store("Core", "core");
    small_ = bundle_.store("Small", "small");
  }
  BundleReport check(std::optional<std::string> product = std::nullopt, bool comparesChecksums = true) {
    const tests::CapturedLog quiet;
    CheckProgress progress;
    return checkBundle({bundle_.path(), std::move(product), comparesChecksums}, progress);
  }

  CheckedBundle bundle_;
  std::string core_;
  std::string small_;
};

TEST_F(CheckingABundle, FindsAWholeOneFitAndCountsIt) {
  const BundleReport report = check();
  EXPECT_TRUE(report.isFit());
  EXPECT_EQ(report.files, 2U);
  EXPECT_EQ(report.bytes, 9U);
  EXPECT_TRUE(report.comparedChecksums);
}

TEST_F(CheckingABundle, LooksAtTheProductAskedForAndElseAtEach) {
  std::ofstream(small_) << "damaged";
  EXPECT_TRUE(check("Guard").isFit());
  EXPECT_EQ(check("Light").problemCount, 1U);
  EXPECT_EQ(check().problemCount, 1U);
}

TEST_F(CheckingABundle, LeavesAProductThatIsNotThereToTheEngine) {
  std::ofstream(core_) << "damaged";
  EXPECT_TRUE(check("Unknown").isFit());
}

TEST_F(CheckingABundle, ComparesNoChecksumsUnlessAskedTo) {
  std::ofstream(core_) << "damaged";
  const BundleReport report = check(std::nullopt, false);
  EXPECT_TRUE(report.isFit());
  EXPECT_FALSE(report.comparedChecksums);
  std::filesystem::remove(core_);
  EXPECT_EQ(check(std::nullopt, false).problemCount, 1U) << "the rest is looked at all the same";
}

TEST_F(CheckingABundle, FindsMissingAndDamagedFilesTogether) {
  std::filesystem::remove(small_);
  std::ofstream(core_) << "damaged";
  const BundleReport report = check();
  ASSERT_EQ(report.problemCount, 2U);
  EXPECT_EQ(report.problems[0].kind, Kind::Missing);
  EXPECT_EQ(report.problems[1].kind, Kind::Checksum);
  EXPECT_FALSE(report.lacksOnlySpace());
}

TEST_F(CheckingABundle, TellsWhenSpaceIsAllThatIsLacking) {
  const PropertyList core = CheckedBundle::component({CheckedBundle::file("/opt/core", "core")});
  bundle_.writeManifest("Core", core.with("ComponentSize", std::int64_t{1} << 62U));
  const BundleReport report = check("Guard");
  EXPECT_TRUE(report.lacksOnlySpace());
  ASSERT_EQ(report.problemCount, 1U);
  EXPECT_EQ(report.problems.front().file, "/");
  EXPECT_EQ(report.problems.front().expected, std::to_string(std::int64_t{1} << 62U));
  std::filesystem::remove(core_);
  EXPECT_FALSE(check("Guard").lacksOnlySpace());
}

TEST_F(CheckingABundle, OfARemovalNeedsTheIndexOnly) {
  const tests::CapturedLog quiet;
  std::filesystem::remove_all(bundle_.path("Contents/Install/Root"));
  EXPECT_TRUE(checkReceipt(bundle_.path()).isFit());
  const std::string index = bundle_.path("Contents/Install/Manifests/Index.plist");
  std::ofstream(index) << "<plist";
  const BundleReport report = checkReceipt(bundle_.path());
  ASSERT_EQ(report.problemCount, 1U);
  EXPECT_EQ(report.problems.front().kind, Kind::Malformed);
  EXPECT_EQ(report.problems.front().file, index);
  std::filesystem::remove(index);
  EXPECT_TRUE(checkReceipt(bundle_.path()).isFit()) << "another removal may be done";
}

}  // namespace
}  // namespace deployer
