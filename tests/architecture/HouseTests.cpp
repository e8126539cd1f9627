// The house itself: what docs/architecture.md says is what the sources do, and the other way round.

#include <gtest/gtest.h>

#include <filesystem>
#include <set>
#include <string>
#include <string_view>
#include <vector>

#include "tests/architecture/BuildWalls.h"
#include "tests/architecture/IncludeWalls.h"
#include "tests/architecture/MarkdownTable.h"
#include "tests/architecture/PlacesOnPages.h"
#include "tests/architecture/RulesPage.h"
#include "tests/architecture/SourceWalls.h"
#include "tests/architecture/TestFiles.h"

namespace {

using architecture::House;
using architecture::Problems;

/// One problem on each line; nothing when there is none.
std::string listed(const Problems& problems) {
  std::string lines;
  for (const std::string& problem : problems) {
    lines += "\n" + problem;
  }
  return lines;
}

const House& house() {
  static const House kHouse = architecture::houseAt(CORVANE_PROJECT);
  return kHouse;
}

std::string page(const std::string& name) {
  return architecture::textOf(std::string(CORVANE_PROJECT) + "/docs/" + name);
}

std::set<std::string> tests() { return architecture::testsBelow(std::string(CORVANE_PROJECT) + "/tests"); }

TEST(House, EveryIncludeNamesAFileOfTheProduct) { EXPECT_EQ(listed(architecture::unknownIncludes(house())), ""); }

TEST(House, EveryFolderHasARow) { EXPECT_EQ(listed(architecture::roomsAgainstPage(house())), ""); }

TEST(House, EveryIncludeHasAnArrow) { EXPECT_EQ(listed(architecture::missingArrows(house())), ""); }

TEST(House, EveryArrowIsNeeded) { EXPECT_EQ(listed(architecture::idleArrows(house())), ""); }

TEST(House, TheSketchSaysNothingElseThanTheTable) {
  EXPECT_FALSE(house().page.sketch.empty());
  EXPECT_EQ(listed(architecture::sketchAgainstTable(house())), "");
}

TEST(House, NoFoldersIncludeEachOther) { EXPECT_EQ(listed(architecture::circlesOfRooms(house())), ""); }

TEST(House, NoHeadersAndSourcesIncludeEachOtherButThoseOnThePage) {
  EXPECT_EQ(listed(architecture::circlesOfPairs(house())), "");
}

TEST(House, NobodyIncludesWhatIsInternalToAnotherFolder) {
  EXPECT_EQ(listed(architecture::foreignInternals(house())), "");
}

TEST(House, NobodyAsksWhichSystemThisIs) {
  EXPECT_EQ(listed(architecture::systemQuestions(house())), "");
  EXPECT_EQ(listed(architecture::foreignSystems(house())), "");
}

TEST(House, StepsReachNoOtherProcess) {
  EXPECT_EQ(listed(architecture::reaches(house(), "InstallationDeployer/steps", "general/ipc")), "");
  EXPECT_EQ(listed(architecture::reaches(house(), "InstallationDeployer/steps", "general/foundation/execution")), "");
}

TEST(House, WhatIsGeneralKnowsNothingOfInstallers) {
  EXPECT_EQ(listed(architecture::reaches(house(), "general", "InstallationDeployer")), "");
}

TEST(House, EveryTargetIsOnThePage) { EXPECT_EQ(listed(architecture::targetsAgainstPage(house())), ""); }

TEST(House, EveryTargetLinksWhatItsFolderIncludes) {
  EXPECT_EQ(listed(architecture::linksAgainstIncludes(house())), "");
}

TEST(House, EveryTargetHandsOnWhatItsHeadersNeedAndNothingElse) {
  EXPECT_EQ(listed(architecture::linksAgainstHeaders(house())), "");
}

TEST(House, EverySourceIsBuilt) { EXPECT_EQ(listed(architecture::unbuiltSources(house())), ""); }

TEST(House, NoFileIsLongerThanFourHundredLines) { EXPECT_EQ(listed(architecture::filesLongerThan(house(), 400)), ""); }

TEST(House, NoFunctionIsLongerThanAScreen) { EXPECT_EQ(listed(architecture::functionsLongerThan(house(), 60)), ""); }

TEST(House, OneClassOfTheEngineReadsTheKeysOfAnEntry) {
  // Beside it: where keys are spelled, what writes entries, and the tool, which also reads what no engine would.
  const std::vector<std::string_view> places = {"ManifestKeys", "FileEntry", "ComponentScan", "AuthoringPlist",
                                                "BundleContents"};
  for (const char* key : {"kManifestIsDirectory", "kManifestIsSymbolicLink", "kManifestSymbolicLinkTarget",
                          "kManifestSHAChecksum", "kManifestIsModifiableFile", "kManifestCheckForExternalFileChanges",
                          "kManifestIsWildcardPath", "kManifestRemoveDirectoryAndContents", "entry[kManifest"}) {
    EXPECT_EQ(listed(architecture::codeOutside(house(), key, places)), "");
  }
}

TEST(House, NobodyCallsWhatIsBanned) {
  EXPECT_EQ(listed(architecture::callsOf(house(), architecture::bannedCalls())), "");
}

TEST(House, EveryUnitTestIsFoundByTheNameOfItsSubject) {
  auto files = architecture::unitTestFilesOf(CORVANE_PROJECT);
  // Its subject is a page.
  std::erase(files, "general/ipc/ProtocolPageTests.cpp");
  EXPECT_EQ(listed(architecture::testFilesWithoutSubject(house(), files)), "");
}

TEST(House, EveryBuildFileIsLaidOutAlike) {
  const std::string project = CORVANE_PROJECT;
  std::size_t files = 0;
  for (const char* folder :
       {"InstallationDeployer", "general", "frontend", "tools", "tests", "fuzz", "benchmarks", "cmake"}) {
    for (const auto& item : std::filesystem::recursive_directory_iterator(project + "/" + folder)) {
      if (item.path().filename() == "CMakeLists.txt" || item.path().extension() == ".cmake") {
        const std::string path = item.path().string();
        EXPECT_EQ(listed(architecture::strayLinesOf(path, architecture::textOf(path))), "");
        ++files;
      }
    }
  }
  EXPECT_GT(files, 20U);
}

TEST(House, EveryPromiseHasItsTests) {
  const auto rules = architecture::rulesOn(page("rules.md"), {"Promise", "Shown by"});
  EXPECT_EQ(listed(architecture::rulesWithoutTests(rules, tests())), "");
}

TEST(House, EveryThreatHasItsTestsAndItsPlaceInTheCode) {
  const architecture::Row header = {"What could happen", "What prevents it", "Where", "Shown by"};
  EXPECT_EQ(listed(architecture::rulesWithoutTests(architecture::rulesOn(page("threat-model.md"), header), tests())),
            "");
  const auto places = architecture::wordsInColumn(architecture::rowsOfAll(page("threat-model.md"), header), 2);
  EXPECT_EQ(listed(architecture::namesWithoutSource(house(), places)), "");
}

TEST(House, EveryDoorToTheSystemIsOnItsPage) {
  const auto rows =
      architecture::rowsOfAll(page("porting.md"), {"Door", "Contract", "Linux", "macOS", "What may be absent"});
  EXPECT_EQ(listed(architecture::doorsAgainstPage(house(), architecture::wordsInColumn(rows, 0))), "");
}

TEST(House, EveryClassOnItsPagesIsInTheCode) {
  const auto words = architecture::wordsOfCode(CORVANE_PROJECT);
  for (const char* name : {"architecture.md", "how-it-works.md", "glossary.md", "threat-model.md", "porting.md"}) {
    EXPECT_EQ(listed(architecture::namesNotInCode(page(name), words)), "") << name;
  }
}

TEST(House, EveryPathAndLinkOfItsPagesLeadsSomewhere) {
  std::vector<std::string> pages = {"README.md"};
  for (const auto& item : std::filesystem::directory_iterator(std::string(CORVANE_PROJECT) + "/docs")) {
    pages.push_back("docs/" + item.path().filename().string());
  }
  for (const std::string& path : pages) {
    EXPECT_EQ(listed(architecture::pathsThatLeadNowhere(CORVANE_PROJECT, path)), "");
  }
}

}  // namespace
