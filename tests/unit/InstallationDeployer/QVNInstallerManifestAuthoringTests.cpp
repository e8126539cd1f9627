#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <chrono>
#include <filesystem>
#include <limits>
#include <stdexcept>

#include "InstallationDeployer/InternalInconsistency.h"
#include "InstallationDeployer/QVNInstallerManifest.h"
#include "general/foundation/propertylist/PropertyListFile.h"
#include "tests/support/CapturedLog.h"
#include "tests/support/PropertyLists.h"
#include "tests/support/TemporaryDirectory.h"
#include "tests/unit/InstallationDeployer/BundleFixture.h"

namespace deployer {
namespace {

using foundation::PropertyList;
using tests::CapturedLog;
namespace fs = std::filesystem;

constexpr const char* kDigestOfNothing = "e3b0c44298fc1c149afbf4c8996fb92427ae41e4649b934ca495991b7852b855";
constexpr const char* kDigestOfAbc = "ba7816bf8f01cfea414140de5dae2223b00361a396177a9cb410ff61f20015ad";

/// A bundle without manifests and a staged tree beside it.
class ManifestAuthoring : public ::testing::Test, protected tests::PropertyLists {
 protected:
  using Names = std::vector<std::string>;

  [[nodiscard]] std::string staged(const std::string& below = "") const {
    return directory_.path(below.empty() ? "staged" : "staged/" + below);
  }
  void stage(const std::string& below, const std::string& content = "abc") {
    directory_.write("staged/" + below, content);
  }
  std::string writePlist(const std::string& name, const PropertyList& content) {
    std::string path = directory_.path(name);
    EXPECT_TRUE(foundation::plist::writeFile(content, path).ok());
    return path;
  }
  void writeIndex(const PropertyList& index) { bundle_.writeIndex(index); }
  [[nodiscard]] PropertyList index() { return QVNInstallerManifest(bundle_.path()).manifestIndex(); }
  [[nodiscard]] PropertyList phases(const std::string& product) {
    return index()["Products"][product]["ListOfInstallPhases"];
  }
  bool add(const std::string& component = "Core", const std::string& product = "P", const std::string& prefix = "/",
           const std::optional<std::string>& plist = std::nullopt) {
    directory_.makeDirectory("staged");
    return manifests_.addComponentManifest(component, "1.2", staged(), prefix, product, plist);
  }
  [[nodiscard]] PropertyList manifest(const std::string& component = "Core") {
    return QVNInstallerManifest(bundle_.path()).getManifestForComponent(component);
  }
  [[nodiscard]] Names listedPaths(const std::string& component = "Core") {
    Names listed;
    const PropertyList content = manifest(component);
    for (const PropertyList& entry : content["ListOfFiles"].elements()) {
      listed.emplace_back(entry["Path"].text());
    }
    return listed;
  }
  [[nodiscard]] PropertyList entry(const std::string& path, const std::string& component = "Core") {
    const PropertyList content = manifest(component);
    for (const PropertyList& candidate : content["ListOfFiles"].elements()) {
      if (candidate["Path"].text() == path) {
        return candidate;
      }
    }
    return {};
  }
  static std::int64_t sizeOf(const std::string& path) {
    struct stat status {};
    EXPECT_EQ(lstat(path.c_str(), &status), 0);
    return status.st_size;
  }

  tests::TemporaryDirectory directory_;
  tests::BundleFixture bundle_;
  QVNInstallerManifest manifests_{bundle_.path()};
};

TEST_F(ManifestAuthoring, WritesTheManifestOfCoreToCorePlistInTheManifestsFolder) {
  ASSERT_TRUE(add("Core"));
  EXPECT_TRUE(fs::is_regular_file(bundle_.path("Contents/Install/Manifests/Core.plist")));
  EXPECT_EQ(manifest()["ComponentVersion"].text(), "1.2");
}

TEST_F(ManifestAuthoring, RecordsEachFolderBeforeWhatItContains) {
  stage("Library/Thing/b/deep/file");
  stage("Library/Thing/a");
  stage("Library/Thing/b/x");
  ASSERT_TRUE(add());
  EXPECT_EQ(listedPaths(), (Names{"/Library/Thing", "/Library/Thing/a", "/Library/Thing/b", "/Library/Thing/b/deep",
                                  "/Library/Thing/b/deep/file", "/Library/Thing/b/x"}));
}

TEST_F(ManifestAuthoring, RecordsOwnerGroupPermissionsAndChecksumOfAFile) {
  stage("opt/tool", "abc");
  ASSERT_EQ(chmod(staged("opt/tool").c_str(), 04751), 0);
  ASSERT_TRUE(add());
  const PropertyList file = entry("/opt/tool");
  EXPECT_EQ(file["NSFileOwnerAccountID"].integer(), geteuid());
  EXPECT_EQ(file["NSFileGroupOwnerAccountID"].integer(), getegid());
  EXPECT_EQ(file["NSFilePosixPermissions"].integer(), 04751);
  EXPECT_EQ(file["SHAChecksum"].text(), kDigestOfAbc);
  EXPECT_EQ(file["IsDirectory"].boolean(), false);
  EXPECT_EQ(file["IsSymbolicLink"].boolean(), false);
  EXPECT_TRUE(file["IsModifiableFile"].isNil());
}

TEST_F(ManifestAuthoring, RecordsALinkWithItsTargetWithoutChecksumAndCountsItsSize) {
  fs::create_directories(staged());
  fs::create_symlink("/no/such/target", staged("link"));
  ASSERT_TRUE(add());
  const PropertyList link = entry("/link");
  EXPECT_EQ(link["IsSymbolicLink"].boolean(), true);
  EXPECT_EQ(link["IsDirectory"].boolean(), false);
  EXPECT_EQ(link["SymbolicLinkTarget"].text(), "/no/such/target");
  EXPECT_TRUE(link["SHAChecksum"].isNil());
  EXPECT_EQ(manifest()["ComponentSize"].integer(), 15);
}

TEST_F(ManifestAuthoring, DoesNotDescendIntoALinkToAFolder) {
  stage("real/file");
  fs::create_directory_symlink("real", staged("link"));
  ASSERT_TRUE(add());
  EXPECT_EQ(listedPaths(), (Names{"/link", "/real", "/real/file"}));
}

TEST_F(ManifestAuthoring, GivesFoldersNeitherChecksumNorSize) {
  stage("folder/file", "12345");
  ASSERT_TRUE(add());
  const PropertyList folder = entry("/folder");
  EXPECT_EQ(folder["IsDirectory"].boolean(), true);
  EXPECT_EQ(folder["IsSymbolicLink"].boolean(), false);
  EXPECT_TRUE(folder["SHAChecksum"].isNil());
  EXPECT_EQ(manifest()["ComponentSize"].integer(), 5);
}

TEST_F(ManifestAuthoring, GivesTheRootAnEmptyPrefixThePathSlash) {
  stage("file");
  const auto& restricted = QVNInstallerManifest::restrictedPaths();
  ASSERT_TRUE(restricted.contains("/"));
  MutableComponentManifest content;
  ASSERT_TRUE(manifests_.populateComponentManifest(content, staged(), staged(), "", std::nullopt));
  ASSERT_EQ(content.files.size(), 1U) << "the root's own path is \"/\", which is never recorded";
  EXPECT_EQ(content.files[0]["Path"].text(), "/file");
}

TEST_F(ManifestAuthoring, PutsEveryPathButTheRootsBehindThePrefix) {
  stage("a/b");
  ASSERT_TRUE(add("Core", "P", "/Library/Prefix"));
  EXPECT_EQ(listedPaths(), (Names{"/Library/Prefix", "/Library/Prefix/a", "/Library/Prefix/a/b"}));
}

TEST_F(ManifestAuthoring, DoesNotRecordTheStagedRootForThePrefixSlashAndRecordsItBelowApplications) {
  stage("file");
  ASSERT_TRUE(add("Core", "P", "/"));
  EXPECT_EQ(listedPaths(), Names{"/file"});
  ASSERT_TRUE(add("App", "P", "/Applications/Thing.app"));
  EXPECT_EQ(listedPaths("App"), (Names{"/Applications/Thing.app", "/Applications/Thing.app/file"}));
}

TEST_F(ManifestAuthoring, NeverRecordsSystemFolders) {
  stage("Library/LaunchDaemons/d.plist");
  stage("Library/Application Support/Mine/f");
  stage("usr/bin/tool");
  ASSERT_TRUE(add());
  EXPECT_EQ(listedPaths(), (Names{"/Library/Application Support/Mine", "/Library/Application Support/Mine/f",
                                  "/Library/LaunchDaemons/d.plist", "/usr/bin/tool"}));
}

TEST_F(ManifestAuthoring, CreatesEveryListEvenWhenEmpty) {
  ASSERT_TRUE(add());
  for (const char* key : {"ListOfFiles", "ListOfExecutables", "ListOfLaunchDaemons", "ListOfLaunchAgents"}) {
    EXPECT_TRUE(manifest()[key].isArray()) << key;
  }
  EXPECT_EQ(manifest()["ComponentSize"].integer(), 0);
  EXPECT_TRUE(manifest()["RebuildKextCache"].isNil());
}

TEST_F(ManifestAuthoring, RecordsAPipeWithoutChecksumAndDoesNotWaitForIt) {
  fs::create_directories(staged());
  ASSERT_EQ(mkfifo(staged("pipe").c_str(), 0600), 0);
  ASSERT_TRUE(add());
  EXPECT_FALSE(entry("/pipe").isNil());
  EXPECT_TRUE(entry("/pipe")["SHAChecksum"].isNil());
}

TEST_F(ManifestAuthoring, HashesAFileThatCannotBeReadAsEmpty) {
  constexpr uid_t kNobody = 65534;
  stage("secret", "abc");
  ASSERT_EQ(chmod(staged("secret").c_str(), 0), 0);
  ASSERT_EQ(chmod(directory_.path().c_str(), 0755), 0);
  const bool isRoot = geteuid() == 0;
  ASSERT_EQ(isRoot ? seteuid(kNobody) : 0, 0) << "root reads every file";
  MutableComponentManifest content;
  const bool populated = manifests_.populateComponentManifest(content, staged(), staged(), "/", std::nullopt);
  ASSERT_EQ(isRoot ? seteuid(0) : 0, 0);
  ASSERT_TRUE(populated);
  EXPECT_EQ(content.files.at(0)["SHAChecksum"].text(), kDigestOfNothing);
}

TEST_F(ManifestAuthoring, TakesTheChecksumFromTheBlockWhenThereIsOne) {
  stage("a");
  Names asked;
  manifests_.setChecksumBlock([&asked](const std::string& path) {
    asked.push_back(path);
    return std::string("checksum of the block");
  });
  ASSERT_TRUE(add());
  EXPECT_EQ(asked, Names{staged("a")});
  EXPECT_EQ(entry("/a")["SHAChecksum"].text(), "checksum of the block");
}

TEST_F(ManifestAuthoring, FailsWithTheRootsAttributesWhenTheStagedFolderIsMissing) {
  CapturedLog log;
  EXPECT_FALSE(manifests_.addComponentManifest("Core", "1", directory_.path("nowhere"), "/", "P", std::nullopt));
  EXPECT_EQ(manifests_.installerState(), 1);
  EXPECT_NE(log.text().find("Unable to aquire attributes of " + directory_.path("nowhere")), std::string::npos);
  EXPECT_TRUE(log.contains("Error", "Failed to populate component manifest for component Core"));
  EXPECT_FALSE(fs::exists(bundle_.path("Contents/Install/Manifests/Core.plist")));
}

TEST_F(ManifestAuthoring, KeepsTheFoldersEntryAndAnswersYesWhenAFolderCannotBeListed) {
  const std::string file = directory_.write("notafolder", "x");
  CapturedLog log;
  EXPECT_TRUE(manifests_.addComponentManifest("Core", "1", file, "/opt/x", "P", std::nullopt));
  EXPECT_EQ(listedPaths(), Names{"/opt/x"});
  EXPECT_EQ(manifests_.installerState(), 1) << "the failure is visible only in the state";
  EXPECT_NE(log.text().find("Error reading directory contents at " + file), std::string::npos);
}

TEST_F(ManifestAuthoring, ExtendsWhatAManifestInTheMakingHoldsAlready) {
  stage("f", "abc");
  MutableComponentManifest content(
      dictionary({{"ListOfFiles", array({dictionary({{"Path", "/old"}})})}, {"ComponentSize", 10}, {"Other", "kept"}}));
  ASSERT_TRUE(manifests_.populateComponentManifest(content, staged(), staged(), "/", std::nullopt));
  EXPECT_EQ(content.dictionary()["ListOfFiles"].count(), 2U);
  EXPECT_EQ(content.dictionary()["ComponentSize"].integer(), 13);
  EXPECT_EQ(content.dictionary()["Other"].text(), "kept");
}

TEST_F(ManifestAuthoring, AddsThePlistAtTheRootOnly) {
  stage("sub/f");
  const std::string plist =
      writePlist("a.plist", dictionary({{"ListOfExecutables", array({dictionary({{"Path", "/x"}})})}}));
  MutableComponentManifest content;
  ASSERT_TRUE(manifests_.populateComponentManifest(content, staged("sub"), staged(), "/", plist));
  EXPECT_TRUE(content.executables.empty());
  ASSERT_TRUE(manifests_.populateComponentManifest(content, staged(), staged(), "/", plist));
  EXPECT_EQ(content.executables.size(), 1U);
}

TEST_F(ManifestAuthoring, FindsTheDaemonSvcdInTheStagedTreeWithoutAPlist) {
  stage("Library/LaunchDaemons/svcd.plist");
  CapturedLog log;
  ASSERT_TRUE(add());
  EXPECT_EQ(manifest()["ListOfLaunchDaemons"].strings(), Names{"svcd"});
  EXPECT_TRUE(log.contains("Info", "Added autogenerated daemon svcd to ListOfLaunchDaemons"));
}

TEST_F(ManifestAuthoring, OnlyWarnsOfADaemonThatThePlistsListLacks) {
  stage("Library/LaunchDaemons/svcd.plist");
  const std::string plist = writePlist("a.plist", dictionary({{"ListOfLaunchDaemons", array({"other"})}}));
  CapturedLog log;
  ASSERT_TRUE(add("Core", "P", "/", plist));
  EXPECT_EQ(manifest()["ListOfLaunchDaemons"].strings(), Names{"other"});
  EXPECT_TRUE(
      log.contains("Notice", "Warning: plist ListOfLaunchDaemons does not contain svcd daemon found in component."));
}

TEST_F(ManifestAuthoring, TreatsAnEmptyListOfThePlistAsGiven) {
  stage("Library/LaunchDaemons/svcd.plist");
  const std::string plist = writePlist("a.plist", dictionary({{"ListOfLaunchDaemons", array({})}}));
  CapturedLog log;
  ASSERT_TRUE(add("Core", "P", "/", plist));
  EXPECT_EQ(manifest()["ListOfLaunchDaemons"].count(), 0U);
  EXPECT_TRUE(
      log.contains("Notice", "Warning: plist ListOfLaunchDaemons does not contain svcd daemon found in component."));
}

TEST_F(ManifestAuthoring, DoesNotTakeAFileInASubfolderOfLaunchDaemonsForADaemon) {
  stage("Library/LaunchDaemons/sub/svcd.plist");
  ASSERT_TRUE(add());
  EXPECT_EQ(manifest()["ListOfLaunchDaemons"].count(), 0U);
}

TEST_F(ManifestAuthoring, TakesALinkInLaunchAgentsForAnAgentAndAFolderForNone) {
  fs::create_directories(staged("Library/LaunchAgents/folder.plist"));
  fs::create_symlink("elsewhere", staged("Library/LaunchAgents/agent.plist"));
  CapturedLog log;
  ASSERT_TRUE(add());
  EXPECT_EQ(manifest()["ListOfLaunchAgents"].strings(), Names{"agent"});
  EXPECT_TRUE(log.contains("Info", "Added autogenerated agent agent to ListOfLaunchAgents"));
}

TEST_F(ManifestAuthoring, OnlyWarnsOfAnAgentThatThePlistsListLacks) {
  stage("Library/LaunchAgents/ui.plist");
  const std::string plist = writePlist("a.plist", dictionary({{"ListOfLaunchAgents", array({"other"})}}));
  CapturedLog log;
  ASSERT_TRUE(add("Core", "P", "/", plist));
  EXPECT_EQ(manifest()["ListOfLaunchAgents"].strings(), Names{"other"});
  EXPECT_TRUE(
      log.contains("Notice", "Warning: plist ListOfLaunchAgents does not contain ui agent found in component."));
}

TEST_F(ManifestAuthoring, AppendsWhatThePlistGivesWithItsMessages) {
  stage("a");
  const std::string plist =
      writePlist("a.plist", dictionary({{"ListOfLaunchDaemons", array({"d", "d"})},
                                        {"ListOfLaunchAgents", array({"g"})},
                                        {"ListOfFiles", array({dictionary({{"Path", "/extra"}})})},
                                        {"ListOfExecutables", array({dictionary({{"Path", "/x"}})})},
                                        {"ListOfModifiableFiles", array({"/a"})},
                                        {"RebuildKextCache", false}}));
  CapturedLog log;
  ASSERT_TRUE(add("Core", "P", "/", plist));
  EXPECT_EQ(manifest()["ListOfLaunchDaemons"].strings(), (Names{"d", "d"}));
  EXPECT_EQ(manifest()["ListOfLaunchAgents"].strings(), Names{"g"});
  EXPECT_EQ(listedPaths(), (Names{"/a", "/extra"}));
  EXPECT_EQ(manifest()["ListOfExecutables"].at(0)["Path"].text(), "/x");
  EXPECT_EQ(manifest()["RebuildKextCache"].boolean(), false);
  EXPECT_EQ(entry("/a")["IsModifiableFile"].boolean(), true);
  EXPECT_TRUE(manifest()["ListOfModifiableFiles"].isNil());
  EXPECT_NE(log.text().find("Adding ListOfLaunchDaemons to component manifest from plist. Added daemon list:"),
            std::string::npos);
  EXPECT_NE(log.text().find("Adding ListOfLaunchAgents to component manifest from plist. Added agent list:"),
            std::string::npos);
  EXPECT_TRUE(log.contains("Info", "Adding 1 files to component manifest from plist."));
  EXPECT_TRUE(log.contains("Info", "Adding 1 executables to component manifest from plist."));
  EXPECT_TRUE(log.contains("Info", "Set RebuildKextCache: NO to component manifest from plist."));
}

TEST_F(ManifestAuthoring, UsesThePlistForEveryProductOfAComponent) {
  stage("a");
  const std::string plist = writePlist("a.plist", dictionary({{"ListOfModifiableFiles", array({"/a"})}}));
  const auto past = fs::file_time_type::clock::now() - std::chrono::hours(1);
  fs::last_write_time(plist, past);
  ASSERT_TRUE(add("Core", "P", "/", plist));
  ASSERT_TRUE(add("Core", "Q", "/", plist));
  EXPECT_EQ(entry("/a")["IsModifiableFile"].boolean(), true);
}

TEST_F(ManifestAuthoring, SeesThePlistAsItIsAtEachFolder) {
  stage("1/a");
  stage("2/b");
  const std::string plist = writePlist("a.plist", dictionary({{"ListOfModifiableFiles", array({"/1/a", "/2/b"})}}));
  manifests_.setChecksumBlock([&](const std::string& path) {
    if (path == staged("1/a")) {
      writePlist("a.plist", dictionary({{"ListOfModifiableFiles", array({"/none"})}}));
    }
    return std::string(kDigestOfAbc);
  });
  ASSERT_TRUE(add("Core", "P", "/", plist));
  EXPECT_EQ(entry("/1/a")["IsModifiableFile"].boolean(), true);
  EXPECT_TRUE(entry("/2/b")["IsModifiableFile"].isNil());
}

TEST_F(ManifestAuthoring, CarriesOnWithoutAPlistThatIsMissingOrDoesNotParse) {
  stage("Library/LaunchDaemons/svcd.plist");
  const std::string broken = directory_.write("broken.plist", "<plist>");
  CapturedLog log;
  ASSERT_TRUE(add("Core", "P", "/", directory_.path("missing.plist")));
  ASSERT_TRUE(add("Other", "P", "/", broken));
  EXPECT_EQ(manifest("Core")["ListOfLaunchDaemons"].strings(), Names{"svcd"});
  EXPECT_EQ(manifest("Other")["ListOfLaunchDaemons"].strings(), Names{"svcd"});
  EXPECT_TRUE(log.texts("Error").empty());
  EXPECT_EQ(manifests_.installerState(), 0);
}

TEST_F(ManifestAuthoring, SaysThatAPlistCannotBeReached) {
  const std::string path = directory_.write("file", "") + "/" + std::string(300, 'n');
  CapturedLog log;
  ASSERT_TRUE(add("Core", "P", "/", path));
  EXPECT_NE(log.text().find("Failed to read " + path), std::string::npos);
  EXPECT_EQ(manifests_.installerState(), 0);
}

TEST_F(ManifestAuthoring, AddsComponentsToTheFirstPhaseInTheOrderOfAdding) {
  CapturedLog log;
  ASSERT_TRUE(add("Zeta"));
  ASSERT_TRUE(add("Alpha"));
  EXPECT_EQ(
      phases("P"),
      array({dictionary({{"InstallPhaseType", "LocalPayload"}, {"ListOfComponents", array({"Zeta", "Alpha"})}})}));
  EXPECT_TRUE(log.contains("Info", "Creating Zeta and adding to ListOfComponents of P"));
  EXPECT_TRUE(log.contains("Info", "Updated manifest index for component Zeta of product P."));
}

TEST_F(ManifestAuthoring, FailsWhenTheSameComponentIsAddedToTheSameProductTwice) {
  ASSERT_TRUE(add());
  CapturedLog log;
  EXPECT_FALSE(add());
  EXPECT_EQ(log.texts("Error"), Names{"Error. P already has a reference to Core in ListOfComponents"});
  EXPECT_EQ(manifests_.installerState(), 1);
}

TEST_F(ManifestAuthoring, SizesBeyondTheRangeStopAtItsEnd) {
  constexpr std::int64_t kLargest = std::numeric_limits<std::int64_t>::max();
  stage("f", "123");
  ASSERT_TRUE(add("Core", "P"));
  ASSERT_TRUE(manifests_.writeManifestIndex(index().with("PayloadSize", kLargest)));
  ASSERT_TRUE(add("Core", "Q"));
  EXPECT_EQ(index()["PayloadSize"].integer(), kLargest);
}

TEST_F(ManifestAuthoring, RebuildsTheManifestOfAComponentAddedToASecondProductAndCountsItsSizeAgain) {
  stage("f", "123");
  ASSERT_TRUE(add("Core", "P"));
  EXPECT_EQ(index()["PayloadSize"].integer(), 3);
  fs::remove(staged("f"));
  stage("g", "12345");
  CapturedLog log;
  ASSERT_TRUE(add("Core", "Q"));
  EXPECT_EQ(listedPaths(), Names{"/g"}) << "rebuilt, not extended";
  EXPECT_EQ(index()["PayloadSize"].integer(), 8);
  EXPECT_EQ(phases("Q").at(0)["ListOfComponents"].strings(), Names{"Core"});
  EXPECT_EQ(phases("P").at(0)["ListOfComponents"].strings(), Names{"Core"});
  EXPECT_TRUE(log.contains("Info", "Adding Core reference to ListOfComponents of Q"));
}

TEST_F(ManifestAuthoring, LogsTheRegistrationFirstAndLeavesAnIndexThatHasTheComponentAlone) {
  ASSERT_TRUE(add());
  const PropertyList before = index();
  directory_.write("ignored", "x");
  CapturedLog log;
  EXPECT_TRUE(manifests_.updateManifestIndexForComponent("Core", "P"));
  EXPECT_EQ(log.texts("Info"), Names{"Updated manifest index for component Core of product P."});
  EXPECT_EQ(index(), before);
}

TEST_F(ManifestAuthoring, CountsAMissingManifestAsNoPayload) {
  bundle_.directory().makeDirectory("Installer.app/Contents/Install/Manifests");
  EXPECT_TRUE(manifests_.updateManifestIndexForComponent("Ghost", "P"));
  EXPECT_EQ(index()["PayloadSize"].integer(), 0);
}

TEST_F(ManifestAuthoring, RefusesAComponentWhoseManifestCannotBeRead) {
  CapturedLog log;
  EXPECT_FALSE(add("no/component"));
  EXPECT_TRUE(log.contains("Error", "Failed to update the manifest index for no/component productName: P"));
  EXPECT_EQ(manifests_.installerState(), 1);
  EXPECT_TRUE(index().isNil());
}

TEST_F(ManifestAuthoring, ThrowsWhenTheFirstPhaseInstallsNoPayload) {
  const PropertyList tool = dictionary({{"InstallPhaseType", "ExternalInstallationDeployer"}});
  writeIndex(dictionary({{"Products", dictionary({{"P", tests::BundleFixture::product({tool})}})}}));
  try {
    static_cast<void>(manifests_.updateManifestIndexForComponent("Core", "P"));
    FAIL() << "nothing was thrown";
  } catch (const InternalInconsistency& thrown) {
    EXPECT_STREQ(thrown.what(), "Install Phase 0 of Product P is not LocalPayload");
  }
}

TEST_F(ManifestAuthoring, CountsTheReceiptWithoutLinksWithFoldersAndWithoutWhatLiesBelowThePayloadRoot) {
  const auto& directory = bundle_.directory();
  directory.write("Installer.app/Contents/MacOS/Installer", std::string(1000, 'x'));
  directory.write("Installer.app/Contents/Install/Root/Core/content", std::string(5000, 'x'));
  directory.write("Installer.app/Contents/Install/RootElse/file", std::string(700, 'x'));
  directory.makeDirectory("Installer.app/Contents/Install/Manifests");
  fs::create_symlink("Installer", bundle_.path("Contents/MacOS/link"));
  std::int64_t expected = 1000;
  for (const char* folder : {"Contents", "Contents/MacOS", "Contents/Install", "Contents/Install/Root",
                             "Contents/Install/RootElse", "Contents/Install/Manifests"}) {
    expected += sizeOf(bundle_.path(folder));
  }
  EXPECT_EQ(manifests_.sizeOfReceipt(), expected) << "what begins like the payload root is left out like it";
}

TEST_F(ManifestAuthoring, RecomputesTheReceiptSizeInFullEachTime) {
  ASSERT_TRUE(add("A"));
  bundle_.directory().write("Installer.app/Contents/more", std::string(4321, 'x'));
  const std::int64_t before = index()["ReceiptSize"].integer().value_or(0);
  const std::int64_t size = sizeOf(bundle_.path("Contents/Install/Manifests/Index.plist"));
  ASSERT_TRUE(add("B"));
  EXPECT_GE(index()["ReceiptSize"].integer(), before + 4321 + size);
}

TEST_F(ManifestAuthoring, SaysThatAManifestCannotBeWritten) {
  bundle_.directory().makeDirectory("Installer.app/Contents/Install");
  fs::create_symlink("nowhere", bundle_.path("Contents/Install/Manifests"));
  CapturedLog log;
  EXPECT_FALSE(add());
  EXPECT_EQ(log.texts("Error"),
            (Names{"failed to write component manifest to: " + bundle_.path("Contents/Install/Manifests/Core.plist"),
                   "Failed to write component manifest for component Core"}));
  EXPECT_EQ(manifests_.installerState(), 1);
}

TEST_F(ManifestAuthoring, SaysThatAComponentCannotBeRegistered) {
  bundle_.directory().makeDirectory("Installer.app/Contents/Install/Manifests/Index.plist/in the way");
  CapturedLog log;
  EXPECT_FALSE(add());
  const auto errors = log.texts("Error");
  ASSERT_EQ(errors.size(), 3U) << log.text();
  EXPECT_TRUE(errors[0].starts_with("Failed to read manifest index: ")) << "a folder is no index that is missing";
  EXPECT_EQ(errors[1], "Failed to write updated manifest index.");
  EXPECT_EQ(errors[2], "Failed to update the manifest index for Core productName: P");
  EXPECT_EQ(manifests_.installerState(), 1);
}

TEST_F(ManifestAuthoring, LeavesTheStateToTheCallerWhenAManifestCannotBeWritten) {
  bundle_.directory().write("Installer.app/Contents/Install", "a file in the way");
  EXPECT_FALSE(manifests_.writeComponentManifest("Core", dictionary({})));
  EXPECT_EQ(manifests_.installerState(), 0);
}

TEST_F(ManifestAuthoring, NeverWritesAManifestOutsideItsFolder) {
  bundle_.directory().makeDirectory("Installer.app/Contents/Install/Manifests");
  EXPECT_FALSE(manifests_.writeComponentManifest("../escaped", dictionary({})));
  EXPECT_FALSE(fs::exists(bundle_.path("Contents/Install/escaped.plist")));
}

TEST_F(ManifestAuthoring, ReplacesWhateverLiesAtTheManifestsPath) {
  bundle_.directory().makeDirectory("Installer.app/Contents/Install/Manifests/Core.plist/folder");
  EXPECT_TRUE(manifests_.writeComponentManifest("Core", dictionary({{"ComponentVersion", "9"}})));
  EXPECT_EQ(manifest()["ComponentVersion"].text(), "9");
}

TEST_F(ManifestAuthoring, SaysThatTheIndexCannotBeWrittenAndDoesNotCreateItsFolder) {
  CapturedLog log;
  EXPECT_FALSE(manifests_.writeManifestIndex(dictionary({})));
  EXPECT_EQ(log.texts("Error"), Names{"Failed to write updated manifest index."});
  EXPECT_FALSE(fs::exists(bundle_.path()));
}

TEST_F(ManifestAuthoring, ForgetsTheCachedIndexWhenItIsWritten) {
  writeIndex(dictionary({{"PayloadVersion", "1"}}));
  EXPECT_EQ(manifests_.manifestIndex()["PayloadVersion"].text(), "1");
  ASSERT_TRUE(manifests_.writeManifestIndex(dictionary({{"PayloadVersion", "2"}})));
  EXPECT_EQ(manifests_.manifestIndex()["PayloadVersion"].text(), "2");
}

TEST_F(ManifestAuthoring, GivesAProductWithoutPhasesALocalPayloadPhaseBeforeItsTool) {
  ASSERT_TRUE(manifests_.updateManifestIndexForExternalTool("/x/T.app", "E", "P"));
  const PropertyList tool = dictionary(
      {{"InstallPhaseType", "ExternalInstallationDeployer"}, {"BundlePath", "/x/T.app"}, {"ProductName", "E"}});
  EXPECT_EQ(phases("P"), array({dictionary({{"InstallPhaseType", "LocalPayload"}}), tool}));
}

TEST_F(ManifestAuthoring, ChangesNothingWhenASecondToolIsAddedAndAnswersYes) {
  ASSERT_TRUE(manifests_.updateManifestIndexForExternalTool("/x/T.app", "E", "P"));
  const PropertyList before = index();
  CapturedLog log;
  EXPECT_TRUE(manifests_.updateManifestIndexForExternalTool("/y/U.app", "F", "P"));
  EXPECT_EQ(index(), before);
  EXPECT_TRUE(
      log.contains("Debug", "updateManifestIndexForExternalTool: /y/U.app withExternalProduct:F forProduct: P"));
}

TEST_F(ManifestAuthoring, AppendsTheToolBehindTheComponents) {
  ASSERT_TRUE(add());
  ASSERT_TRUE(manifests_.updateManifestIndexForExternalTool("/x/T.app", "E", "P"));
  ASSERT_TRUE(add("Late"));
  EXPECT_EQ(phases("P").count(), 2U);
  EXPECT_EQ(phases("P").at(0)["ListOfComponents"].strings(), (Names{"Core", "Late"}));
  EXPECT_EQ(phases("P").at(1)["ProductName"].text(), "E");
}

TEST_F(ManifestAuthoring, ThrowsWhenTheSecondPhaseIsNoExternalTool) {
  const PropertyList local = tests::BundleFixture::localPayload({"A"});
  writeIndex(dictionary({{"Products", dictionary({{"P", tests::BundleFixture::product({local, local})}})}}));
  try {
    static_cast<void>(manifests_.updateManifestIndexForExternalTool("/x/T.app", "E", "P"));
    FAIL() << "nothing was thrown";
  } catch (const InternalInconsistency& thrown) {
    EXPECT_STREQ(thrown.what(), "Install Phase 1 of Product P is not ExternalInstallationDeployer");
  }
}

TEST_F(ManifestAuthoring, WritesTheDefaultsForEmptyOptions) {
  ASSERT_TRUE(add());
  CapturedLog log;
  ASSERT_TRUE(manifests_.updateManifestIndexWithOptions(dictionary({}), std::nullopt));
  EXPECT_EQ(index()["ReceiptHasPayloadContents"].boolean(), true);
  EXPECT_EQ(index()["PayloadVersion"].text(), "1.0.0");
  EXPECT_EQ(index()["InstallerVersion"].text(), "1.0.0");
  EXPECT_NE(log.text().find("Updated manifest index with options: {"), std::string::npos);
}

TEST_F(ManifestAuthoring, PrefersTheOptionsToTheIndexAndTheIndexToTheDefaults) {
  writeIndex(dictionary({{"PayloadVersion", "3"}, {"InstallerVersion", "4"}, {"ReceiptHasPayloadContents", false}}));
  ASSERT_TRUE(manifests_.updateManifestIndexWithOptions(dictionary({{"PayloadVersion", "5"}}), std::nullopt));
  EXPECT_EQ(index()["PayloadVersion"].text(), "5");
  EXPECT_EQ(index()["InstallerVersion"].text(), "4");
  EXPECT_EQ(index()["ReceiptHasPayloadContents"].boolean(), false);
}

TEST_F(ManifestAuthoring, RefusesOptionsBeforeThereIsAnIndex) {
  CapturedLog log;
  EXPECT_FALSE(manifests_.updateManifestIndexWithOptions(dictionary({}), std::nullopt));
  EXPECT_EQ(log.texts("Error"),
            Names{"Error: No manifest index found. Components must be created before manifest index is updated."});
  EXPECT_EQ(manifests_.installerState(), 1);
}

TEST_F(ManifestAuthoring, MergesEveryPartOfTheOptionsPlist) {
  ASSERT_TRUE(add());
  const PropertyList detection = array({dictionary({{"ProductName", "P"}, {"ProductDetectionPaths", array({"/x"})}})});
  const PropertyList removals = array(
      {dictionary({{"ProductName", "Old"}, {"ProductDetectionPaths", array({})}, {"ListOfComponents", array({"O"})}})});
  const PropertyList cleanup = dictionary({{"ListOfComponents", array({"C"})}});
  const PropertyList crossGrades = array({dictionary({{"ProductName", "Q"}})});
  const std::string plist = writePlist(
      "o.plist", dictionary({{"ProductDetectionList", detection},
                             {"ProductRemovals", removals},
                             {"ProductCleanup", cleanup},
                             {"Products", dictionary({{"P", dictionary({{"CrossGrades", crossGrades}, {"Else", 1}})},
                                                      {"New", dictionary({{"CrossGrades", array({})}})}})}}));
  CapturedLog log;
  ASSERT_TRUE(manifests_.updateManifestIndexWithOptions(dictionary({}), plist));
  EXPECT_EQ(index()["ProductDetectionList"], detection);
  EXPECT_EQ(index()["ProductRemovals"], removals);
  EXPECT_EQ(index()["ProductCleanup"], cleanup);
  EXPECT_EQ(index()["Products"]["P"]["CrossGrades"], crossGrades);
  EXPECT_TRUE(index()["Products"]["P"]["Else"].isNil()) << "nothing but the cross-grades is taken";
  EXPECT_EQ(phases("P").count(), 1U);
  EXPECT_EQ(index()["Products"]["New"], dictionary({{"CrossGrades", array({})}}));
  EXPECT_NE(log.text().find("Updated manifest index with options from plist: ("), std::string::npos);
}

TEST_F(ManifestAuthoring, FailsTheMergeForADetectionElementWithoutPathsAndLeavesTheIndexOnDisk) {
  ASSERT_TRUE(add());
  const PropertyList before = index();
  const std::string plist =
      writePlist("o.plist", dictionary({{"ProductDetectionList", array({dictionary({{"ProductName", "P"}})})}}));
  CapturedLog log;
  EXPECT_FALSE(manifests_.updateManifestIndexWithOptions(dictionary({{"PayloadVersion", "9"}}), plist));
  EXPECT_EQ(manifests_.installerState(), 1);
  EXPECT_EQ(index(), before);
  EXPECT_EQ(log.texts("Error").at(0),
            "invalid manifest index plist option. ProductDetectionPaths expects NSArray. found (null)");
  EXPECT_TRUE(log.texts("Error").at(1).starts_with(
      "Manifiest index plist options for product detection have invalid structure.\n"));
}

TEST_F(ManifestAuthoring, FailsTheMergeForRemovalsAndCleanupOfTheWrongShape) {
  ASSERT_TRUE(add());
  const std::string removals = writePlist("r.plist", dictionary({{"ProductRemovals", array({"text"})}}));
  const std::string cleanup = writePlist("c.plist", dictionary({{"ProductCleanup", dictionary({})}}));
  CapturedLog log;
  EXPECT_FALSE(manifests_.updateManifestIndexWithOptions(dictionary({}), removals));
  EXPECT_FALSE(manifests_.updateManifestIndexWithOptions(dictionary({}), cleanup));
  const Names errors = log.texts("Error");
  ASSERT_EQ(errors.size(), 3U);
  EXPECT_EQ(errors[0], "invalid manifest index plist option. ProductRemovals expects NSDictionary. found text");
  EXPECT_TRUE(errors[1].starts_with("Manifiest index plist options for product removals have invalid structure.\n"));
  EXPECT_EQ(errors[2].substr(0, 73), "Manifiest index plist options for product cleanup has invalid structure.\n");
  EXPECT_NE(errors[2].find("Invalid manifest index plist option. ListOfComponents expects NSArray. found (null)"),
            std::string::npos);
}

TEST_F(ManifestAuthoring, FailsWhenTheOptionsPlistIsMissingAndTakesNothingFromOneThatDoesNotParse) {
  ASSERT_TRUE(add());
  const std::string broken = directory_.write("broken.plist", "no plist");
  CapturedLog log;
  EXPECT_TRUE(manifests_.updateManifestIndexWithOptions(dictionary({}), broken));
  EXPECT_EQ(index()["PayloadVersion"].text(), "1.0.0");
  EXPECT_TRUE(log.texts("Error").empty());
  EXPECT_FALSE(manifests_.updateManifestIndexWithOptions(dictionary({}), directory_.path("missing.plist")));
  EXPECT_TRUE(log.texts("Error").at(0).starts_with("Failed to read " + directory_.path("missing.plist") + ". "));
  EXPECT_EQ(manifests_.installerState(), 1);
}

TEST_F(ManifestAuthoring, ThrowsForAProductOfTheOptionsWithoutCrossGrades) {
  ASSERT_TRUE(add());
  const PropertyList before = index();
  const std::string plist = writePlist("o.plist", dictionary({{"Products", dictionary({{"P", dictionary({})}})}}));
  EXPECT_THROW(static_cast<void>(manifests_.updateManifestIndexWithOptions(dictionary({}), plist)),
               std::invalid_argument);
  EXPECT_EQ(index(), before);
}

TEST_F(ManifestAuthoring, ValidatesArraysElementByElementWithoutTouchingTheState) {
  const PropertyList good = dictionary({{"ProductName", "P"}, {"ProductDetectionPaths", array({1, 2})}});
  CapturedLog log;
  EXPECT_TRUE(manifests_.validateProductDetectionArray(array({})));
  EXPECT_TRUE(manifests_.validateProductRemovalsArray(array({})));
  EXPECT_TRUE(manifests_.validateProductDetectionArray(array({good}))) << "the paths themselves are not checked";
  EXPECT_TRUE(log.texts("Error").empty());
  EXPECT_FALSE(manifests_.validateProductRemovalsArray(array({good})));
  EXPECT_FALSE(manifests_.validateProductDetectionArray(array({good, good.with("ProductName", 7), "x"})));
  EXPECT_EQ(log.texts("Error"),
            (Names{"invalid manifest index plist option. ListOfComponents expects NSArray. found (null)",
                   "invalid manifest index plist option. ProductName expects NSString. found 7"}));
  EXPECT_EQ(manifests_.installerState(), 0);
}

class WalkDirectory : public ManifestAuthoring {
 protected:
  Names walk(const std::optional<std::string>& excluded, const std::string& stopAt = "") {
    Names visited;
    lastAnswer_ = manifests_.walkDirectory(staged(), "", excluded, [&](const std::string& path, bool isDirectory) {
      visited.push_back(path.substr(staged().size()) + (isDirectory ? "/" : ""));
      return visited.back() != stopAt;
    });
    return visited;
  }
  bool lastAnswer_ = false;
};

TEST_F(WalkDirectory, VisitsFoldersBeforeTheirContentsAndSkipsLinks) {
  stage("a/f");
  stage("b");
  fs::create_symlink("b", staged("c"));
  fs::create_directory_symlink("a", staged("d"));
  EXPECT_EQ(walk(std::nullopt), (Names{"/a/", "/a/f", "/b"}));
  EXPECT_TRUE(lastAnswer_);
}

TEST_F(WalkDirectory, VisitsAnExcludedFolderButDoesNotDescendByPlainPrefix) {
  stage("in/side/f");
  stage("in/sideways/f");
  stage("in/x");
  EXPECT_EQ(walk("in/side"), (Names{"/in/", "/in/side/", "/in/sideways/", "/in/x"}));
}

TEST_F(WalkDirectory, ExcludesNothingForAnEmptyExcludedPath) {
  stage("a/f");
  EXPECT_EQ(walk(""), (Names{"/a/", "/a/f"}));
}

TEST_F(WalkDirectory, StopsAtOnceAtItsOwnLevelAndIgnoresAStopBelow) {
  stage("a/f");
  stage("a/g");
  stage("b");
  EXPECT_EQ(walk(std::nullopt, "/a/f"), (Names{"/a/", "/a/f", "/b"}));
  EXPECT_TRUE(lastAnswer_);
  EXPECT_EQ(walk(std::nullopt, "/a/"), Names{"/a/"});
  EXPECT_FALSE(lastAnswer_);
}

TEST_F(WalkDirectory, AnswersYesForWhatCannotBeListed) {
  EXPECT_TRUE(walk(std::nullopt).empty());
  EXPECT_TRUE(lastAnswer_);
}

TEST_F(ManifestAuthoring, AsksForEachFilesChecksumOnceHoweverManyThereAre) {
  constexpr int kFolders = 20;
  constexpr int kFilesPerFolder = 50;
  for (int folder = 0; folder < kFolders; ++folder) {
    for (int file = 0; file < kFilesPerFolder; ++file) {
      stage(std::to_string(folder) + "/" + std::to_string(file), "x");
    }
  }
  int asked = 0;
  manifests_.setChecksumBlock([&asked](const std::string&) {
    ++asked;
    return std::string(kDigestOfAbc);
  });
  ASSERT_TRUE(add());
  EXPECT_EQ(asked, kFolders * kFilesPerFolder);
  EXPECT_EQ(manifest()["ListOfFiles"].count(), static_cast<std::size_t>(kFolders * (kFilesPerFolder + 1)));
}

TEST_F(ManifestAuthoring, ReadsBackWithTheQueriesWhatItWrote) {
  stage("Library/LaunchDaemons/svcd.plist");
  stage("Library/Thing/f");
  ASSERT_TRUE(add("Core", "P"));
  ASSERT_TRUE(add("Core", "Q"));
  QVNInstallerManifest reader(bundle_.path());
  EXPECT_EQ(reader.componentListForProduct("Q"), Names{"Core"});
  EXPECT_EQ(reader.componentsAndVersionsForProduct("P"),
            array({dictionary({{"ComponentName", "Core"}, {"ComponentVersion", "1.2"}})}));
  EXPECT_EQ(reader.listOfDaemonsForComponents({"Core"}), Names{"svcd"});
  Names walked;
  EXPECT_TRUE(reader.walkManifestFileListForComponents(
      Names{"Core"}, true, true, [&walked](const std::string&, const PropertyList&, const FileEntry& item) {
        walked.emplace_back(item.listedPath().text());
        return true;
      }));
  EXPECT_EQ(walked, (Names{"/Library/Thing/f", "/Library/Thing", "/Library/LaunchDaemons/svcd.plist"}));
}

}  // namespace
}  // namespace deployer
