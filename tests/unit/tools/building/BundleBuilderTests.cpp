#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <csignal>
#include <cstdint>
#include <utility>
#include <vector>

#include "InstallationDeployer/QVNInstallerManifest.h"
#include "tests/unit/tools/PackagerFixture.h"
#include "tools/building/Interruption.h"
#include "tools/showing/BundleContents.h"

namespace {

namespace fs = std::filesystem;
using deployer::QVNInstallerManifest;

constexpr const char* kDigestOfAbc = "ba7816bf8f01cfea414140de5dae2223b00361a396177a9cb410ff61f20015ad";

class BundleBuilder : public tests::PackagerFixture {
 protected:
  static unsigned modeOf(const std::string& path) {
    struct stat status {};
    EXPECT_EQ(lstat(path.c_str(), &status), 0) << path;
    return status.st_mode & 07777U;
  }
  /// Two products that share a component, a tool, options, a link and a daemon.
  void useEverything() {
    stage("Library/LaunchDaemons/svcd.plist", "daemon");
    stage("opt/same", "abc");
    fs::create_symlink("file", staged("opt/link"));
    stage("f", "f", "Two");
    const PropertyList tool = dictionary({{"BundlePath", "/x/T.app"}, {"ExternalProduct", "E"}, {"Product", "Q"}});
    writePlist("Core.plist", dictionary({{"ListOfModifiableFiles", array({"/opt/file"})}}));
    writePlist("Options.plist",
               dictionary({{"Products", dictionary({{"P", dictionary({{"CrossGrades", array({})}})}})}}));
    describe("Components", array({component("Core", array({"P", "Q"})).with("AuthoringPlist", "Core.plist"),
                                  component("Two").with("RootPrefix", "/opt/two")}));
    describe("ExternalTools", array({tool}));
    describe("Options", dictionary({{"OptionsPlist", "Options.plist"}, {"PayloadVersion", "7"}}));
  }
};

TEST_F(BundleBuilder, MakesABundleThatTheQueriesReadBack) {
  useEverything();
  ASSERT_TRUE(build()) << problems_.errors().at(0).text();
  QVNInstallerManifest manifests(bundle());
  EXPECT_EQ(manifests.componentListForProduct("P"), (QVNInstallerManifest::Names{"Core", "Two"}));
  EXPECT_EQ(manifests.componentListForProduct("Q"), QVNInstallerManifest::Names{"Core"});
  EXPECT_EQ(manifests.arrayOfInstallPhasesForProduct("Q").at(1)["ProductName"].text(), "E");
  EXPECT_TRUE(manifests.crossGradeDictionariesForProduct("P").isArray());
  EXPECT_EQ(manifests.listOfDaemonsForComponents({"Core"}), QVNInstallerManifest::Names{"svcd"});
  EXPECT_EQ(manifests.manifestIndex()["PayloadVersion"].text(), "7");
  EXPECT_EQ(manifests.manifestIndex()["ReceiptHasPayloadContents"].boolean(), true);
  const PropertyList core = manifests.getManifestForComponent("Core");
  EXPECT_EQ(core["ComponentVersion"].text(), "1");
  std::vector<std::string> paths;
  for (const PropertyList& entry : core["ListOfFiles"].elements()) {
    paths.emplace_back(entry["Path"].text());
    EXPECT_EQ(!entry["IsModifiableFile"].isNil(), paths.back() == "/opt/file");
  }
  EXPECT_EQ(paths,
            (std::vector<std::string>{"/Library/LaunchDaemons/svcd.plist", "/opt/file", "/opt/link", "/opt/same"}))
      << "/Library and /opt are the system's";
}

TEST_F(BundleBuilder, RecordsTheSamePathsHoweverTheStagedFolderIsWritten) {
  for (const std::string& folder : {path("Staged/Core//"), path("Staged//./Core/"), std::string("./Staged//Core//")}) {
    describeCore("StagedFolder", folder);
    ASSERT_TRUE(build(true)) << folder;
    const PropertyList core = QVNInstallerManifest(bundle()).getManifestForComponent("Core");
    ASSERT_EQ(core["ListOfFiles"].count(), 1U) << folder;
    EXPECT_EQ(core["ListOfFiles"].at(0)["Path"].text(), "/opt/file") << folder;
  }
}

TEST_F(BundleBuilder, RecordsRootAsOwnerOfEverythingStagedWhenAsked) {
  constexpr uid_t kSomebody = 501;
  stage("opt/folder/file", "abc");
  fs::create_symlink("file", staged("opt/link"));
  for (const char* const item : {"opt/file", "opt/link", "opt/folder", "opt/folder/file"}) {
    ASSERT_TRUE(geteuid() != 0 || lchown(staged(item).c_str(), kSomebody, kSomebody) == 0);
  }
  useFileEntry({{"Path", "/opt/made"}, {"IsDirectory", true}, {"NSFileOwnerAccountID", 7}});
  const auto owners = [this] {
    std::vector<std::pair<std::int64_t, std::int64_t>> found;
    const PropertyList core = QVNInstallerManifest(bundle()).getManifestForComponent("Core");
    for (const PropertyList& entry : core["ListOfFiles"].elements()) {
      if (entry["Path"].text() != "/opt/made") {
        found.emplace_back(entry["NSFileOwnerAccountID"].integer().value_or(-1),
                           entry["NSFileGroupOwnerAccountID"].integer().value_or(-1));
      } else {
        EXPECT_EQ(entry["NSFileOwnerAccountID"].integer(), 7) << "what is given by hand stays as it is";
      }
    }
    return found;
  };
  ASSERT_TRUE(build());
  EXPECT_EQ(owners().size(), 4U);
  EXPECT_EQ(std::ranges::count(owners(), 0, &std::pair<std::int64_t, std::int64_t>::first), 0);
  const std::vector<std::pair<std::int64_t, std::int64_t>> roots(4, {0, 0});
  rootOwnerGroup_ = true;
  ASSERT_TRUE(build(true));
  EXPECT_EQ(owners(), roots);
  rootOwnerGroup_ = false;
  describe("RootOwnerGroup", true);
  ASSERT_TRUE(build(true));
  EXPECT_EQ(owners(), roots);
}

TEST_F(BundleBuilder, StoresEachContentOncePerComponentUnderItsChecksum) {
  useEverything();
  ASSERT_TRUE(build());
  EXPECT_EQ(contentOf(bundle("Contents/Install/Root/Core/") + kDigestOfAbc), "abc");
  const auto files = std::distance(fs::directory_iterator(bundle("Contents/Install/Root/Core")), {});
  EXPECT_EQ(files, 2) << "three files, two contents";
  EXPECT_TRUE(fs::exists(bundle("Contents/Install/Root/Two")));
}

TEST_F(BundleBuilder, PutsEngineAndFrontEndInPlace) {
  folder_.write("Engine", "the engine");
  folder_.write("FrontEnd", "the front end");
  ASSERT_TRUE(build());
  EXPECT_EQ(contentOf(bundle("Contents/MacOS/InstallationDeployer")), "the engine");
  EXPECT_EQ(contentOf(bundle("Contents/MacOS/Installer")), "the front end");
}

TEST_F(BundleBuilder, TakesTheDefaultEngineWhereTheDescriptionNamesNone) {
  makeExecutable("DefaultEngine");
  folder_.write("DefaultEngine", "default");
  describe("Engine", {});
  ASSERT_TRUE(build());
  EXPECT_EQ(contentOf(bundle("Contents/MacOS/InstallationDeployer")), "default");
}

TEST_F(BundleBuilder, TakesTheDefaultFrontEndWhereTheDescriptionNamesNone) {
  makeExecutable("DefaultFrontEnd");
  folder_.write("DefaultFrontEnd", "default");
  describe("FrontEnd", {});
  ASSERT_TRUE(build());
  EXPECT_EQ(contentOf(bundle("Contents/MacOS/Installer")), "default");
}

TEST_F(BundleBuilder, GivesTheSameModesWhateverTheUmask) {
  useEverything();
  for (const mode_t mask : {0000U, 0022U, 0077U, 0777U}) {
    const mode_t before = umask(mask);
    const bool built = build(true);
    umask(before);
    ASSERT_TRUE(built) << problems_.errors().at(0).text();
    for (const char* folder : {"", "Contents", "Contents/MacOS", "Contents/Install", "Contents/Install/Manifests",
                               "Contents/Install/Root", "Contents/Install/Root/Core"}) {
      EXPECT_EQ(modeOf(bundle(folder)), 0755U) << folder << " with umask " << mask;
    }
    for (const char* file : {"Contents/Install/Manifests/Index.plist", "Contents/Install/Manifests/Core.plist"}) {
      EXPECT_EQ(modeOf(bundle(file)), 0644U) << file << " with umask " << mask;
    }
    EXPECT_EQ(modeOf(bundle("Contents/Install/Root/Core/") + kDigestOfAbc), 0644U);
    EXPECT_EQ(modeOf(bundle("Contents/MacOS/Installer")), 0755U);
    EXPECT_EQ(modeOf(bundle("Contents/MacOS/InstallationDeployer")), 0755U);
  }
}

TEST_F(BundleBuilder, RecordsTheReceiptSizeThatAWalkOfTheFinishedBundleFinds) {
  useEverything();
  for (std::size_t size : {0U, 1U, 900U, 9000U, 99000U, 1000000U}) {
    folder_.write("Engine", std::string(size, 'e'));
    ASSERT_TRUE(build(true));
    QVNInstallerManifest manifests(bundle());
    EXPECT_EQ(manifests.manifestIndex()["ReceiptSize"].integer(), manifests.sizeOfReceipt()) << size;
  }
}

TEST_F(BundleBuilder, MakesTheSameBundleByteForByteWhateverTheOrderOfTheFolder) {
  const std::vector<std::string> names{"b", "a", "z", "M", "0"};
  for (const std::string& name : names) {
    stage(name, "content of " + name);
  }
  ASSERT_TRUE(build());
  const auto first = contents("out");
  for (const std::string& name : names) {
    fs::remove(staged(name));
  }
  fs::remove_all(staged("opt"));
  for (auto name = names.rbegin(); name != names.rend(); ++name) {
    stage(*name, "content of " + *name);
  }
  stage("opt/file", "abc");
  ASSERT_TRUE(build(true));
  EXPECT_EQ(contents("out"), first);
}

TEST_F(BundleBuilder, ReplacesABundleAsAWholeWhenForced) {
  ASSERT_TRUE(build());
  folder_.write("out/Installer.app/Contents/stale", "x");
  ASSERT_TRUE(build(true));
  EXPECT_FALSE(fs::exists(bundle("Contents/stale")));
  EXPECT_EQ(std::distance(fs::directory_iterator(path("out")), {}), 1) << "nothing but the bundle";
}

TEST_F(BundleBuilder, KeepsTheOldBundleWhenAForcedBuildIsRefused) {
  ASSERT_TRUE(build());
  const auto before = contents("out");
  describe("FrontEnd", "None");
  EXPECT_FALSE(build(true));
  EXPECT_EQ(contents("out"), before);
}

TEST_F(BundleBuilder, LeavesNothingBehindWhenInterrupted) {
  const bundletool::Interruption interruption;
  ASSERT_EQ(std::raise(SIGINT), 0);
  ASSERT_TRUE(bundletool::Interruption::requested());
  EXPECT_FALSE(build());
  EXPECT_TRUE(problems_.none());
  EXPECT_TRUE(fs::is_empty(path("out")));
}

TEST_F(BundleBuilder, LeavesNothingBehindWhenInterruptedAmidTheFiles) {
  for (int file = 0; file < 20; ++file) {
    stage(std::to_string(file), std::to_string(file));
  }
  writePlist("D.plist", description_);
  const bundletool::Interruption interruption;
  const auto description = bundletool::readDescription(path("D.plist"), problems_);
  std::size_t drawn = 0;
  bundletool::ProgressBar progress(
      [&drawn](std::string_view) {
        if (drawn++ == 0) {
          static_cast<void>(std::raise(SIGTERM));
        }
      },
      80);
  EXPECT_FALSE(
      bundletool::BundleBuilder(description, {path("out"), "", "", false}, problems_, progress).build().has_value());
  EXPECT_GT(drawn, 0U) << "the files were begun";
  EXPECT_TRUE(problems_.none());
  EXPECT_TRUE(fs::is_empty(path("out")));
}

TEST_F(BundleBuilder, TakesAComponentAgainForAProductThatNeedsAnotherOrder) {
  stage("f", "f", "Two");
  describe("Components",
           array({component("Core"), component("Two", array({"P", "Q"})), component("Core", array({"Q"}))}));
  ASSERT_TRUE(build()) << problems_.errors().at(0).text();
  QVNInstallerManifest manifests(bundle());
  EXPECT_EQ(manifests.componentListForProduct("P"), (QVNInstallerManifest::Names{"Core", "Two"}));
  EXPECT_EQ(manifests.componentListForProduct("Q"), (QVNInstallerManifest::Names{"Two", "Core"}));
}

TEST_F(BundleBuilder, StoresEveryContentOfManyFilesExactlyOnce) {
  constexpr int kFiles = 5000;
  for (int file = 0; file < kFiles; ++file) {
    std::ofstream(staged("opt/" + std::to_string(file))) << file / 2;
  }
  ASSERT_TRUE(build());
  EXPECT_EQ(std::distance(fs::directory_iterator(bundle("Contents/Install/Root/Core")), {}), kFiles / 2 + 1);
  bundletool::Problems problems;
  const auto shown = bundletool::readBundle(bundle(), problems);
  EXPECT_TRUE(problems.none());
  ASSERT_TRUE(shown);
  EXPECT_EQ(shown->components.at(0).files.size(), static_cast<std::size_t>(kFiles + 1));
}

}  // namespace
