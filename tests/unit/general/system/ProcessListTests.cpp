#include <gtest/gtest.h>
#include <unistd.h>

#include <algorithm>
#include <utility>

#include "general/system/ProcessList.h"

namespace platform {
namespace {

bool holdsThisProcess(const ProcessList& list) {
  return std::ranges::any_of(list.records(), [](const ProcessRecord& record) { return record.processId == getpid(); });
}

TEST(ProcessList, HoldsTheProcessThatTakesIt) {
  const auto list = ProcessList::take();
  ASSERT_TRUE(list);
  EXPECT_TRUE(holdsThisProcess(*list));
}

TEST(ProcessList, KeepsItsRecordsWhenItIsMoved) {
  auto list = ProcessList::take();
  ASSERT_TRUE(list);
  const std::size_t count = list->records().size();
  const ProcessList moved = *std::move(list);
  EXPECT_EQ(moved.records().size(), count);
  EXPECT_TRUE(holdsThisProcess(moved));
}

}  // namespace
}  // namespace platform
