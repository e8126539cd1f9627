#include <gtest/gtest.h>

#include <set>
#include <string>

#include "tests/architecture/PlacesOnPages.h"
#include "tests/support/TemporaryDirectory.h"

namespace {

using architecture::House;
using architecture::Problems;

const Problems kNone;

House houseWithADoor() {
  House house;
  house.files = {{"general/ipc/Door.h", "", {}},
                 {"general/ipc/linux/Door.cpp", "", {"general/ipc/Door.h", "general/ipc/linux/Own.h"}},
                 {"general/ipc/linux/Own.cpp", "", {"general/ipc/linux/Own.h"}}};
  return house;
}

TEST(PlacesOnPages, AreTheWordsOfAColumn) {
  EXPECT_EQ(architecture::wordsInColumn({{"`a`", "`b` and `c`"}, {"`d`", "`e`"}}, 1),
            (std::vector<std::string>{"b", "c", "e"}));
}

TEST(PlacesOnPages, AreNamesOfSourcesOrHeaders) {
  EXPECT_EQ(architecture::namesWithoutSource(houseWithADoor(), {"Door", "Own"}), kNone);
  EXPECT_EQ(architecture::namesWithoutSource(houseWithADoor(), {"Gate"}),
            Problems{"the page names Gate, and no source is called so"});
}

TEST(PlacesOnPages, NameClassesThatAreWordsOfTheCode) {
  const std::set<std::string> words = {"Door"};
  EXPECT_EQ(architecture::namesNotInCode("`Door`, `Door::open`, `door`, `DOOR_X`, `Open the door`, Gate", words),
            kNone);
  EXPECT_EQ(architecture::namesNotInCode("`Gate::open`", words),
            Problems{"the page names Gate, which is no word of the code"});
}

TEST(PlacesOnPages, LeadSomewhere) {
  const tests::TemporaryDirectory folder;
  folder.write("general/Door.h", "");
  folder.write("docs/other.md", "");
  folder.write("docs/page.md",
               "`general/Door.h` `/bin/some.sh` `Door.h` [a](other.md#part) [b](#part) [c](https://a.b/c)");
  EXPECT_EQ(architecture::pathsThatLeadNowhere(folder.path(), "docs/page.md"), kNone);
  folder.write("docs/page.md", "`general/Gate.h` [a](another.md)");
  EXPECT_EQ(architecture::pathsThatLeadNowhere(folder.path(), "docs/page.md"),
            (Problems{"docs/page.md names general/Gate.h, which is not there",
                      "docs/page.md has a link to another.md, which is not there"}));
}

TEST(PlacesOnPages, KnowTheWordsOfProductAndTests) {
  const tests::TemporaryDirectory folder;
  folder.write("general/Door.h", "class Door;");
  for (const char* path : {"tests/unit/A.cpp", "tests/integration/B.h", "tests/support/C.cpp"}) {
    folder.write(path, "void open_it(Key2)");
  }
  EXPECT_EQ(architecture::wordsOfCode(folder.path()),
            (std::set<std::string>{"Door", "Key2", "class", "open_it", "void"}));
}

TEST(PlacesOnPages, HaveEveryDoorToTheSystem) {
  EXPECT_EQ(architecture::doorsAgainstPage(houseWithADoor(), {"general/ipc/Door.h"}), kNone);
  EXPECT_EQ(architecture::doorsAgainstPage(houseWithADoor(), {}),
            Problems{"the page does not list general/ipc/Door.h, which general/ipc/linux/Door.cpp implements"});
}

TEST(PlacesOnPages, HaveNoDoorThatIsNone) {
  EXPECT_EQ(architecture::doorsAgainstPage(houseWithADoor(), {"general/ipc/Door.h", "general/ipc/Wall.h"}),
            Problems{"the page lists general/ipc/Wall.h, which no system's source implements"});
}

}  // namespace
