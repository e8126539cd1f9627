#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/mman.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <chrono>
#include <csignal>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "general/foundation/Descriptor.h"
#include "general/foundation/execution/Pipe.h"
#include "general/logging/LineOutput.h"

namespace {

using foundation::Descriptor;
using logging::LineOutput;
using std::chrono::hours;
using std::chrono::milliseconds;

std::string droppedLine(std::size_t count) { return "dropped " + std::to_string(count) + "\n"; }

/// What waits to be read now.
std::string readNow(const Descriptor& end) {
  EXPECT_TRUE(foundation::setNonBlocking(end));
  std::string text;
  std::array<char, 65536> bytes{};
  for (ssize_t count = 0; (count = read(end.number(), bytes.data(), bytes.size())) > 0;) {
    text.append(bytes.data(), static_cast<std::size_t>(count));
  }
  return text;
}

std::vector<std::string> linesOf(const std::string& text) {
  std::vector<std::string> lines;
  for (std::size_t begin = 0; begin < text.size();) {
    const std::size_t end = text.find('\n', begin);
    lines.push_back(text.substr(begin, end - begin));
    begin = end == std::string::npos ? text.size() : end + 1;
  }
  return lines;
}

std::string numbered(int number) { return "line " + std::to_string(number) + " " + std::string(100, 'x') + "\n"; }

/// Both kinds of output that can be full: a pipe and a socket.
class LineOutputTest : public ::testing::TestWithParam<bool> {
 protected:
  void SetUp() override {
    if (GetParam()) {
      auto pipe = foundation::makePipe();
      ASSERT_TRUE(pipe);
      reader_ = std::move(pipe->readEnd);
      writer_ = std::move(pipe->writeEnd);
    } else {
      std::array<int, 2> ends{};
      ASSERT_EQ(socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends.data()), 0);
      reader_ = Descriptor(ends[0]);
      writer_ = Descriptor(ends[1]);
    }
  }
  Descriptor reader_;
  Descriptor writer_;
};

INSTANTIATE_TEST_SUITE_P(PipeAndSocket, LineOutputTest, ::testing::Bool(),
                         [](const auto& tested) { return tested.param ? "Pipe" : "Socket"; });

TEST_P(LineOutputTest, ThatNobodyReadsLosesLinesAndCountsThem) {
  constexpr int kLines = 10000;
  LineOutput output(writer_.number(), milliseconds(20));
  for (int line = 0; line < kLines; ++line) {
    output.write(numbered(line), droppedLine);
  }
  std::string text = readNow(reader_);
  output.write("after\n", droppedLine);
  text += readNow(reader_);
  ASSERT_TRUE(text.ends_with("\nafter\n")) << text.substr(text.size() - std::min<std::size_t>(text.size(), 200));
  std::size_t whole = 0;
  std::size_t dropped = 0;
  for (const std::string& line : linesOf(text)) {
    if (line.starts_with("dropped ")) {
      dropped += std::stoul(line.substr(line.find(' ')));
    } else if (line.starts_with("line ") && line.ends_with(std::string(100, 'x'))) {
      ++whole;
    }
  }
  // A line whose end is missing counts as dropped, and what comes next is a line of its own.
  EXPECT_GT(whole, 0U);
  EXPECT_GT(dropped, 0U);
  EXPECT_EQ(whole + dropped, std::size_t{kLines});
}

TEST_P(LineOutputTest, ThatIsReadSlowlyLosesNothing) {
  constexpr int kLines = 3000;
  std::string read;
  std::thread slowReader([&] {
    std::array<char, 7> bytes{};
    for (ssize_t count = 0; (count = ::read(reader_.number(), bytes.data(), bytes.size())) > 0;) {
      read.append(bytes.data(), static_cast<std::size_t>(count));
    }
  });
  std::string written;
  {
    LineOutput output(writer_.number(), hours(1));
    for (int line = 0; line < kLines; ++line) {
      written += numbered(line);
      output.write(numbered(line), droppedLine);
    }
  }
  writer_.reset();
  slowReader.join();
  EXPECT_TRUE(read == written);
}

TEST_P(LineOutputTest, WithoutPatienceStillSaysAtTheEndWhatWasDropped) {
  LineOutput output(writer_.number(), milliseconds(0));
  std::size_t lines = 0;
  for (; lines < 10000; ++lines) {
    output.write(numbered(0), droppedLine);
  }
  static_cast<void>(readNow(reader_));
  output.tellDropped(droppedLine);
  EXPECT_NE(readNow(reader_).find("dropped "), std::string::npos);
  output.tellDropped(droppedLine);
  EXPECT_EQ(readNow(reader_), "");
}

TEST_P(LineOutputTest, ThatOthersMadeNonBlockingIsWaitedForAllTheSame) {
  ASSERT_TRUE(foundation::setNonBlocking(writer_));
  constexpr int kLines = 3000;
  std::size_t bytesRead = 0;
  std::thread reader([&] {
    std::array<char, 512> bytes{};
    for (ssize_t count = 0; (count = ::read(reader_.number(), bytes.data(), bytes.size())) > 0;) {
      bytesRead += static_cast<std::size_t>(count);
    }
  });
  std::size_t bytesWritten = 0;
  LineOutput output(writer_.number(), hours(1));
  for (int line = 0; line < kLines; ++line) {
    bytesWritten += numbered(line).size();
    output.write(numbered(line), droppedLine);
  }
  writer_.reset();
  reader.join();
  EXPECT_EQ(bytesRead, bytesWritten);
}

TEST_P(LineOutputTest, WhoseReaderHasGoneIsNoError) {
  const auto before = std::signal(SIGPIPE, SIG_IGN);
  reader_.reset();
  LineOutput output(writer_.number(), hours(1));
  output.write("nobody\n", droppedLine);
  output.tellDropped([](std::size_t /*count*/) -> std::string {
    ADD_FAILURE() << "nothing was dropped: there is nobody to tell";
    return "";
  });
  std::signal(SIGPIPE, before);
}

TEST(LineOutput, ToAFileWritesEveryLine) {
  const Descriptor file(memfd_create("log", MFD_CLOEXEC));
  LineOutput output(file.number(), milliseconds(0));
  output.write("one\n", droppedLine);
  output.write("two\n", droppedLine);
  std::array<char, 16> bytes{};
  EXPECT_EQ(pread(file.number(), bytes.data(), bytes.size(), 0), 8);
  EXPECT_EQ(std::string(bytes.data()), "one\ntwo\n");
}

TEST(LineOutput, ThatIsNotOpenTakesLinesAtNoCost) {
  LineOutput output(-1, hours(1));
  output.write("nowhere\n", droppedLine);
  output.tellDropped([](std::size_t /*count*/) -> std::string {
    ADD_FAILURE() << "nothing was dropped";
    return "";
  });
}

}  // namespace
