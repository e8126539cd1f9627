#include <string>

#include "general/foundation/propertylist/PropertyListFile.h"
#include "tests/integration/ProductLife.h"

// What runs do that begin with a receipt of which something is missing or cannot be read.
namespace tests {
namespace {

class DamagedReceipt : public ProductLife {
 protected:
  void prepare() override {
    ProductLife::prepare();
    before_ = machine();
    installFirstVersion();
  }
  static std::string manifestOf(const std::string& component) {
    return std::string(kReceipt) + "/Contents/Install/Manifests/" + component + ".plist";
  }
  void takeAway(const std::string& path) { ASSERT_TRUE(root().shell("rm -r '" + path + "'").succeeded()); }
  /// There, and no run can read it.
  void makeUnreadable(const std::string& path) {
    takeAway(path);
    root().makeDirectory(path);
  }

  support::Snapshot before_;
};

TEST_F(DamagedReceipt, ARemovalWithoutAManifestSaysSoAndRemovesWhatTheOthersList) {
  takeAway(manifestOf("Tools"));
  const auto outcome = removeProduct();
  EXPECT_EQ(outcome.exitCode, 0) << outcome.description();
  EXPECT_EQ(
      logged(outcome, "Warning",
             "The manifest of component Tools is missing or damaged: " + manifestOf("Tools") + ". Its files stay."),
      1)
      << outcome.description();
  EXPECT_FALSE(root().exists("/Library/Guard"));
  EXPECT_FALSE(root().exists("/opt/legacy"));
  EXPECT_EQ(root().readFile("/opt/tools/one"), "one");
  EXPECT_FALSE(root().exists(kReceipt));
}

TEST_F(DamagedReceipt, ARemovalWithoutTheIndexGoesByTheManifests) {
  takeAway(manifestOf("Index"));
  const auto outcome = removeProduct();
  EXPECT_EQ(outcome.exitCode, 0) << outcome.description();
  EXPECT_TRUE(loggedBeginning(outcome, "Warning", "The manifest index is missing or damaged: " + manifestOf("Index")));
  EXPECT_EQ(machine(), before_) << support::listing(machine());
}

TEST_F(DamagedReceipt, ARemovalWithoutTheIndexLeavesWhatTheReceiptOfAnotherProductCountsAsItsOwn) {
  takeAway(manifestOf("Index"));
  const auto index =
      foundation::plist::serialize(indexOfComponents("Shield", {"Tools"}), foundation::plist::Format::Xml);
  root().writeFile("/Library/Application Support/Corvane/Shield/Installer.app/Contents/Install/Manifests/Index.plist",
                   *index);
  EXPECT_EQ(removeProduct().exitCode, 0);
  EXPECT_EQ(root().readFile("/opt/tools/one"), "one");
  EXPECT_FALSE(root().exists("/Library/Guard"));
}

TEST_F(DamagedReceipt, ARemovalThatCannotReadAManifestEndsBeforeAnythingIsRemoved) {
  for (const char* const name : {"Legacy", "Index"}) {
    makeUnreadable(manifestOf(name));
    const support::Snapshot before = machine();
    const auto outcome = root().run({kReceiptEngine, "--remove", "--product_name", kProduct});
    EXPECT_EQ(outcome.exitCode, 1) << outcome.description();
    EXPECT_TRUE(loggedBeginning(outcome, "Error", "Failed to read manifest ")) << outcome.description();
    EXPECT_EQ(machine(), before) << name;
  }
}

TEST_F(DamagedReceipt, AnUpgradeThatCannotReadAManifestLeavesTheInstalledVersion) {
  makeUnreadable(manifestOf("Legacy"));
  const support::Snapshot before = machine();
  deliverNewBundle();
  const auto outcome = install();
  EXPECT_EQ(outcome.exitCode, 1) << outcome.description();
  EXPECT_EQ(machine(), before);
}

TEST_F(DamagedReceipt, WhatIsLeftOfAReceiptIsSweptByTheNextRunOfAnyProduct) {
  const std::string aside =
      "/Library/Application Support/Corvane/.com.corvane.installer.4000000.0123456789abcdef0123456789abcdef";
  root().writeFile(aside + "/Installer.app/Contents/Info.plist", "put aside");
  const std::string emptied = "/Library/Application Support/Corvane/Guard/temp";
  root().makeDirectory(emptied);
  const auto outcome = install();
  EXPECT_EQ(outcome.exitCode, 0) << outcome.description();
  EXPECT_TRUE(loggedBeginning(outcome, "Notice", "Upgrade plan is empty.")) << "nothing else was to be done";
  EXPECT_FALSE(root().exists(aside));
  EXPECT_FALSE(root().exists(emptied));
}

TEST_F(DamagedReceipt, AFileInPlaceOfTheFolderForANewReceiptFailsTheRunAndStays) {
  root().writeFile("/Library/Application Support/Corvane/Guard/temp", "in the way");
  deliverNewBundle();
  const auto outcome = install();
  EXPECT_EQ(outcome.exitCode, 1) << outcome.description();
  EXPECT_TRUE(loggedBeginning(outcome, "Error", "Error creating receipt directory, error: Error Domain="));
  EXPECT_EQ(root().readFile("/Library/Application Support/Corvane/Guard/temp"), "in the way");
}

}  // namespace
}  // namespace tests
