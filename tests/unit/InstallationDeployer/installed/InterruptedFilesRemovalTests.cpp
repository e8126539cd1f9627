#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>
#include <string>

#include "InstallationDeployer/QVNInstallerChecksum.h"
#include "InstallationDeployer/installed/InterruptedFilesRemoval.h"
#include "general/foundation/propertylist/PropertyList.h"
#include "tests/support/PropertyLists.h"
#include "tests/support/TemporaryDirectory.h"

namespace {

using deployer::InterruptedFilesRemoval;
namespace fs = std::filesystem;

class InterruptedFiles : public ::testing::Test, protected tests::PropertyLists {
 protected:
  static Keys modifiable() { return {{std::string(deployer::kManifestIsModifiableFile), true}}; }
  static Keys holding(const std::string& content) {
    return {{std::string(deployer::kManifestSHAChecksum),
             deployer::QVNInstallerChecksum::generateSHA256(std::as_bytes(std::span(content)))}};
  }
  [[nodiscard]] std::string at(const std::string& name) const { return box_.path(name); }
  [[nodiscard]] bool exists(const std::string& name) const {
    struct stat item {};
    return lstat(at(name).c_str(), &item) == 0;
  }
  void makeLink(const std::string& name, const std::string& target) const {
    ASSERT_EQ(symlink(target.c_str(), at(name).c_str()), 0);
  }
  void remove(bool forGood = false) const {
    const auto removed = removal_.remove(forGood);
    ASSERT_TRUE(removed.ok()) << removed.error().description();
  }

  tests::TemporaryDirectory box_;
  InterruptedFilesRemoval removal_;
};

TEST_F(InterruptedFiles, OfBothVersionsGo) {
  box_.write("product/old", "x");
  box_.write("product/new", "x");
  removal_.addRemoved(manifestOf({directory(at("product")), entry(at("product/old"), {})}));
  removal_.addPlaced(manifestOf({directory(at("product")), entry(at("product/new"), {})}), false);
  remove();
  EXPECT_FALSE(exists("product"));
}

TEST_F(InterruptedFiles, ThatAreMissingAreNoFailure) {
  removal_.addRemoved(manifestOf({directory(at("none")), entry(at("none/at/all"), {})}));
  remove();
}

TEST_F(InterruptedFiles, WhoseNamesAreTooLongToBeThereAreNoFailure) {
  box_.write("product/file", "x");
  removal_.addRemoved(manifestOf({directory(at("product")), entry(at("product/file"), {}),
                                  entry(at("product/" + std::string(256, 'x')), {}),
                                  entry(at("product/" + std::string(256, 'x') + "/file"), {})}));
  remove();
  EXPECT_FALSE(exists("product"));
}

TEST_F(InterruptedFiles, GoWhateverIsInTheirPlace) {
  // A folder that became a file, a file that became a folder, and links for both.
  box_.write("was-folder", "x");
  box_.makeDirectory("was-file");
  makeLink("was-file-too", "nowhere");
  makeLink("was-folder-too", "nowhere");
  removal_.addRemoved(
      manifestOf({directory(at("was-folder")), entry(at("was-folder/inside"), {}), entry(at("was-file"), {}),
                  entry(at("was-file-too"), {}), directory(at("was-folder-too"))}));
  removal_.addPlaced(manifestOf({entry(at("was-folder"), {}), directory(at("was-file")),
                                 link(at("was-file-too"), "nowhere"), link(at("was-folder-too"), "nowhere")}),
                     false);
  remove();
  EXPECT_TRUE(fs::is_empty(box_.path()));
}

TEST_F(InterruptedFiles, OfNobodyStayAndSoDoesTheFolderAroundThem) {
  box_.write("product/listed", "x");
  box_.write("product/somebodys", "x");
  removal_.addRemoved(manifestOf({directory(at("product")), entry(at("product/listed"), {})}));
  remove();
  EXPECT_FALSE(exists("product/listed"));
  EXPECT_TRUE(exists("product/somebodys"));
}

TEST_F(InterruptedFiles, AreNotLookedForThroughALinkThatWasAFolder) {
  box_.write("same-folder/item", "of another component");
  makeLink("folder", "same-folder");
  removal_.addRemoved(manifestOf({directory(at("folder")), entry(at("folder/item"), {})}));
  removal_.addPlaced(manifestOf({link(at("folder"), "same-folder")}), false);
  remove();
  EXPECT_FALSE(exists("folder"));
  EXPECT_TRUE(exists("same-folder/item"));
}

TEST_F(InterruptedFiles, AreNotLookedForThroughALinkThatBecomesAFolder) {
  box_.write("same-folder/item", "of another component");
  makeLink("folder", "same-folder");
  removal_.addRemoved(manifestOf({link(at("folder"), "same-folder")}));
  removal_.addPlaced(manifestOf({directory(at("folder")), entry(at("folder/item"), {})}), false);
  remove();
  EXPECT_FALSE(exists("folder"));
  EXPECT_TRUE(exists("same-folder/item"));
}

TEST_F(InterruptedFiles, LeaveALinkInAFoldersPlaceThatNoVersionLists) {
  box_.makeDirectory("elsewhere");
  makeLink("folder", "elsewhere");
  removal_.addPlaced(manifestOf({directory(at("folder"))}), false);
  remove();
  EXPECT_TRUE(exists("folder"));
}

TEST_F(InterruptedFiles, OfTheUserStayUnlessTheProductGoesForGood) {
  box_.write("settings", "edited");
  removal_.addRemoved(manifestOf({entry(at("settings"), modifiable())}));
  remove();
  EXPECT_TRUE(exists("settings"));
  remove(true);
  EXPECT_FALSE(exists("settings"));
}

TEST_F(InterruptedFiles, ThatAFirstInstallWroteGoWhileNobodyChangedThem) {
  box_.write("settings", "default");
  box_.write("edited", "edited");
  const auto manifest = manifestOf({entry(at("settings"), joined(modifiable(), holding("default"))),
                                    entry(at("edited"), joined(modifiable(), holding("default")))});
  removal_.addPlaced(manifest, true);
  remove();
  EXPECT_FALSE(exists("settings"));
  EXPECT_TRUE(exists("edited"));
}

TEST_F(InterruptedFiles, OfWhichAPowerCutLeftTheNameAloneGo) {
  box_.write("settings", "");
  box_.write("never-written", "");
  removal_.addPlaced(manifestOf({entry(at("settings"), joined(modifiable(), holding("default")))}), true);
  removal_.addRemoved(manifestOf({entry(at("never-written"), modifiable())}));
  remove();
  EXPECT_FALSE(exists("settings"));
  EXPECT_TRUE(exists("never-written"));
}

TEST_F(InterruptedFiles, ThatAnUpgradeNeverWritesStayEvenWithTheDefaultContent) {
  box_.write("settings", "default");
  removal_.addPlaced(manifestOf({entry(at("settings"), joined(modifiable(), holding("default")))}), false);
  remove();
  EXPECT_TRUE(exists("settings"));
}

TEST_F(InterruptedFiles, ThatReplacedAFileOfTheUserGo) {
  box_.write("was-settings", "delivered");
  box_.write("still-settings", "edited");
  makeLink("now-link", "nowhere");
  removal_.addRemoved(manifestOf({entry(at("was-settings"), modifiable()), entry(at("still-settings"), modifiable()),
                                  entry(at("now-link"), modifiable())}));
  removal_.addPlaced(manifestOf({entry(at("was-settings"), holding("delivered")),
                                 entry(at("still-settings"), holding("delivered")), link(at("now-link"), "nowhere")}),
                     false);
  remove();
  EXPECT_FALSE(exists("was-settings"));
  EXPECT_FALSE(exists("now-link"));
  EXPECT_TRUE(exists("still-settings")) << "the run had not come to it";
}

TEST_F(InterruptedFiles, InFoldersThatEachInstallFillsAnewGo) {
  box_.write("refilled/copied", "x");
  removal_.addPlaced(manifestOf({externalDirectory(at("refilled"), "source")}), false);
  remove();
  EXPECT_FALSE(exists("refilled"));
}

TEST_F(InterruptedFiles, InFoldersThatGoWithEverythingGo) {
  box_.write("whole/something", "x");
  removal_.addRemoved(
      manifestOf({directory(at("whole"), {{std::string(deployer::kManifestRemoveDirectoryAndContents), true}})}));
  remove();
  EXPECT_FALSE(exists("whole"));
}

TEST_F(InterruptedFiles, UnderTemporaryNamesOfADeadProcessGo) {
  const std::string left = ".com.corvane.installer.2147483646.0123456789abcdef0123456789abcdef";
  box_.write("product/" + left, "half");
  removal_.addPlaced(manifestOf({directory(at("product")), entry(at("product/file"), {})}), false);
  ASSERT_EQ(chmod(at("product").c_str(), 0755), 0);
  remove();
  EXPECT_FALSE(exists("product"));
}

TEST_F(InterruptedFiles, InSystemFoldersAreOnlyThoseThatAreListed) {
  removal_.addRemoved(manifestOf({directory("/usr"), directory("/Library/LaunchDaemons"), directory("/")}));
  remove(true);
  EXPECT_TRUE(fs::exists("/usr"));
}

TEST_F(InterruptedFiles, ThatCannotBeRemovedAreAnErrorThatNamesThem) {
  box_.write("target", "x");
  ASSERT_EQ(mkdir(at("theirs").c_str(), 0755), 0);
  makeLink("link-of-another", at("theirs"));
  ASSERT_EQ(lchown(at("link-of-another").c_str(), 501, 20), 0);
  removal_.addRemoved(manifestOf({entry(at("link-of-another/file"), {})}));
  const auto removed = removal_.remove(false);
  ASSERT_FALSE(removed.ok());
  EXPECT_NE(removed.error().description().find("link-of-another"), std::string::npos);
}

}  // namespace
