#include <filesystem>
#include <set>

#include "general/foundation/ProcessStartPrimitives.h"
#include "general/foundation/files/TemporaryNames.h"
#include "tests/unit/general/foundation/files/FileTest.h"

using namespace foundation;

namespace {

using Texts = std::vector<std::string>;

class TemporaryNames : public tests::FileTest {
 protected:
  [[nodiscard]] static std::string name(pid_t process, std::string_view digits = "0123456789abcdef0123456789abcdef") {
    return ".com.corvane.installer." + std::to_string(process) + "." + std::string(digits);
  }
  /// As a process makes it whose start the system tells.
  [[nodiscard]] static std::string nameWithStart(pid_t process, std::uint64_t start) {
    return ".com.corvane.installer." + std::to_string(process) + "." + std::to_string(start) + ".0123456789abcdef";
  }
  const pid_t ended_ = tests::endedProcess();
};

}  // namespace

TEST_F(TemporaryNames, CarryTheProcessAndAreNeverTheSame) {
  std::set<std::string> names;
  for (int index = 0; index < 100; ++index) {
    names.insert(temporary_names::make(folder()));
  }
  EXPECT_EQ(names.size(), 100U);
  const auto started = startOfProcess(getpid());
  ASSERT_TRUE(started);
  const std::string start =
      folder() + "/.com.corvane.installer." + std::to_string(getpid()) + "." + std::to_string(*started) + ".";
  EXPECT_TRUE(names.begin()->starts_with(start)) << *names.begin();
  EXPECT_EQ(names.begin()->size(), start.size() + 16);
}

TEST_F(TemporaryNames, TheFirstOneOfAFolderSweepsWhatAKilledRunLeft) {
  box_.write(name(ended_), "left behind");
  ASSERT_EQ(symlink("nowhere", path(name(ended_, "11111111111111111111111111111111")).c_str()), 0);
  box_.makeDirectory(name(ended_, "22222222222222222222222222222222"));
  static_cast<void>(temporary_names::make(folder()));
  EXPECT_EQ(listing(), Texts{});
  box_.write(name(ended_), "left behind later");
  static_cast<void>(temporary_names::make(folder()));
  EXPECT_EQ(listing(), Texts{name(ended_)});
}

TEST_F(TemporaryNames, NothingIsSweptThatIsNotProvenOurOwn) {
  const std::string process = std::to_string(ended_);
  const Texts kept = {
      name(getpid()),                                     // of this process
      name(getppid()),                                    // of another one that lives
      name(ended_, "0123456789abcdef0123456789abcde"),    // a digit less
      name(ended_, "0123456789abcdef0123456789abcdef0"),  // a digit more
      name(ended_, "0123456789ABCDEF0123456789ABCDEF"),   // other digits
      ".com.corvane.installer.0" + process + "." + std::string(32, '0'),
      ".com.corvane.installer.-" + process + "." + std::string(32, '0'),
      ".com.corvane.installer.99999999999999999999." + std::string(32, '0'),
      ".com.corvane.installer.." + std::string(32, '0'),
      "com.corvane.installer." + process + "." + std::string(32, '0'),
      nameWithStart(ended_, 12) + "0",
      nameWithStart(ended_, 0),
      ".com.corvane.installer." + process + ".012.0123456789abcdef",
      ".com.corvane.installer." + process + ".-12.0123456789abcdef",
      ".com.corvane.installer." + process + "..0123456789abcdef",
      ".com.corvane.installer." + process + ".12.0123456789abcdeF",
      "other",
  };
  for (const std::string& item : kept) {
    box_.write(item, "x");
  }
  temporary_names::sweep(folder());
  EXPECT_EQ(listing().size(), kept.size());
}

TEST_F(TemporaryNames, OfAnEarlierProcessWithTheNumberOfOneThatLivesAreSwept) {
  const auto started = startOfProcess(getpid());
  ASSERT_TRUE(started);
  const std::string own = nameWithStart(getpid(), *started);
  box_.write(own, "x");
  box_.write(nameWithStart(getpid(), *started - 1), "x");
  box_.write(nameWithStart(ended_, *started), "x");
  temporary_names::sweep(folder());
  EXPECT_EQ(listing(), Texts{own});
}

TEST_F(TemporaryNames, ItemsOfOthersFullFoldersAndSpecialFilesStay) {
  const std::string foreign = name(ended_, "33333333333333333333333333333333");
  const std::string fifo = name(ended_, "44444444444444444444444444444444");
  const std::string full = name(ended_, "55555555555555555555555555555555");
  ASSERT_EQ(chmod(folder().c_str(), 01777), 0);
  box_.write(foreign, "x");
  ASSERT_EQ(chown(path(foreign).c_str(), 501, 20), 0);
  ASSERT_EQ(mkfifo(path(fifo).c_str(), 0600), 0);
  box_.write(full + "/file", "x");
  temporary_names::sweep(folder());
  EXPECT_EQ(listing(), (Texts{foreign, fifo, full}));
}

TEST_F(TemporaryNames, WhatLiesWhereOnlyTheOwnerOfTheFolderMayWriteIsOursWhoeverOwnsIt) {
  box_.write(name(ended_), "x");
  ASSERT_EQ(chown(path(name(ended_)).c_str(), 501, 20), 0);
  ASSERT_EQ(chmod(folder().c_str(), 0775), 0);
  temporary_names::sweep(folder());
  EXPECT_EQ(listing(), Texts{name(ended_)});
  ASSERT_EQ(chmod(folder().c_str(), 0755), 0);
  ASSERT_EQ(chown(folder().c_str(), 501, 20), 0);
  temporary_names::sweep(folder());
  EXPECT_EQ(listing(), Texts{});
}

TEST_F(TemporaryNames, SweepingWithContentRemovesFullFoldersOfDeadProcessesAlone) {
  const std::string alive = name(getpid(), "66666666666666666666666666666666");
  box_.write(name(ended_) + "/below/file", "x");
  box_.write(name(ended_, "77777777777777777777777777777777"), "x");
  box_.write(alive + "/file", "x");
  box_.write("other/file", "x");
  temporary_names::sweepWithContent(folder());
  EXPECT_EQ(listing(), (Texts{alive, "other"}));
}

TEST_F(TemporaryNames, AreToldFromOthers) {
  EXPECT_TRUE(temporary_names::isTemporary(name(1)));
  EXPECT_TRUE(temporary_names::isTemporary(nameWithStart(1, 12)));
  EXPECT_FALSE(temporary_names::isTemporary(name(1, "0123")));
  EXPECT_FALSE(temporary_names::isTemporary("Guard"));
}

TEST_F(TemporaryNames, AreNoPathsEvenWithoutAFolder) {
  EXPECT_EQ(temporary_names::make("").find('/'), std::string::npos);
}

TEST_F(TemporaryNames, AFolderThatCannotBeReadIsLeftAlone) {
  box_.write("file", "x");
  for (const std::string& folder : {path("missing"), path("file")}) {
    temporary_names::sweep(folder);
    temporary_names::sweepWithContent(folder);
  }
  EXPECT_FALSE(std::filesystem::exists(path("missing")));
  EXPECT_TRUE(std::filesystem::exists(path("file")));
}
