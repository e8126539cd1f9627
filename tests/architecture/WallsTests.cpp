// Every wall can fail: small made-up houses, each with one thing wrong.

#include <gtest/gtest.h>

#include <string>
#include <string_view>

#include "tests/architecture/BuildWalls.h"
#include "tests/architecture/IncludeWalls.h"
#include "tests/support/TemporaryDirectory.h"

namespace {

using architecture::House;
using architecture::Problems;

const Problems kNone;

/// A house of three rooms in which all is well: steps includes ipc and files, files stands on what is its own.
class Walls : public ::testing::Test {
 protected:
  void SetUp() override {
    writePage("`ipc` `files`", "| `files/` | `First`, `Second` | they are one |");
    write("InstallationDeployer/steps/Step.h", "#pragma once\n\n#include \"general/ipc/Door.h\"\n");
    write("InstallationDeployer/steps/Step.cpp",
          "#include \"InstallationDeployer/steps/Step.h\"\n#include <string>\n#include \"general/files/First.h\"\n");
    write("InstallationDeployer/steps/CMakeLists.txt",
          "# Steps (some).\ncorvane_library(deployer_steps Step.cpp)\n"
          "target_link_libraries(deployer_steps PUBLIC ipc PRIVATE files)\n");
    write("general/ipc/Door.h", "#pragma once\n");
    write("general/ipc/linux/Door.cpp", "#include \"general/ipc/Door.h\"\n");
    write("general/ipc/darwin/Door.cpp", "#include \"general/ipc/Door.h\"\n");
    write("general/ipc/CMakeLists.txt", "corvane_library(ipc\n  ${CORVANE_PLATFORM}/Door.cpp\n)\n");
    write("general/files/First.h", "#include \"general/files/Second.h\"\n");
    write("general/files/Second.h", "#pragma once\n");
    write("general/files/Second.cpp", "#include \"general/files/First.h\"\n");
    write("general/files/internal/Hidden.h", "#pragma once\n");
    write("general/files/CMakeLists.txt", "add_library(files STATIC Second.cpp)\n");
  }

  void write(std::string_view path, std::string_view text) { folder_.write(path, text); }

  void writePage(const std::string& arrowsOfSteps, const std::string& circles) {
    write("docs/architecture.md",
          "# A page\n\n| Folder | Target | Home of | May include |\n|---|---|---|---|\n"
          "| `InstallationDeployer/steps/` | `deployer_steps` | steps | " +
              arrowsOfSteps +
              " |\n| `general/ipc/` | `ipc` | doors | |\n| `general/files/` | `files` | files | |\n\n"
              "| Folder | Circle | Why it stays |\n|---|---|---|\n" +
              circles + "\n");
  }

  [[nodiscard]] House house() const { return architecture::houseAt(folder_.path()); }

  tests::TemporaryDirectory folder_;
};

TEST_F(Walls, SayNothingWhereAllIsWell) {
  EXPECT_EQ(architecture::unknownIncludes(house()), kNone);
  EXPECT_EQ(architecture::roomsAgainstPage(house()), kNone);
  EXPECT_EQ(architecture::missingArrows(house()), kNone);
  EXPECT_EQ(architecture::idleArrows(house()), kNone);
  EXPECT_EQ(architecture::circlesOfRooms(house()), kNone);
  EXPECT_EQ(architecture::circlesOfPairs(house()), kNone);
  EXPECT_EQ(architecture::foreignInternals(house()), kNone);
  EXPECT_EQ(architecture::foreignSystems(house()), kNone);
  EXPECT_EQ(architecture::targetsAgainstPage(house()), kNone);
  EXPECT_EQ(architecture::linksAgainstIncludes(house()), kNone);
  EXPECT_EQ(architecture::linksAgainstHeaders(house()), kNone);
  EXPECT_EQ(architecture::unbuiltSources(house()), kNone);
}

TEST_F(Walls, NameTheIncludeWhoseArrowIsTakenOffThePage) {
  writePage("`files`", "");
  EXPECT_EQ(
      architecture::missingArrows(house()),
      Problems{"InstallationDeployer/steps/Step.h includes general/ipc/Door.h, but the page has no arrow from steps "
               "to ipc"});
}

TEST_F(Walls, NameTheArrowThatNoIncludeNeeds) {
  write("InstallationDeployer/steps/Step.cpp", "#include \"InstallationDeployer/steps/Step.h\"\n");
  EXPECT_EQ(architecture::idleArrows(house()),
            Problems{"the page has an arrow from steps to files that no include needs: take it off"});
}

TEST_F(Walls, NameAnArrowOfTheSketchThatTheTableHasNot) {
  House sketched = house();
  sketched.page.sketch = {{"steps", "files"}, {"ipc", "files"}};
  EXPECT_EQ(architecture::sketchAgainstTable(sketched),
            Problems{"the sketch has an arrow from ipc to files that the table has not"});
}

TEST_F(Walls, NameFoldersThatIncludeEachOther) {
  write("general/ipc/linux/Door.cpp", "#include \"InstallationDeployer/steps/Step.h\"\n");
  EXPECT_EQ(architecture::circlesOfRooms(house()),
            Problems{"these folders include each other: InstallationDeployer/steps and general/ipc"});
}

TEST_F(Walls, NameHeadersAndSourcesThatIncludeEachOther) {
  writePage("`ipc` `files`", "");
  EXPECT_EQ(architecture::circlesOfPairs(house()),
            Problems{"these headers and sources include each other: general/files/First and general/files/Second"});
}

TEST_F(Walls, NameACircleOfThePageThatIsNone) {
  write("general/files/First.h", "#pragma once\n");
  EXPECT_EQ(
      architecture::circlesOfPairs(house()),
      Problems{"the page has a circle that is none any more: general/files/First and general/files/Second: take it "
               "off"});
}

TEST_F(Walls, NameTheIncludeOfAnotherFoldersInside) {
  write("InstallationDeployer/steps/Step.cpp", "#include \"general/files/internal/Hidden.h\"\n");
  EXPECT_EQ(
      architecture::foreignInternals(house()),
      Problems{"InstallationDeployer/steps/Step.cpp includes general/files/internal/Hidden.h, which is internal to "
               "files"});
}

TEST_F(Walls, LetAFolderUseItsOwnInside) {
  write("general/files/Second.cpp", "#include \"general/files/internal/Hidden.h\"\n");
  EXPECT_EQ(architecture::foreignInternals(house()), kNone);
  EXPECT_EQ(architecture::missingArrows(house()), kNone);
}

TEST_F(Walls, NameTheIncludeOfAHeaderForOneSystem) {
  write("general/ipc/linux/Kernel.h", "#pragma once\n");
  write("general/ipc/linux/Door.cpp", "#include \"general/ipc/linux/Kernel.h\"\n");
  EXPECT_EQ(architecture::foreignSystems(house()), kNone);
  write("general/ipc/Door.h", "#include \"general/ipc/linux/Kernel.h\"\n");
  EXPECT_EQ(
      architecture::foreignSystems(house()),
      Problems{"general/ipc/Door.h includes general/ipc/linux/Kernel.h, which is there on linux only: ask through "
               "the header that all systems have"});
}

TEST_F(Walls, NameTheIncludeOfWhatIsNoFileOfTheProduct) {
  write("general/files/Second.cpp", "#include \"Second.h\"\n");
  EXPECT_EQ(architecture::unknownIncludes(house()),
            Problems{"general/files/Second.cpp includes Second.h, which is no file of the product: name it from the "
                     "project's root"});
}

TEST_F(Walls, NameAFolderWithoutARowAndARowWithoutAFolder) {
  write("tools/main.cpp", "");
  std::filesystem::remove_all(folder_.path("general/ipc"));
  EXPECT_EQ(architecture::roomsAgainstPage(house()),
            (Problems{"tools/ has no row on the page", "the page has a row for general/ipc/, where no source stands"}));
}

TEST_F(Walls, NameWhatIsReachedOverOthers) {
  write("general/files/Second.cpp", "#include \"general/ipc/Door.h\"\n");
  write("InstallationDeployer/steps/Step.h", "#pragma once\n");
  EXPECT_EQ(architecture::reaches(house(), "InstallationDeployer", "general/ipc"),
            Problems{"InstallationDeployer/steps/ must never reach general/ipc/, but it does, at general/ipc/"});
  EXPECT_EQ(architecture::reaches(house(), "general", "InstallationDeployer"), kNone);
}

TEST_F(Walls, NameTargetsThatThePageCallsOtherwise) {
  write("general/ipc/CMakeLists.txt", "corvane_library(doors ${CORVANE_PLATFORM}/Door.cpp)\n");
  EXPECT_EQ(architecture::targetsAgainstPage(house()),
            (Problems{"the page has a target that is not built: ipc in general/ipc/",
                      "a target is not on the page: doors in general/ipc/"}));
}

TEST_F(Walls, NameTheTargetThatIsIncludedAndNotLinked) {
  write("InstallationDeployer/steps/CMakeLists.txt",
        "corvane_library(deployer_steps Step.cpp)\ntarget_link_libraries(deployer_steps PUBLIC ipc)\n");
  EXPECT_EQ(architecture::linksAgainstIncludes(house()),
            Problems{"InstallationDeployer/steps/ includes general/files/ and does not link its target"});
}

TEST_F(Walls, NameTheTargetThatIsLinkedAndNotIncluded) {
  write("general/ipc/CMakeLists.txt",
        "corvane_library(ipc ${CORVANE_PLATFORM}/Door.cpp)\ntarget_link_libraries(ipc PRIVATE files)\n");
  EXPECT_EQ(architecture::linksAgainstIncludes(house()),
            Problems{"general/ipc/ links the target of general/files/ and includes nothing of it"});
}

TEST_F(Walls, NameLinksThatAreMorePublicOrLessThanHeadersNeed) {
  write("InstallationDeployer/steps/CMakeLists.txt",
        "corvane_library(deployer_steps Step.cpp)\ntarget_link_libraries(deployer_steps PUBLIC files PRIVATE ipc)\n");
  EXPECT_EQ(architecture::linksAgainstHeaders(house()),
            (Problems{"a header of InstallationDeployer/steps/ includes general/ipc/: link its target PUBLIC",
                      "no header of InstallationDeployer/steps/ includes general/files/: link its target PRIVATE"}));
}

TEST_F(Walls, NameASourceThatNobodyBuilds) {
  write("general/files/Forgotten.cpp", "");
  EXPECT_EQ(architecture::unbuiltSources(house()), Problems{"general/files/Forgotten.cpp is built by no target"});
}

}  // namespace
