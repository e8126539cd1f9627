#include <gtest/gtest.h>
#include <unistd.h>

#include <cerrno>
#include <string>
#include <thread>

#include "general/system/ProcessTable.h"
#include "general/system/TQProcessInfo.h"
#include "tests/unit/general/system/ProcessSnapshot.h"

namespace {

using platform::GetBSDProcessList;
using platform::ProcessRecord;
using platform::ProcessTable;
using tests::copyOf;
using tests::Snapshot;
using tests::systemSnapshot;

TEST(GetBSDProcessList, ListsThisProcessWithItsNameAndUser) {
  const Snapshot snapshot = systemSnapshot();
  ASSERT_EQ(snapshot.error, 0);
  const auto records = snapshot.byId();
  const auto self = records.find(getpid());
  ASSERT_NE(self, records.end());
  EXPECT_EQ(self->second.effectiveUserId, geteuid());
  EXPECT_STREQ(self->second.command, std::string(program_invocation_short_name).substr(0, 15).c_str());
}

TEST(GetBSDProcessList, ListsEveryProcessOnceAndNoThreads) {
  std::thread other([] {
    const Snapshot snapshot = systemSnapshot();
    EXPECT_EQ(snapshot.byId().size(), snapshot.count);
    EXPECT_FALSE(snapshot.byId().contains(gettid()));
  });
  other.join();
}

TEST(GetBSDProcessListDeathTest, AbortsOnBrokenPreconditions) {
  ProcessRecord* list = nullptr;
  ProcessRecord record{};
  ProcessRecord* occupied = &record;
  std::size_t count = 0;
  EXPECT_DEATH(static_cast<void>(GetBSDProcessList(nullptr, &count)), "procList != NULL");
  EXPECT_DEATH(static_cast<void>(GetBSDProcessList(&occupied, &count)), "\\*procList == NULL");
  EXPECT_DEATH(static_cast<void>(GetBSDProcessList(&list, nullptr)), "procCount != NULL");
}

/// A table that grows by one each time it is read, until it has its full size.
class GrowingTable : public ProcessTable {
 public:
  explicit GrowingTable(std::size_t growths) : growths_(growths) {}
  int size(std::size_t* count) override {
    *count = now_;
    return 0;
  }
  int read(std::span<ProcessRecord> room, std::size_t* count) override {
    ++reads_;
    if (growths_ > 0) {
      --growths_;
      ++now_;
    }
    if (room.size() < now_) {
      return ENOMEM;
    }
    *count = now_;
    return 0;
  }
  [[nodiscard]] std::size_t reads() const { return reads_; }

 private:
  std::size_t growths_;
  std::size_t now_ = 5;
  std::size_t reads_ = 0;
};

TEST(GetBSDProcessList, ATableThatGrowsBetweenTheTwoCallsIsReadAgainUntilItFits) {
  GrowingTable table(100);
  const Snapshot snapshot = copyOf(table);
  EXPECT_EQ(snapshot.error, 0);
  EXPECT_EQ(snapshot.count, 105U);
  EXPECT_NE(snapshot.records, nullptr);
  EXPECT_EQ(table.reads(), 101U);
}

class FailingTable : public ProcessTable {
 public:
  FailingTable(int sizeError, int readError) : sizeError_(sizeError), readError_(readError) {}
  int size(std::size_t* count) override {
    *count = 3;
    return sizeError_;
  }
  int read(std::span<ProcessRecord>, std::size_t* count) override {
    *count = 2;
    return readError_;
  }

 private:
  int sizeError_;
  int readError_;
};

TEST(GetBSDProcessList, GivesTheErrorOfTheTableAndNoList) {
  for (auto [sizeError, readError] : {std::pair{EPERM, 0}, std::pair{0, EIO}}) {
    FailingTable table(sizeError, readError);
    const Snapshot snapshot = copyOf(table);
    EXPECT_EQ(snapshot.error, sizeError + readError);
    EXPECT_EQ(snapshot.records, nullptr);
    EXPECT_EQ(snapshot.count, 0U);
  }
}

/// The size that no system can give room for.
class EndlessTable : public ProcessTable {
 public:
  int size(std::size_t* count) override {
    *count = SIZE_MAX / 2;
    return 0;
  }
  int read(std::span<ProcessRecord>, std::size_t*) override { return EIO; }
};

TEST(GetBSDProcessList, GivesENOMEMWhenThereIsNoRoomForTheList) {
  EndlessTable table;
  const Snapshot snapshot = copyOf(table);
  EXPECT_EQ(snapshot.error, ENOMEM);
  EXPECT_EQ(snapshot.records, nullptr);
  EXPECT_EQ(snapshot.count, 0U);
}

}  // namespace
