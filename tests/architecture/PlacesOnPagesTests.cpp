#include <gtest/gtest.h>

#include <string>

#include "tests/architecture/PlacesOnPages.h"

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
