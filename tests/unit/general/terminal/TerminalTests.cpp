#include <fcntl.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <array>
#include <cstdio>
#include <cstdlib>
#include <limits>
#include <string>

#include "general/terminal/Terminal.h"
#include "tests/support/PseudoTerminal.h"

namespace {

TEST(Terminal, FillsABarByItsPartAndStaysWithinItsEnds) {
  EXPECT_EQ(terminal::bar(0, 4), "[....]");
  EXPECT_EQ(terminal::bar(0.5, 4), "[##..]");
  EXPECT_EQ(terminal::bar(1, 4), "[####]");
  EXPECT_EQ(terminal::bar(-1, 2), "[..]");
  EXPECT_EQ(terminal::bar(std::numeric_limits<double>::infinity(), 2), "[##]");
  EXPECT_EQ(terminal::bar(1, 0), "[]");
}

TEST(Terminal, GivesTheBarTheRoomThatTheTailLeaves) {
  EXPECT_EQ(terminal::lineWithBar(0.5, " tail", 12), "[##..] tail");
  EXPECT_EQ(terminal::lineWithBar(0.5, " tail", 8), "[] tail");
  EXPECT_EQ(terminal::lineWithBar(1, "", 1000), "[" + std::string(30, '#') + "]") << "no longer than that";
}

TEST(Terminal, CutsALineBeforeTheLastColumn) {
  EXPECT_EQ(terminal::lineWithBar(0.5, " tail", 6), "[] ta");
  EXPECT_EQ(terminal::lineWithBar(0.5, " tail", 1), "");
  EXPECT_EQ(terminal::lineWithBar(0.5, " tail", 0), "");
}

TEST(Terminal, KnowsItsWidthAndIsEightyColumnsWideWhenItDoesNot) {
  const support::PseudoTerminal wide(132);
  EXPECT_EQ(terminal::columnsOf(wide.programEnd()), 132U);
  const support::PseudoTerminal unknown(0);
  EXPECT_EQ(terminal::columnsOf(unknown.programEnd()), 80U);
  EXPECT_EQ(terminal::columnsOf(-1), 80U);
}

TEST(Terminal, CanRedrawALineUnlessItIsDumbOrNoTerminal) {
  const support::PseudoTerminal person;
  ASSERT_EQ(setenv("TERM", "vt100", 1), 0);
  EXPECT_TRUE(terminal::canRedraw(person.programEnd()));
  ASSERT_EQ(setenv("TERM", "dumb", 1), 0);
  EXPECT_FALSE(terminal::canRedraw(person.programEnd()));
  ASSERT_EQ(unsetenv("TERM"), 0);
  EXPECT_TRUE(terminal::canRedraw(person.programEnd()));
  std::array<int, 2> ends{};
  ASSERT_EQ(pipe2(ends.data(), O_CLOEXEC), 0);
  EXPECT_FALSE(terminal::canRedraw(ends[1]));
  close(ends[0]);
  close(ends[1]);
}

TEST(Terminal, PassesTextOnAtOnce) {
  std::array<int, 2> ends{};
  ASSERT_EQ(pipe2(ends.data(), O_CLOEXEC), 0);
  ASSERT_EQ(fcntl(ends[0], F_SETFL, O_NONBLOCK), 0);
  std::FILE* const stream = fdopen(ends[1], "w");
  ASSERT_NE(stream, nullptr);
  terminal::writeAtOnce(stream, "drawn");
  std::array<char, 8> read{};
  EXPECT_EQ(::read(ends[0], read.data(), read.size()), 5) << "before the stream is closed";
  EXPECT_STREQ(read.data(), "drawn");
  static_cast<void>(std::fclose(stream));
  close(ends[0]);
}

}  // namespace
