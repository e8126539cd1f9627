#include <gtest/gtest.h>
#include <unistd.h>

#include <array>
#include <chrono>
#include <string>

#include "general/foundation/execution/Pipe.h"
#include "general/logging/Patience.h"

namespace {

using logging::Patience;
using std::chrono::milliseconds;

foundation::Pipe fullPipe() {
  auto pipe = foundation::makePipe();
  EXPECT_TRUE(pipe && foundation::setNonBlocking(pipe->writeEnd));
  const std::string piece(4096, 'x');
  while (write(pipe->writeEnd.number(), piece.data(), piece.size()) > 0) {
  }
  return std::move(*pipe);
}

TEST(Patience, IsNotNeededForWhatCanBeWritten) {
  const auto pipe = foundation::makePipe();
  ASSERT_TRUE(pipe);
  EXPECT_TRUE(Patience(std::chrono::hours(1)).waitToWrite(pipe->writeEnd.number()));
}

TEST(Patience, EndsWithTheSumOfTheWaits) {
  const auto pipe = fullPipe();
  Patience patience(milliseconds(20));
  while (patience.waitToWrite(pipe.writeEnd.number())) {
  }
  EXPECT_FALSE(patience.waitToWrite(pipe.writeEnd.number()));
}

TEST(Patience, ComesBackWhenEnoughWasTakenToShowAReader) {
  const auto pipe = fullPipe();
  Patience patience(milliseconds(20));
  EXPECT_FALSE(patience.waitToWrite(pipe.writeEnd.number()));
  std::array<char, 65536> bytes{};
  EXPECT_GT(read(pipe.readEnd.number(), bytes.data(), bytes.size()), 0);
  patience.take(4095);
  EXPECT_FALSE(patience.waitToWrite(pipe.writeEnd.number()));
  patience.take(1);
  EXPECT_TRUE(patience.waitToWrite(pipe.writeEnd.number()));
}

TEST(Patience, CountsWhatIsDroppedUntilThatIsTold) {
  Patience patience(milliseconds(0));
  patience.drop();
  patience.drop();
  EXPECT_EQ(patience.dropped(), 2U);
  patience.tell();
  EXPECT_EQ(patience.dropped(), 0U);
}

}  // namespace
