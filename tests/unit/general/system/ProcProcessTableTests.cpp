#include <errno.h>
#include <gtest/gtest.h>
#include <sys/prctl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <optional>
#include <string>
#include <string_view>

#include "general/system/linux/ProcProcessTable.h"
#include "tests/support/TemporaryDirectory.h"
#include "tests/unit/general/system/ProcessSnapshot.h"

namespace {

using platform::ProcessRecord;
using platform::ProcProcessTable;
using tests::copyOf;
using tests::Snapshot;
using tests::systemSnapshot;
using tests::TemporaryDirectory;

TEST(CommandInStat, StandsBetweenTheFirstAndTheLastParenthesis) {
  EXPECT_EQ(platform::commandInStat("12 (loginwindow) S 1 2"), "loginwindow");
  EXPECT_EQ(platform::commandInStat("12 (a b) c) S 1 2"), "a b) c");
  EXPECT_EQ(platform::commandInStat("12 (((\n) S 1 2"), "((\n");
  EXPECT_EQ(platform::commandInStat("12 () S 1"), "");
}

TEST(CommandInStat, IsNothingInAnyOtherText) {
  EXPECT_EQ(platform::commandInStat(""), std::nullopt);
  EXPECT_EQ(platform::commandInStat("12 )( S"), std::nullopt);
  EXPECT_EQ(platform::commandInStat("12 (cut"), std::nullopt);
}

TEST(ParentInStat, StandsAfterTheNameAndTheState) {
  EXPECT_EQ(platform::parentInStat("12 (loginwindow) S 1 2"), 1);
  EXPECT_EQ(platform::parentInStat("12 (a) S 7) c) R 4194303 2"), 4194303);
  EXPECT_EQ(platform::parentInStat("1 (init) S 0 1"), 0);
}

TEST(ParentInStat, IsNothingInAnyOtherText) {
  for (const char* text : {"", "12 (cut", "12 (cut)", "12 (cut) S", "12 (cut) S ", "12 (odd) S x", "12 (odd) S -1 2"}) {
    EXPECT_EQ(platform::parentInStat(text), std::nullopt) << text;
  }
}

TEST(EffectiveUserIdInStatus, IsTheSecondNumber) {
  EXPECT_EQ(platform::effectiveUserIdInStatus("Name:\tx\nUid:\t1\t502\t3\t4\nGid:\t5\t6\t7\t8\n"), 502U);
  EXPECT_EQ(platform::effectiveUserIdInStatus("Name:\tx\nUid:\t1\t4294967294\t3\t4\n"), 4294967294U);
}

TEST(EffectiveUserIdInStatus, IsNothingInAnyOtherText) {
  EXPECT_EQ(platform::effectiveUserIdInStatus(""), std::nullopt);
  EXPECT_EQ(platform::effectiveUserIdInStatus("Name:\tx\nUid:\t1\nGid:\t5\t6\t7\t8\n"), std::nullopt);
  EXPECT_EQ(platform::effectiveUserIdInStatus("Name:\tx\nUid:\t1\tx\n"), std::nullopt);
  EXPECT_EQ(platform::effectiveUserIdInStatus("Name:\tx\nUid:\t1\t99999999999\n"), std::nullopt);
}

/// A folder that looks like /proc.
class FakeProc {
 public:
  void add(std::int32_t processId, const std::string& command, std::uint32_t userId) const {
    const std::string folder = std::to_string(processId);
    directory_.write(folder + "/stat", folder + " (" + command + ") S 1 1 1 0 -1");
    const std::string user = std::to_string(userId);
    directory_.write(folder + "/status", "Name:\tescaped\nUid:\t0\t" + user + "\t0\t0\nGid:\t0\t0\t0\t0\n");
  }
  [[nodiscard]] const TemporaryDirectory& directory() const { return directory_; }
  [[nodiscard]] Snapshot snapshot() const {
    ProcProcessTable table(directory_.path());
    return copyOf(table);
  }

 private:
  TemporaryDirectory directory_;
};

TEST(ProcProcessTable, ReadsNamesThatHoldBlanksParenthesesAndLineEnds) {
  const FakeProc proc;
  proc.add(10, "a b", 1);
  proc.add(11, ") S 1 (", 2);
  proc.add(12, "x\nUid:\t9\t9\t9\t9\n", 3);
  const auto records = proc.snapshot().byId();
  ASSERT_EQ(records.size(), 3U);
  EXPECT_STREQ(records.at(10).command, "a b");
  EXPECT_STREQ(records.at(11).command, ") S 1 (");
  EXPECT_STREQ(records.at(12).command, "x\nUid:\t9\t9\t9\t9\n");
  EXPECT_EQ(records.at(12).effectiveUserId, 3U);
}

TEST(ProcProcessTable, LeavesOutWhatIsNoProcess) {
  const FakeProc proc;
  proc.add(10, "a", 1);
  proc.directory().write("self/stat", "1 (x) S");
  proc.directory().write("12a/stat", "1 (x) S");
  proc.directory().write("0/stat", "0 (x) S");
  proc.directory().write("99999999999/stat", "1 (x) S");
  EXPECT_EQ(proc.snapshot().byId().size(), 1U);
}

TEST(ProcProcessTable, LeavesOutAProcessThatVanishesWhileItIsRead) {
  const FakeProc proc;
  proc.add(10, "a", 1);
  proc.directory().makeDirectory("11");
  proc.directory().write("12/stat", "12 (b) S 1");
  proc.directory().write("13/stat", "");
  proc.directory().write("13/status", "");
  const auto records = proc.snapshot().byId();
  ASSERT_EQ(records.size(), 1U);
  EXPECT_TRUE(records.contains(10));
}

TEST(ProcProcessTable, FailsOverAProcessThatCannotBeReadForAnotherReason) {
  const FakeProc proc;
  proc.add(10, "a", 1);
  for (const char* file : {"stat", "status"}) {
    proc.add(11, "b", 1);
    const std::string path = proc.directory().path(std::string("11/") + file);
    ASSERT_EQ(unlink(path.c_str()), 0);
    ASSERT_EQ(symlink(file, path.c_str()), 0) << "a link to itself";
    EXPECT_EQ(proc.snapshot().error, ELOOP) << file;
    ASSERT_EQ(unlink(path.c_str()), 0);
  }
}

TEST(ProcProcessTable, CutsANameToItsRoom) {
  const FakeProc proc;
  proc.add(10, std::string(200, 'x'), 1);
  EXPECT_EQ(proc.snapshot().byId().at(10).command, std::string(63, 'x'));
}

TEST(ProcProcessTable, DoesNotWaitForAFifoInPlaceOfAFile) {
  const FakeProc proc;
  proc.directory().makeDirectory("10");
  ASSERT_EQ(mkfifo(proc.directory().path("10/stat").c_str(), 0600), 0);
  const Snapshot snapshot = proc.snapshot();
  EXPECT_EQ(snapshot.error, 0);
  EXPECT_EQ(snapshot.count, 0U);
  EXPECT_NE(snapshot.records, nullptr) << "an empty list is a list";
}

TEST(ProcProcessTable, ReadsMoreProcessesThanWereCounted) {
  const FakeProc proc;
  for (std::int32_t processId = 1; processId <= 40; ++processId) {
    proc.add(processId, "p", 1);
  }
  ProcProcessTable table(proc.directory().path());
  std::array<ProcessRecord, 39> room{};
  std::size_t count = 0;
  EXPECT_EQ(table.read(room, &count), ENOMEM);
  EXPECT_EQ(proc.snapshot().count, 40U);
}

TEST(ProcProcessTable, GivesTheErrorOfAMissingFolder) {
  const TemporaryDirectory directory;
  ProcProcessTable table(directory.path("proc"));
  const Snapshot snapshot = copyOf(table);
  EXPECT_EQ(snapshot.error, ENOENT);
  EXPECT_EQ(snapshot.records, nullptr);
}

TEST(ProcProcessTable, SeesNamesAsTheKernelWritesThem) {
  const std::string before = program_invocation_short_name;
  ASSERT_EQ(prctl(PR_SET_NAME, "a) (\nb"), 0);
  const auto records = systemSnapshot().byId();
  prctl(PR_SET_NAME, before.c_str());
  EXPECT_STREQ(records.at(getpid()).command, "a) (\nb");
}

}  // namespace
