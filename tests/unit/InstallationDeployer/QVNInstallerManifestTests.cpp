#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>
#include <functional>
#include <string>

#include "InstallationDeployer/InternalInconsistency.h"
#include "InstallationDeployer/ManifestKeys.h"
#include "InstallationDeployer/QVNInstallerManifest.h"
#include "general/foundation/propertylist/PropertyListFile.h"
#include "tests/support/CapturedLog.h"
#include "tests/support/NoDescriptors.h"
#include "tests/support/PropertyLists.h"
#include "tests/support/TemporaryDirectory.h"

namespace deployer {
namespace {

using foundation::PropertyList;
using Names = QVNInstallerManifest::Names;

PropertyList names(const std::vector<std::string>& texts) { return PropertyList(texts); }

class ManifestQueries : public ::testing::Test, protected tests::PropertyLists {
 protected:
  void writeIndex(const PropertyList& index) const { write("Index", index); }
  void write(const std::string& name, const PropertyList& content) const {
    directory_.makeDirectory("Contents/Install/Manifests");
    ASSERT_TRUE(foundation::plist::writeFile(content, file(name)).ok());
  }
  [[nodiscard]] std::string file(const std::string& name) const {
    return directory_.path("Contents/Install/Manifests/" + name + ".plist");
  }
  void writeProduct(const std::string& product, const PropertyList& phases) const {
    writeIndex(indexOf(product, dictionary({{"ListOfInstallPhases", phases}})));
  }
  void writeProduct(const std::string& product, const std::vector<std::string>& components) const {
    writeIndex(indexOfComponents(product, components));
  }
  void writeFiles(const std::string& component, const std::vector<std::string>& filePaths) const {
    PropertyList::Array entries;
    for (const std::string& path : filePaths) {
      entries.push_back(dictionary({{"Path", path}}));
    }
    write(component, dictionary({{"ListOfFiles", PropertyList(entries)}}));
  }

  tests::TemporaryDirectory directory_;
  QVNInstallerManifest manifest_{directory_.path()};
};

TEST_F(ManifestQueries, ComponentNamedCoreHasItsManifestUnderTheBundle) {
  EXPECT_EQ(manifest_.getPathForComponent("Core"), directory_.path("Contents/Install/Manifests/Core.plist"));
  EXPECT_EQ(manifest_.componentManifestPathForName("Core"), manifest_.getPathForComponent("Core"));
  EXPECT_EQ(manifest_.getPathForComponent("a.b"), directory_.path("Contents/Install/Manifests/a.b.plist"));
}

TEST_F(ManifestQueries, IndexThatWasNeverWrittenReadsAsAbsentWithoutAWord) {
  const tests::CapturedLog log;
  EXPECT_TRUE(manifest_.manifestIndex().isNil());
  EXPECT_TRUE(manifest_.productsDictionary().isNil());
  EXPECT_TRUE(manifest_.arrayOfInstallPhasesForProduct("P").isNil());
  EXPECT_TRUE(manifest_.crossGradeDictionariesForProduct("P").isNil());
  EXPECT_TRUE(manifest_.listOfProductDetectionDictionaries().isNil());
  EXPECT_TRUE(manifest_.productsForRemoval().isNil());
  EXPECT_EQ(manifest_.installerState(), 0);
  EXPECT_TRUE(log.messages().empty());
}

TEST_F(ManifestQueries, IndexCreatedAfterAFailedReadIsPickedUp) {
  EXPECT_TRUE(manifest_.manifestIndex().isNil());
  writeIndex(dictionary({{"PayloadSize", 5}}));
  EXPECT_EQ(manifest_.manifestIndex()["PayloadSize"].integer(), 5);
}

TEST_F(ManifestQueries, IndexIsKeptOnceItWasRead) {
  writeIndex(dictionary({{"PayloadSize", 5}}));
  EXPECT_EQ(manifest_.manifestIndex()["PayloadSize"].integer(), 5);
  std::filesystem::remove(file("Index"));
  EXPECT_EQ(manifest_.manifestIndex()["PayloadSize"].integer(), 5);
}

TEST_F(ManifestQueries, IndexThatDoesNotParseIsAbsentWithoutAWord) {
  directory_.write("Contents/Install/Manifests/Index.plist", "no property list");
  const tests::CapturedLog log;
  EXPECT_TRUE(manifest_.manifestIndex().isNil());
  EXPECT_TRUE(log.messages().empty());
}

TEST_F(ManifestQueries, IndexThatCannotBeReadFailsTheManifest) {
  directory_.write("Contents/Install", "a file where a folder should be");
  const tests::CapturedLog log;
  EXPECT_TRUE(manifest_.manifestIndex().isNil());
  const auto errors = log.texts("Error");
  ASSERT_EQ(errors.size(), 1U);
  EXPECT_TRUE(errors[0].starts_with("Failed to read manifest index: " + file("Index") + ". Error Domain="));
  EXPECT_EQ(manifest_.installerState(), 1);
  EXPECT_TRUE(manifest_.couldNotRead());
}

TEST_F(ManifestQueries, IndexThatIsThereButCannotBeOpenedIsNoMissingOne) {
  writeIndex(dictionary({{"PayloadSize", 5}}));
  const tests::CapturedLog log;
  {
    const tests::NoDescriptors none;
    EXPECT_TRUE(manifest_.manifestIndex().isNil());
  }
  EXPECT_TRUE(log.text().find("Failed to read manifest index: " + file("Index") + ". Error Domain=") !=
              std::string::npos)
      << log.text();
  EXPECT_EQ(manifest_.installerState(), 1);
  EXPECT_EQ(manifest_.manifestIndex()["PayloadSize"].integer(), 5);
  EXPECT_TRUE(manifest_.couldNotRead());
}

TEST_F(ManifestQueries, ComponentManifestThatIsThereButCannotBeReadIsNoMissingOne) {
  write("Core", dictionary({{"ComponentVersion", "1.0"}}));
  directory_.makeDirectory("Contents/Install/Manifests/Folder.plist");
  ASSERT_EQ(mkfifo(file("Pipe").c_str(), 0644), 0);
  const tests::CapturedLog log;
  for (const char* const unreadable : {"Folder", "Pipe"}) {
    QVNInstallerManifest manifest(directory_.path());
    EXPECT_TRUE(manifest.getManifestForComponent(unreadable).isNil());
    EXPECT_EQ(manifest.installerState(), 1);
    EXPECT_TRUE(manifest.couldNotRead());
  }
  EXPECT_EQ(log.texts("Error").size(), 2U) << log.text();
  const tests::NoDescriptors none;
  EXPECT_TRUE(manifest_.getManifestForComponent("Core").isNil());
  EXPECT_TRUE(manifest_.couldNotRead());
}

TEST_F(ManifestQueries, WhetherManifestsCanBeReadIsToldBeforeTheyAreNeeded) {
  writeProduct("P", Names{"Core", "Broken", "Missing"});
  write("Core", dictionary({{"ComponentVersion", "1.0"}}));
  directory_.write("Contents/Install/Manifests/Broken.plist", "<plist><dict>");
  EXPECT_TRUE(manifest_.canRead({"Core", "Broken", "Missing"}));
  EXPECT_EQ(manifest_.installerState(), 0);
  directory_.makeDirectory("Contents/Install/Manifests/Folder.plist");
  const tests::CapturedLog log;
  EXPECT_FALSE(manifest_.canRead({"Core", "Folder"}));
}

TEST_F(ManifestQueries, AVersionThatIsMissingIsNothingThatCouldNotBeRead) {
  writeProduct("P", Names{"Core"});
  const tests::CapturedLog log;
  EXPECT_TRUE(manifest_.componentsAndVersionsForProduct("P").isNil());
  EXPECT_EQ(manifest_.installerState(), 1);
  EXPECT_FALSE(manifest_.couldNotRead());
}

TEST_F(ManifestQueries, WalkGoesOnWithoutAComponentThatIsKnownToBeMissing) {
  writeFiles("Core", {"/a"});
  manifest_.setInstallerState(1);
  std::string visited;
  const auto walk = [&] {
    visited.clear();
    return manifest_.walkManifestFileListForComponents(Names{"Gone", "Core"}, false, true,
                                                       [&](const std::string& component, const auto&, const auto&) {
                                                         visited += component;
                                                         return true;
                                                       });
  };
  EXPECT_FALSE(walk());
  EXPECT_FALSE(manifest_.listOfExecutablesForComponents({"Gone"}));
  manifest_.goOnWithout("Gone");
  EXPECT_TRUE(walk());
  EXPECT_EQ(visited, "Core");
  EXPECT_TRUE(manifest_.listOfExecutablesForComponents({"Gone"}));
}

TEST_F(ManifestQueries, ComponentManifestMissingOrUnparsableIsSilentlyAbsent) {
  directory_.write("Contents/Install/Manifests/Broken.plist", "<plist><dict>");
  const tests::CapturedLog log;
  EXPECT_TRUE(manifest_.getManifestForComponent("Missing").isNil());
  EXPECT_TRUE(manifest_.getManifestForComponent("Broken").isNil());
  EXPECT_EQ(manifest_.installerState(), 0);
  EXPECT_TRUE(log.messages().empty());
}

TEST_F(ManifestQueries, ComponentManifestThatCannotBeReadFailsTheManifest) {
  directory_.write("Contents/Install", "a file where a folder should be");
  const tests::CapturedLog log;
  EXPECT_TRUE(manifest_.getManifestForComponent("Core").isNil());
  EXPECT_EQ(manifest_.installerState(), 1);
  ASSERT_EQ(log.texts("Error").size(), 1U);
  EXPECT_TRUE(log.texts("Error")[0].starts_with("Failed to read manifest for Core. Error Domain="));
}

TEST_F(ManifestQueries, ComponentNameThatIsNoFileNameLeadsNowhere) {
  write("Core", dictionary({{"ComponentVersion", "1"}}));
  directory_.makeDirectory("Contents/Install/Manifests/x");
  for (const std::string& name : {std::string("x/../Core"), std::string("../Manifests/Core"), std::string(".."),
                                  std::string(""), std::string("Core\0x", 6), std::string(300, 'n')}) {
    QVNInstallerManifest manifest(directory_.path());
    EXPECT_TRUE(manifest.getManifestForComponent(name).isNil()) << name;
    EXPECT_EQ(manifest.installerState(), 1) << name;
  }
}

TEST_F(ManifestQueries, ComponentManifestIsSeenAsItIsOnDisk) {
  write("Core", dictionary({{"ComponentVersion", "1"}}));
  for (int version = 2; version < 6; ++version) {
    const std::string text = std::to_string(version);
    write("Core", dictionary({{"ComponentVersion", text}}));
    EXPECT_EQ(manifest_.getManifestForComponent("Core")["ComponentVersion"].text(), text);
    EXPECT_EQ(manifest_.getManifestForComponent("Core")["ComponentVersion"].text(), text);
  }
  std::filesystem::remove(file("Core"));
  EXPECT_TRUE(manifest_.getManifestForComponent("Core").isNil());
}

TEST_F(ManifestQueries, UnchangedComponentManifestIsTheSameValueAndAChangedOneIsNot) {
  write("Core", dictionary({{"ComponentVersion", "1"}, {"ListOfFiles", names({"a"})}}));
  // Old enough that the file's times tell every later change.
  const struct timespec longAgo[2] = {{1000000000, 0}, {1000000000, 0}};
  ASSERT_EQ(utimensat(AT_FDCWD, file("Core").c_str(), longAgo, 0), 0);
  const auto first = manifest_.getManifestForComponent("Core");
  // The change time is now; only a size and time equal to what was parsed could be mistaken.
  write("Core", dictionary({{"ComponentVersion", "2"}, {"ListOfFiles", names({"b"})}}));
  ASSERT_EQ(utimensat(AT_FDCWD, file("Core").c_str(), longAgo, 0), 0);
  EXPECT_EQ(manifest_.getManifestForComponent("Core")["ComponentVersion"].text(), "2");
  EXPECT_EQ(first["ComponentVersion"].text(), "1");
}

TEST_F(ManifestQueries, ProductWithoutPhasesHasNoComponentListAndFiltersToNothing) {
  writeProduct("P", PropertyList(PropertyList::Array{}));
  EXPECT_FALSE(manifest_.componentListForProduct("P"));
  EXPECT_FALSE(manifest_.componentListForProduct("Unknown"));
  EXPECT_TRUE(manifest_.filterComponents({"A"}, "P").empty());
}

TEST_F(ManifestQueries, FirstPhaseThatInstallsNoPayloadIsAnInconsistency) {
  writeProduct("P",
               PropertyList(PropertyList::Array{dictionary({{"InstallPhaseType", "ExternalInstallationDeployer"}})}));
  try {
    static_cast<void>(manifest_.componentListForProduct("P"));
    FAIL() << "nothing was thrown";
  } catch (const InternalInconsistency& inconsistency) {
    EXPECT_STREQ(inconsistency.what(), "Install Phase 0 of Product P is not LocalPayload");
  }
}

TEST_F(ManifestQueries, FilteringDropsDuplicatesAndStrangers) {
  writeProduct("P", {"A", "B"});
  EXPECT_EQ(manifest_.filterComponents({"A", "A", "X"}, "P"), Names({"A"}));
  EXPECT_EQ(manifest_.filterComponents({"B", "X", "A", "B"}, "P"), Names({"B", "A"}));
}

TEST_F(ManifestQueries, ComponentsAndVersionsComeInIndexOrder) {
  writeProduct("P", {"B", "A"});
  write("A", dictionary({{"ComponentVersion", "1.0"}}));
  write("B", dictionary({{"ComponentVersion", "2.0"}}));
  const PropertyList records = manifest_.componentsAndVersionsForProduct("P");
  EXPECT_EQ(records,
            PropertyList(PropertyList::Array{dictionary({{"ComponentName", "B"}, {"ComponentVersion", "2.0"}}),
                                             dictionary({{"ComponentName", "A"}, {"ComponentVersion", "1.0"}})}));
}

TEST_F(ManifestQueries, ComponentsAndVersionsFailWithoutAComponentList) {
  const tests::CapturedLog log;
  EXPECT_TRUE(manifest_.componentsAndVersionsForProduct("P").isNil());
  EXPECT_EQ(manifest_.installerState(), 1);
  EXPECT_TRUE(log.contains("Error", "Receipt unable to determine list of components."));
}

TEST_F(ManifestQueries, ComponentsAndVersionsFailWhenOneVersionIsUnknown) {
  writeProduct("P", {"A", "B"});
  write("A", dictionary({{"ComponentVersion", "1.0"}}));
  const tests::CapturedLog log;
  EXPECT_TRUE(manifest_.componentsAndVersionsForProduct("P").isNil());
  EXPECT_EQ(manifest_.installerState(), 1);
  EXPECT_TRUE(log.contains("Error", "Unable to retreive ComponentVersion for component B"));
}

TEST_F(ManifestQueries, ExecutablesKeepTheirOrderAndDuplicates) {
  const PropertyList one = dictionary({{"Path", "/one"}});
  const PropertyList two = dictionary({{"Path", "/two"}});
  write("A", dictionary({{"ListOfExecutables", PropertyList(PropertyList::Array{one, two})}}));
  write("B", dictionary({{"ListOfExecutables", PropertyList(PropertyList::Array{one})}}));
  const tests::CapturedLog log;
  const auto executables = manifest_.listOfExecutablesForComponents({"A", "Missing", "B"});
  ASSERT_TRUE(executables);
  EXPECT_EQ(*executables, (PropertyList::Array{one, two, one}));
  EXPECT_TRUE(log.contains("Debug", "Component Missing contains componentExecutables: (null)"));
  EXPECT_EQ(log.texts("Debug").size(), 3U);
}

TEST_F(ManifestQueries, DaemonsOfSeveralComponentsAppearOnceInOrderOfFirstAppearance) {
  write("A", dictionary({{"ListOfLaunchDaemons", names({"d1", "d2"})}, {"ListOfLaunchAgents", names({"a1"})}}));
  write("B", dictionary({{"ListOfLaunchDaemons", names({"d2", "d3"})}, {"ListOfLaunchAgents", names({"a1", "a0"})}}));
  EXPECT_EQ(manifest_.listOfDaemonsForComponents({"A", "Missing", "B"}), Names({"d1", "d2", "d3"}));
  EXPECT_EQ(manifest_.listOfAgentsForComponents({"A", "B"}), Names({"a1", "a0"}));
  EXPECT_EQ(manifest_.listOfDaemonsForComponent("A").strings(), Names({"d1", "d2"}));
  EXPECT_TRUE(manifest_.listOfAgentsForComponent("Missing").isNil());
}

TEST_F(ManifestQueries, WalkingLeavesToRootReversesEachComponentButNotTheirOrder) {
  writeFiles("A", {"/x", "/x/f"});
  writeFiles("B", {"/y"});
  Names visited;
  EXPECT_TRUE(manifest_.walkManifestFileListForComponents(
      Names{"A", "B"}, true, true, [&](const std::string&, const PropertyList&, const FileEntry& entry) {
        visited.emplace_back(entry.listedPath().text());
        return true;
      }));
  EXPECT_EQ(visited, Names({"/x/f", "/x", "/y"}));
}

TEST_F(ManifestQueries, WalkWithoutExitOnFailureAnswersWithTheLastCall) {
  writeFiles("A", {"/a1", "/a2"});
  writeFiles("B", {"/b"});
  Names visited;
  const auto failAt = [&](const std::string& failing) {
    return [&visited, failing](const std::string&, const PropertyList&, const FileEntry& entry) {
      visited.emplace_back(entry.listedPath().text());
      return entry.listedPath().text() != failing;
    };
  };
  EXPECT_TRUE(manifest_.walkManifestFileListForComponents(Names{"A", "B"}, false, false, failAt("/a2")));
  EXPECT_EQ(visited, Names({"/a1", "/a2", "/b"}));
  visited.clear();
  EXPECT_TRUE(manifest_.walkManifestFileListForComponents(Names{"A", "B"}, false, false, failAt("/a1")));
  EXPECT_EQ(visited, Names({"/a1", "/b"}));
  visited.clear();
  EXPECT_FALSE(manifest_.walkManifestFileListForComponents(Names{"A", "B"}, false, false, failAt("/b")));
  visited.clear();
  EXPECT_FALSE(manifest_.walkManifestFileListForComponents(Names{"A", "B"}, false, true, failAt("/a2")));
  EXPECT_EQ(visited, Names({"/a1", "/a2"}));
}

TEST_F(ManifestQueries, WalkWithoutAListAnswersNoAndWithAnEmptyOneYes) {
  const auto never = [](const std::string&, const PropertyList&, const FileEntry&) -> bool {
    ADD_FAILURE() << "called";
    return true;
  };
  EXPECT_FALSE(manifest_.walkManifestFileListForComponents(std::nullopt, false, false, never));
  EXPECT_TRUE(manifest_.walkManifestFileListForComponents(Names{}, false, false, never));
  EXPECT_TRUE(manifest_.walkManifestFileListForComponents(Names{"Missing"}, false, true, never));
}

TEST_F(ManifestQueries, WalkGivesTheBlockComponentAndManifest) {
  writeFiles("A", {"/a"});
  int calls = 0;
  EXPECT_TRUE(manifest_.walkManifestFileListForComponents(
      Names{"A"}, false, true, [&](const std::string& component, const PropertyList& manifest, const FileEntry& entry) {
        ++calls;
        EXPECT_EQ(component, "A");
        EXPECT_EQ(manifest["ListOfFiles"].at(0), entry.dictionary());
        return true;
      }));
  EXPECT_EQ(calls, 1);
}

TEST_F(ManifestQueries, WalkStopsAtAManifestThatCannotBeRead) {
  directory_.write("Contents/Install", "a file where a folder should be");
  EXPECT_FALSE(manifest_.walkManifestFileListForComponents(
      Names{"A"}, false, false, [](const std::string&, const PropertyList&, const FileEntry&) { return true; }));
}

}  // namespace
}  // namespace deployer
