#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <climits>
#include <filesystem>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "InstallationDeployer/installed/QVNRemoveComponentsStrategy.h"
#include "general/foundation/propertylist/TextFormat.h"
#include "tests/support/PropertyLists.h"
#include "tests/support/StepTest.h"

namespace {

using deployer::Plan;
using deployer::QVNRemoveComponentsStrategy;
using tests::CapturedLog;
using namespace std::string_literals;

class RemoveComponents : public tests::StepTest {
 protected:
  static constexpr uid_t kSomebody = 501;

  static Keys withContents() { return {{std::string(deployer::kManifestRemoveDirectoryAndContents), true}}; }
  static PropertyList file(const std::string& path) { return entry(path, {}); }
  static PropertyList modifiableFile(const std::string& path) {
    return entry(path, {{std::string(deployer::kManifestIsModifiableFile), true}});
  }
  std::string makeFile(std::string_view name) {
    writeFile(path(name), "x");
    return path(name);
  }
  std::string makeDirectory(std::string_view name) {
    std::filesystem::create_directories(path(name));
    return path(name);
  }
  std::string makeLink(std::string_view name, const std::string& target, uid_t owner = geteuid()) {
    EXPECT_EQ(symlink(target.c_str(), path(name).c_str()), 0);
    EXPECT_EQ(lchown(path(name).c_str(), owner, static_cast<gid_t>(-1)), 0);
    return path(name);
  }
  [[nodiscard]] bool exists(std::string_view name) const {
    struct stat status {};
    return lstat(path(name).c_str(), &status) == 0;
  }

  void describe(const std::string& component, Entries entries) {
    writeComponent(component, manifestOf(std::move(entries)));
  }
  bool remove(Plan plan, bool isLocal = true) {
    step_ = std::make_unique<QVNRemoveComponentsStrategy>(PropertyList(), "step", nullptr, run(),
                                                          std::make_shared<Plan>(std::move(plan)), isLocal);
    return step_->execute(true);
  }
  bool remove(Entries entries, bool isLocal = true) {
    describe("Core", std::move(entries));
    return remove(Plan{"Core"}, isLocal);
  }
  [[nodiscard]] deployer::QVNInstallerState state() const { return step_->installerState(); }

  static std::string notEmpty(const std::string& directory) {
    return "Did not remove directory, not empty. Directory: " + directory;
  }
  static std::string restricted(const std::string& path) {
    return "Attempted to remove path on restricted list. Path: " + path;
  }
  /// Whether the only error of the log begins so.
  static bool hasOneError(const CapturedLog& log, std::string_view beginning) {
    const auto errors = log.texts("Error");
    return errors.size() == 1 && errors.front().starts_with(beginning);
  }

  std::unique_ptr<QVNRemoveComponentsStrategy> step_;
};

class RemoveBesideLinksOfOthers : public RemoveComponents {
 protected:
  void SetUp() override {
    if (geteuid() != 0) {
      GTEST_SKIP() << "only root can make links of others";
    }
  }
};

TEST_F(RemoveComponents, RemovesFilesBeforeTheDirectoriesThatHoldThem) {
  makeFile("product/folder/file");
  const CapturedLog log;
  EXPECT_TRUE(
      remove({directory(path("product")), directory(path("product/folder")), file(path("product/folder/file"))}));
  EXPECT_FALSE(exists("product"));
  EXPECT_EQ(state(), deployer::QVNInstallerStateRemoving);
  EXPECT_EQ(run().states, std::vector<deployer::QVNInstallerState>{deployer::QVNInstallerStateRemoving});
  EXPECT_TRUE(log.texts("Error").empty());
}

TEST_F(RemoveComponents, RemovesTheComponentsInTheOrderOfThePlan) {
  describe("Inner", {file(makeFile("folder/file"))});
  describe("Outer", {directory(path("folder"))});
  const CapturedLog log;
  EXPECT_TRUE(remove(Plan{"Inner", "Outer"}));
  EXPECT_FALSE(exists("folder"));
}

TEST_F(RemoveComponents, WhatIsMissingIsNoFailure) {
  makeFile("file");
  const CapturedLog log;
  EXPECT_TRUE(remove({directory(path("missing")), file(path("missing/file")), file(path("gone")),
                      directory(path("away"), withContents()), file(path("file/below"))}));
  EXPECT_TRUE(log.texts("Error").empty());
}

TEST_F(RemoveComponents, AFailedStepBeforeMakesItDoNothing) {
  describe("Core", {file(makeFile("file"))});
  const CapturedLog log;
  step_ = std::make_unique<QVNRemoveComponentsStrategy>(PropertyList(), "step", nullptr, run(),
                                                        std::make_shared<Plan>(Plan{"Core"}), true);
  EXPECT_FALSE(step_->execute(false));
  EXPECT_TRUE(exists("file"));
  EXPECT_EQ(state(), deployer::QVNInstallerStateSuccess);
  EXPECT_TRUE(run().states.empty());
}

// --- Where it may run

TEST_F(RemoveComponents, FromAPlaceThatIsNotTheReceiptItFailsBeforeAnythingIsTouched) {
  const CapturedLog log;
  EXPECT_FALSE(remove({file(makeFile("file"))}, false));
  EXPECT_EQ(state(), deployer::QVNInstallerStateFailed);
  EXPECT_TRUE(exists("file"));
  EXPECT_TRUE(run().states.empty());
  EXPECT_EQ(log.texts("Error"),
            std::vector<std::string>{"QVNRemoveComponentsStrategy must run from the receipt location.\n\tCurrently "
                                     "running from: " +
                                     bundle()});
}

TEST_F(RemoveComponents, FromTheReceiptItRunsWithoutBeingLocal) {
  run().configuration().setBundlePathIsReceipt(true);
  const CapturedLog log;
  EXPECT_TRUE(remove({file(makeFile("file"))}, false));
  EXPECT_FALSE(exists("file"));
}

TEST_F(RemoveComponents, TellsAndTakesWhetherItIsLocal) {
  const CapturedLog log;
  EXPECT_TRUE(remove(Plan{}, true));
  EXPECT_TRUE(step_->isLocal());
  step_->setIsLocal(false);
  EXPECT_FALSE(step_->isLocal());
  EXPECT_FALSE(step_->execute(true));
}

// --- System folders

TEST_F(RemoveComponents, ARestrictedPathDeepInTheListEndsTheRemoval) {
  const CapturedLog log;
  EXPECT_FALSE(remove({file(makeFile("last")), directory("/net"), file(makeFile("first"))}));
  EXPECT_EQ(state(), deployer::QVNInstallerStateFailed);
  EXPECT_EQ(log.texts("Error"), std::vector<std::string>{restricted("/net")});
  EXPECT_FALSE(exists("first"));
  EXPECT_TRUE(exists("last"));
}

TEST_F(RemoveComponents, ARestrictedPathOfALaterComponentEndsTheRemovalToo) {
  describe("A", {file(makeFile("a"))});
  describe("B", {file("/mach_kernel")});
  describe("C", {file(makeFile("c"))});
  const CapturedLog log;
  EXPECT_FALSE(remove(Plan{"A", "B", "C"}));
  EXPECT_FALSE(exists("a"));
  EXPECT_TRUE(exists("c"));
}

TEST_F(RemoveComponents, OtherSpellingsOfARestrictedPathAreNotRestricted) {
  for (const std::string spelling : {"/net/", "//net", "/./net", "/net/.", "/net//"}) {
    const CapturedLog log;
    EXPECT_TRUE(remove({directory(spelling)})) << spelling;
    EXPECT_TRUE(log.texts("Error").empty()) << log.text();
  }
}

TEST_F(RemoveComponents, TheRootInAnotherSpellingCannotBeRemoved) {
  for (const std::string spelling : {"//", "/."}) {
    const CapturedLog log;
    EXPECT_FALSE(remove({directory(spelling)})) << spelling;
    EXPECT_EQ(state(), deployer::QVNInstallerStateFailed) << spelling;
    EXPECT_EQ(log.texts("Error").size(), 1U);
  }
}

TEST_F(RemoveComponents, WhatOnlyBeginsLikeARestrictedPathIsRemoved) {
  const CapturedLog log;
  EXPECT_TRUE(remove({directory("/net/of a unit test"), file("/mach_kernel.of.a.unit.test")}));
}

TEST_F(RemoveComponents, EntriesWithoutAUsablePathEndTheRemoval) {
  makeFile("file");
  makeFile("folder/x");
  ASSERT_EQ(chdir(path("").c_str()), 0);
  const Entries unusable = {
      PropertyList::dictionary(),
      PropertyList("text"),
      PropertyList::dictionary({{std::string(deployer::kManifestFilePath), 7}}),
      file(""),
      file("file"),
      file("./file"),
      file(path("folder/../file")),
      directory(path("folder/.."), withContents()),
      file(path("file\0x"s)),
      file(path("file\0"s)),
  };
  for (const PropertyList& entry : unusable) {
    const CapturedLog log;
    EXPECT_FALSE(remove({entry})) << foundation::description(entry);
    EXPECT_EQ(state(), deployer::QVNInstallerStateFailed);
    EXPECT_TRUE(hasOneError(log, "A file of component Core has no usable path: ")) << log.text();
  }
  ASSERT_EQ(chdir("/"), 0);
  EXPECT_TRUE(exists("file"));
  EXPECT_TRUE(exists("folder/x"));
}

TEST_F(RemoveComponents, NamesBeyondTheSystemsLimitsFailTheCallThatIsMadeWithThem) {
  std::string deep = "deep";
  while (deep.size() < PATH_MAX) {
    deep += "/deep";
  }
  for (const std::string& name : {std::string(256, 'x'), std::string(256, 'x') + "/below", deep}) {
    for (const auto& [entry, text] :
         {std::pair(file(path(name)), "Unable to remove file. Error Domain=NSCocoaErrorDomain Code=514 "),
          std::pair(directory(path(name)), "Unable to read directory contents. Error Domain=NSCocoaErrorDomain Code="),
          std::pair(directory(path(name), withContents()),
                    "Unable to remove directory. Error Domain=NSCocoaErrorDomain Code=514 ")}) {
      const CapturedLog log;
      EXPECT_FALSE(remove({entry}));
      EXPECT_EQ(state(), deployer::QVNInstallerStateFailed);
      EXPECT_TRUE(hasOneError(log, text)) << log.text();
    }
  }
}

// --- Directories

TEST_F(RemoveComponents, ADirectoryThatHoldsOnlyTheFindersFileIsRemoved) {
  makeFile("folder/.DS_Store");
  const CapturedLog log;
  EXPECT_TRUE(remove({directory(path("folder"))}));
  EXPECT_FALSE(exists("folder"));
}

TEST_F(RemoveComponents, ADirectoryThatHoldsTheFindersFileAndOneMoreItemStays) {
  makeFile("folder/.DS_Store");
  makeFile("folder/other");
  const CapturedLog log;
  EXPECT_TRUE(remove({directory(path("folder"))}));
  EXPECT_TRUE(exists("folder/.DS_Store"));
  EXPECT_TRUE(exists("folder/other"));
  EXPECT_TRUE(log.contains("Debug", notEmpty(path("folder"))));
}

TEST_F(RemoveComponents, ADirectoryThatHoldsSomethingElseStays) {
  makeFile("folder/.DS_Store2");
  const CapturedLog log;
  EXPECT_TRUE(remove({directory(path("folder"))}));
  EXPECT_TRUE(exists("folder/.DS_Store2"));
  EXPECT_TRUE(log.contains("Debug", notEmpty(path("folder"))));
}

TEST_F(RemoveComponents, AnEmptyFolderNamedLikeTheFindersFileGoesWithItsDirectory) {
  makeDirectory("folder/.DS_Store");
  const CapturedLog log;
  EXPECT_TRUE(remove({directory(path("folder"))}));
  EXPECT_FALSE(exists("folder"));
}

TEST_F(RemoveComponents, AFolderNamedLikeTheFindersFileKeepsWhatItHolds) {
  makeFile("folder/.DS_Store/file");
  const CapturedLog log;
  EXPECT_TRUE(remove({directory(path("folder"))}));
  EXPECT_TRUE(exists("folder/.DS_Store/file"));
  EXPECT_TRUE(log.contains("Debug", notEmpty(path("folder"))));
}

TEST_F(RemoveComponents, ALinkNamedLikeTheFindersFileGoesAndWhatItLeadsToStays) {
  makeFile("outside/file");
  makeDirectory("folder");
  makeLink("folder/.DS_Store", path("outside"));
  const CapturedLog log;
  EXPECT_TRUE(remove({directory(path("folder"))}));
  EXPECT_FALSE(exists("folder"));
  EXPECT_TRUE(exists("outside/file"));
}

TEST_F(RemoveComponents, ADirectoryIsRemovedWithItsContentsWhereTheManifestSaysSo) {
  makeFile("outside/file");
  makeFile("folder/a/b/file");
  makeLink("folder/a/link", path("outside"));
  const CapturedLog log;
  EXPECT_TRUE(remove({directory(path("folder"), withContents())}));
  EXPECT_FALSE(exists("folder"));
  EXPECT_TRUE(exists("outside/file"));
}

TEST_F(RemoveComponents, OfADirectoryWithContentsThatIsALinkOnlyTheLinkGoes) {
  makeFile("outside/file");
  makeLink("folder", path("outside"));
  const CapturedLog log;
  EXPECT_TRUE(remove({directory(path("folder/"), withContents())}));
  EXPECT_FALSE(exists("folder"));
  EXPECT_TRUE(exists("outside/file"));
}

TEST_F(RemoveComponents, ALinkToAnEmptyDirectoryInADirectorysPlaceIsRemovedItself) {
  makeDirectory("outside");
  makeFile("other/.DS_Store");
  makeLink("folder", path("outside"));
  makeLink("second", path("other"));
  const CapturedLog log;
  EXPECT_TRUE(remove({directory(path("folder")), directory(path("second"))}));
  EXPECT_FALSE(exists("folder"));
  EXPECT_FALSE(exists("second"));
  EXPECT_TRUE(exists("outside"));
  EXPECT_TRUE(exists("other/.DS_Store"));
  EXPECT_TRUE(log.texts("Error").empty());
}

TEST_F(RemoveComponents, ALinkToADirectoryThatHoldsSomethingStaysInADirectorysPlace) {
  makeFile("outside/file");
  makeLink("folder", path("outside"));
  const CapturedLog log;
  EXPECT_TRUE(remove({directory(path("folder"))}));
  EXPECT_TRUE(exists("folder"));
  EXPECT_TRUE(exists("outside/file"));
  EXPECT_TRUE(log.contains("Debug", notEmpty(path("folder"))));
}

TEST_F(RemoveComponents, ALinkThatLeadsNowhereInADirectorysPlaceIsAMissingDirectory) {
  makeLink("folder", path("nowhere"));
  const CapturedLog log;
  EXPECT_TRUE(remove({directory(path("folder"))}));
  EXPECT_TRUE(exists("folder"));
  EXPECT_TRUE(log.texts("Error").empty());
}

TEST_F(RemoveComponents, ALinkInADirectorysPlaceThatLeadsInACircleOrToAFileEndsTheRemoval) {
  makeLink("circle", path("circle"));
  makeFile("file");
  makeLink("leading to a file", path("file"));
  for (const char* name : {"circle", "leading to a file"}) {
    const CapturedLog log;
    EXPECT_FALSE(remove({directory(path(name))})) << name;
    EXPECT_EQ(state(), deployer::QVNInstallerStateFailed);
    EXPECT_TRUE(hasOneError(log, "Unable to read directory contents. Error Domain=")) << log.text();
    EXPECT_TRUE(exists(name));
  }
}

TEST_F(RemoveComponents, AFileInADirectorysPlaceEndsTheRemoval) {
  makeFile("folder");
  const CapturedLog log;
  EXPECT_FALSE(remove({file(makeFile("last")), directory(path("folder"))}));
  EXPECT_EQ(state(), deployer::QVNInstallerStateFailed);
  EXPECT_TRUE(hasOneError(log, "Unable to read directory contents. Error Domain=")) << log.text();
  EXPECT_TRUE(exists("folder"));
  EXPECT_TRUE(exists("last"));
}

TEST_F(RemoveComponents, OtherSpellingsOfAPathRemoveTheItem) {
  makeFile("folder/file");
  const CapturedLog log;
  EXPECT_TRUE(remove({directory(path("folder/")), file(path("folder/.//file"))}));
  EXPECT_FALSE(exists("folder"));
}

// --- Files

TEST_F(RemoveComponents, OfALinkOnlyTheLinkGoes) {
  makeFile("outside/file");
  makeLink("a", path("outside"));
  makeLink("b", "nowhere");
  const CapturedLog log;
  EXPECT_TRUE(remove({link(path("a"), path("outside")), file(path("b"))}));
  EXPECT_FALSE(exists("a"));
  EXPECT_FALSE(exists("b"));
  EXPECT_TRUE(exists("outside/file"));
}

TEST_F(RemoveComponents, ReadOnlyFilesAreRemoved) {
  makeFile("folder/file");
  ASSERT_EQ(chmod(path("folder/file").c_str(), 0), 0);
  const CapturedLog log;
  EXPECT_TRUE(remove({file(path("folder/file"))}));
  EXPECT_FALSE(exists("folder/file"));
}

TEST_F(RemoveComponents, ADirectoryInAFilesPlaceStaysWithWhatItHolds) {
  makeFile("file/of somebody");
  const CapturedLog log;
  EXPECT_TRUE(remove({file(path("file"))}));
  EXPECT_TRUE(exists("file/of somebody"));
  EXPECT_TRUE(log.contains("Debug", notEmpty(path("file"))));
}

TEST_F(RemoveComponents, AnEmptyDirectoryInAFilesPlaceIsRemoved) {
  makeDirectory("file");
  const CapturedLog log;
  EXPECT_TRUE(remove({file(path("file"))}));
  EXPECT_FALSE(exists("file"));
}

TEST_F(RemoveComponents, AModifiableFileStaysUnlessTheRunWasStartedToRemove) {
  makeFile("file");
  const CapturedLog log;
  EXPECT_TRUE(remove({modifiableFile(path("file"))}));
  EXPECT_TRUE(exists("file"));
  EXPECT_TRUE(log.contains("Debug", "itemPath = " + path("file") + "\n\tself.configuration.remove = 0"));
}

TEST_F(RemoveComponents, AModifiableFileIsRemovedWhenTheRunWasStartedToRemove) {
  makeFile("file");
  run().configuration().setRemove(true);
  const CapturedLog log;
  EXPECT_TRUE(remove({modifiableFile(path("file"))}));
  EXPECT_FALSE(exists("file"));
  EXPECT_TRUE(log.contains("Debug", "itemPath = " + path("file") + "\n\tself.configuration.remove = 1"));
}

TEST_F(RemoveComponents, OtherFilesAreRemovedWithoutALine) {
  makeFile("file");
  const CapturedLog log;
  EXPECT_TRUE(remove({file(path("file"))}));
  for (const std::string& line : log.texts("Debug")) {
    EXPECT_FALSE(line.starts_with("itemPath")) << line;
  }
}

// --- Links on the way

TEST_F(RemoveComponents, LinksOfTheEffectiveUserOnTheWayAreFollowed) {
  makeFile("real/sub/a");
  makeFile("real/sub/b");
  makeLink("absolute", path("real"));
  makeLink("relative", "./absolute/../real");
  const CapturedLog log;
  EXPECT_TRUE(remove({directory(path("relative/sub")), file(path("absolute/sub/a")), file(path("relative/sub/b"))}));
  EXPECT_FALSE(exists("real/sub"));
  EXPECT_TRUE(exists("real"));
}

TEST_F(RemoveComponents, LinksThatLeadInACircleEndTheRemoval) {
  makeLink("a", "b");
  makeLink("b", "a");
  const CapturedLog log;
  EXPECT_FALSE(remove({file(path("a/file"))}));
  EXPECT_TRUE(hasOneError(log, "Unable to remove file. Error Domain=")) << log.text();
}

TEST_F(RemoveBesideLinksOfOthers, OneOnTheWayToAFileEndsTheRemoval) {
  makeFile("outside/file");
  makeLink("folder", path("outside"), kSomebody);
  const CapturedLog log;
  EXPECT_FALSE(remove({file(makeFile("last")), file(path("folder/file"))}));
  EXPECT_EQ(state(), deployer::QVNInstallerStateFailed);
  EXPECT_TRUE(hasOneError(log,
                          "Unable to remove file. Error Domain=NSCocoaErrorDomain Code=513 \"The link \"folder\" on "
                          "the way there belongs to somebody else. Remove the link and run the same command again.\""))
      << log.text();
  EXPECT_TRUE(exists("outside/file"));
  EXPECT_TRUE(exists("last"));
}

TEST_F(RemoveBesideLinksOfOthers, OneBehindALinkOfTheEffectiveUserIsNotFollowedEither) {
  makeFile("outside/file");
  makeLink("theirs", path("outside"), kSomebody);
  makeLink("ours", "theirs");
  const CapturedLog log;
  EXPECT_FALSE(remove({file(path("ours/file"))}));
  EXPECT_TRUE(exists("outside/file"));
}

TEST_F(RemoveBesideLinksOfOthers, OneOnTheWayToADirectoryEndsTheRemoval) {
  makeDirectory("outside/empty");
  makeFile("outside/full/file");
  makeLink("folder", path("outside"), kSomebody);
  const CapturedLog log;
  EXPECT_FALSE(remove({directory(path("folder/empty"))}));
  EXPECT_FALSE(remove({directory(path("folder/full"), withContents())}));
  EXPECT_TRUE(exists("outside/empty"));
  EXPECT_TRUE(exists("outside/full/file"));
}

TEST_F(RemoveBesideLinksOfOthers, OneAtTheListedPathItselfIsRemovedAndNotFollowed) {
  makeFile("outside/file");
  makeLink("file", path("outside/file"), kSomebody);
  makeLink("folder", path("outside"), kSomebody);
  const CapturedLog log;
  EXPECT_TRUE(remove({file(path("file")), directory(path("folder"), withContents())}));
  EXPECT_FALSE(exists("file"));
  EXPECT_FALSE(exists("folder"));
  EXPECT_TRUE(exists("outside/file"));
}

TEST_F(RemoveBesideLinksOfOthers, OneInADirectorysPlaceGoesWhateverItLeadsTo) {
  makeFile("outside/file");
  makeLink("folder", path("outside"), kSomebody);
  makeLink("circle", path("circle"), kSomebody);
  const CapturedLog log;
  EXPECT_TRUE(remove({directory(path("folder")), directory(path("circle"))}));
  EXPECT_FALSE(exists("folder"));
  EXPECT_FALSE(exists("circle"));
  EXPECT_TRUE(exists("outside/file"));
}

// --- Plans and manifests

TEST_F(RemoveComponents, AnEmptyPlanAndManifestsWithoutFilesRemoveNothing) {
  writeComponent("Odd", PropertyList::dictionary({{std::string(deployer::kManifestListOfFiles), "none"}}));
  const CapturedLog log;
  EXPECT_TRUE(remove(Plan{}));
  EXPECT_TRUE(remove(Plan{"Absent", "Odd"}));
  EXPECT_EQ(state(), deployer::QVNInstallerStateRemoving);
}

TEST_F(RemoveComponents, WithoutAPlanItFails) {
  QVNRemoveComponentsStrategy step(PropertyList(), "step", nullptr, run(), nullptr, true);
  const CapturedLog log;
  EXPECT_FALSE(step.execute(true));
  EXPECT_EQ(step.installerState(), deployer::QVNInstallerStateFailed);
}

TEST_F(RemoveComponents, AManifestThatCannotBeReadFailsTheStep) {
  describe("Core", {file(makeFile("file"))});
  const CapturedLog log;
  EXPECT_FALSE(remove(Plan{"no/component", "Core"}));
  EXPECT_EQ(state(), deployer::QVNInstallerStateFailed);
  EXPECT_TRUE(hasOneError(log, "Failed to read manifest for no/component. ")) << log.text();
  EXPECT_TRUE(exists("file"));
}

TEST_F(RemoveComponents, ProgressIsTheBaseClasss) {
  const CapturedLog log;
  EXPECT_TRUE(remove(Plan{}));
  EXPECT_EQ(step_->getProgress(), 10U);
  EXPECT_EQ(step_->getProgress(), 20U);
}

}  // namespace
