#include <gtest/gtest.h>
#include <unistd.h>

#include <cstdint>

#include "InstallationDeployer/checks/SpaceOutlook.h"
#include "general/foundation/files/FileManager.h"
#include "tests/unit/InstallationDeployer/checks/CheckedBundle.h"

namespace deployer {
namespace {

using foundation::PropertyList;
using tests::CheckedBundle;

constexpr std::int64_t kTooMuch = std::int64_t{1} << 62U;

class SpaceForABundle : public ::testing::Test {
 protected:
  void writeProduct(std::int64_t bytes, CheckedBundle::Entries entries = {}) {
    bundle_.writeIndex(index_);
    bundle_.writeManifest("Core", CheckedBundle::component(std::move(entries)).with("ComponentSize", bytes));
  }
  std::optional<SpaceShortage> shortage(const std::vector<std::string>& products = {"Guard"}) {
    QVNInstallerManifest manifest(bundle_.path());
    return spaceShortageFor(manifest, products);
  }

  CheckedBundle bundle_;
  PropertyList index_ = CheckedBundle::indexOfComponents("Guard", {"Core", "Core"});
};

TEST_F(SpaceForABundle, IsEnoughForWhatFits) {
  writeProduct(1);
  EXPECT_FALSE(shortage());
}

TEST_F(SpaceForABundle, IsTheSumOfComponentsEachOnceAndOfTheReceipt) {
  index_ = index_.with("ReceiptSize", 20).with("PayloadSize", 300).with("ReceiptHasPayloadContents", true);
  writeProduct(kTooMuch);
  const auto found = shortage();
  ASSERT_TRUE(found);
  EXPECT_EQ(found->required, kTooMuch + 320);
  EXPECT_LT(found->free, kTooMuch);
}

TEST_F(SpaceForABundle, IsEnoughWhenOneOfSeveralProductsFits) {
  const PropertyList products =
      index_["Products"].with("Light", CheckedBundle::product({CheckedBundle::localPayload({"Small"})}));
  index_ = index_.with("Products", products);
  writeProduct(kTooMuch);
  bundle_.writeManifest("Small", CheckedBundle::component({}));
  EXPECT_TRUE(shortage({"Guard"}));
  EXPECT_FALSE(shortage({"Guard", "Light"}));
}

TEST_F(SpaceForABundle, CountsWhatTheInstallMayRemoveFirstAsFree) {
  const std::string installed = bundle_.directory().write("installed", "");
  const std::int64_t bytes = std::int64_t{1} << 43U;
  if (truncate(installed.c_str(), bytes) != 0) {
    GTEST_SKIP() << "this file system holds no files of that size";
  }
  const auto volume = foundation::files::attributesOfFileSystem("/");
  ASSERT_TRUE(volume);
  if (volume->freeBytes >= static_cast<std::uint64_t>(bytes)) {
    GTEST_SKIP() << "there is room for anything here";
  }
  writeProduct(bytes);
  EXPECT_TRUE(shortage());
  writeProduct(bytes, {CheckedBundle::entry(installed, {})});
  EXPECT_FALSE(shortage());
}

TEST_F(SpaceForABundle, IsNotJudgedWhenWhatIsRemovedCannotBeCounted) {
  const std::string folder = bundle_.directory().makeDirectory("installed");
  writeProduct(kTooMuch, {CheckedBundle::PropertyLists::directory(folder, {{"RemoveDirectoryAndContents", true}})});
  EXPECT_FALSE(shortage());
  writeProduct(kTooMuch,
               {CheckedBundle::PropertyLists::directory("/nowhere/installed", {{"RemoveDirectoryAndContents", true}})});
  EXPECT_TRUE(shortage());
}

TEST_F(SpaceForABundle, IsNotAskedForByAnIndexThatContradictsItself) {
  index_ = CheckedBundle::indexOf("Guard", CheckedBundle::product({PropertyList::dictionary()}));
  writeProduct(kTooMuch);
  EXPECT_FALSE(shortage());
}

}  // namespace
}  // namespace deployer
