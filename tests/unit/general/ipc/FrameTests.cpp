#include <gtest/gtest.h>

#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "general/ipc/Frame.h"

namespace {

using ipc::FrameReader;
using namespace std::string_view_literals;

TEST(Frames, BeginWithTheirLengthTheMostSignificantByteFirst) {
  EXPECT_EQ(ipc::framed("abc"),
            "\0\0\0\x03"
            "abc"sv);
  const std::string frame = ipc::framed(std::string(0x012345, 'x'));
  EXPECT_EQ(frame.substr(0, 4), "\0\x01\x23\x45"sv);
  EXPECT_EQ(frame.size(), 4U + 0x012345U);
}

TEST(Frames, AreCutOutHoweverTheyArrive) {
  const std::string stream = ipc::framed("first") + ipc::framed("2") + ipc::framed("the third");
  for (std::size_t piece = 1; piece <= stream.size(); ++piece) {
    FrameReader reader(100);
    std::vector<std::string> frames;
    for (std::size_t start = 0; start < stream.size(); start += piece) {
      reader.append(std::string_view(stream).substr(start, piece));
      while (auto frame = reader.next()) {
        frames.push_back(*frame);
      }
    }
    EXPECT_EQ(frames, (std::vector<std::string>{"first", "2", "the third"})) << piece;
    EXPECT_FALSE(reader.isBroken());
  }
}

TEST(Frames, OfTheGreatestLengthAreTakenAndLongerOnesBreakTheConnection) {
  FrameReader reader(5);
  reader.append(ipc::framed("12345"));
  EXPECT_EQ(reader.next(), "12345");
  EXPECT_FALSE(reader.isBroken());
  reader.append(ipc::framed("123456"));
  EXPECT_TRUE(reader.isBroken());
  EXPECT_EQ(reader.next(), std::nullopt);
}

TEST(Frames, AreBrokenAsSoonAsTheirLengthIsKnown) {
  FrameReader reader(1000);
  reader.append("\xff\xff\xff"sv);
  EXPECT_FALSE(reader.isBroken());
  reader.append("\xff"sv);
  EXPECT_TRUE(reader.isBroken());
}

TEST(Frames, WithoutContentAreBroken) {
  FrameReader reader(1000);
  reader.append("\0\0\0\0"sv);
  EXPECT_TRUE(reader.isBroken());
  EXPECT_EQ(reader.next(), std::nullopt);
}

TEST(Frames, AreNotCutOutBeforeTheirLastByteHasCome) {
  FrameReader reader(100);
  EXPECT_EQ(reader.next(), std::nullopt);
  reader.append("\0\0\0"sv);
  EXPECT_EQ(reader.next(), std::nullopt);
  reader.append("\2a"sv);
  EXPECT_EQ(reader.next(), std::nullopt);
  EXPECT_FALSE(reader.isBroken());
  reader.append("b");
  EXPECT_EQ(reader.next(), "ab");
  EXPECT_EQ(reader.next(), std::nullopt);
}

}  // namespace
