#include <gtest/gtest.h>

#include <string>

#include "tests/architecture/TestFiles.h"
#include "tests/support/TemporaryDirectory.h"

namespace {

using architecture::House;
using architecture::Problems;

TEST(TestFiles, AreThoseBelowTheUnitTests) {
  const tests::TemporaryDirectory folder;
  folder.write("tests/unit/general/ipc/DoorTests.cpp", "");
  folder.write("tests/unit/general/ipc/Fixture.h", "");
  folder.write("tests/integration/RunTests.cpp", "");
  EXPECT_EQ(architecture::unitTestFilesOf(folder.path()), std::vector<std::string>{"general/ipc/DoorTests.cpp"});
}

TEST(TestFiles, AreNamedAfterASourceOfTheSameFolder) {
  House house;
  house.files = {{"general/ipc/linux/Door.cpp", "", {}}};
  EXPECT_EQ(
      architecture::testFilesWithoutSubject(house, {"general/ipc/DoorTests.cpp", "general/ipc/DoorOpenTests.cpp"}),
      Problems());
  EXPECT_EQ(architecture::testFilesWithoutSubject(
                house, {"general/ipc/GateTests.cpp", "general/DoorTests.cpp", "general/ipc/DoorsTests.cpp"}),
            (Problems{"tests/unit/general/ipc/GateTests.cpp is named after no source of its folder",
                      "tests/unit/general/DoorTests.cpp is named after no source of its folder",
                      "tests/unit/general/ipc/DoorsTests.cpp is named after no source of its folder"}));
}

}  // namespace
