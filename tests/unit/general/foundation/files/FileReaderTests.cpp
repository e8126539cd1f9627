#include <sys/resource.h>
#include <sys/stat.h>

#include <climits>
#include <cstdint>
#include <fstream>
#include <iterator>

#include "general/foundation/files/FileManager.h"
#include "tests/unit/general/foundation/files/FileTest.h"

using namespace foundation;
using namespace std::string_literals;

namespace {

constexpr std::size_t kPiece = std::size_t{128} * 1024;

class FileReading : public ::testing::Test {
 protected:
  std::string read(const std::string& path, const files::PieceVisitor& visitor = {}) {
    const auto content = files::read(path, buffer_, visitor);
    EXPECT_TRUE(content) << path;
    return content ? std::string(reinterpret_cast<const char*>(content->data()), content->size()) : std::string();
  }
  long errorCode(const std::string& path) {
    const auto content = files::read(path, buffer_);
    return content ? 0 : content.error().code;
  }
  [[nodiscard]] std::string path(std::string_view below) const { return box_.path(below); }

  tests::TemporaryDirectory box_;
  FileBuffer buffer_;
};

std::string pattern(std::size_t bytes) {
  std::string text(bytes, '\0');
  for (std::size_t index = 0; index < bytes; ++index) {
    text[index] = static_cast<char>('a' + (index / 1000 + index) % 26);
  }
  return text;
}

}  // namespace

TEST_F(FileReading, ReadsFilesOfEverySizeAroundAPiece) {
  for (const std::size_t size : {std::size_t{0}, std::size_t{1}, std::size_t{4096}, kPiece - 1, kPiece, kPiece + 1,
                                 3 * kPiece, 3 * kPiece + 17}) {
    const std::string content = pattern(size);
    EXPECT_EQ(read(box_.write("file", content)), content) << size;
  }
}

TEST_F(FileReading, TheVisitorSeesEveryByteOnceAndInOrder) {
  const std::string content = pattern(2 * kPiece + 5);
  std::string seen;
  std::size_t pieces = 0;
  read(box_.write("file", content), [&](std::span<const std::byte> piece) {
    seen.append(reinterpret_cast<const char*>(piece.data()), piece.size());
    ++pieces;
  });
  EXPECT_EQ(seen, content);
  EXPECT_EQ(pieces, 3U);
}

TEST_F(FileReading, TheBufferIsUsedAgainAndNeverMuchLargerThanTheFile) {
  read(box_.write("large", pattern(5 * kPiece)));
  EXPECT_LE(buffer_.memory().size(), 6 * kPiece);
  const std::byte* const memory = buffer_.memory().data();
  EXPECT_EQ(read(box_.write("small", "abc")), "abc");
  EXPECT_EQ(buffer_.memory().data(), memory);
}

TEST_F(FileReading, AFileThatGrowsMeanwhileIsReadToItsEnd) {
  const std::string file = box_.write("file", pattern(kPiece));
  std::string seen;
  const std::string content = read(file, [&](std::span<const std::byte> piece) {
    if (seen.empty()) {
      std::ofstream(file, std::ios::app) << pattern(3 * kPiece);
    }
    seen.append(reinterpret_cast<const char*>(piece.data()), piece.size());
  });
  EXPECT_EQ(content, pattern(kPiece) + pattern(3 * kPiece));
  EXPECT_EQ(seen, content);
}

TEST_F(FileReading, AFileThatShrinksMeanwhileGivesWhatWasReallyRead) {
  const std::string file = box_.write("file", pattern(4 * kPiece));
  const std::string content =
      read(file, [&](std::span<const std::byte>) { EXPECT_EQ(truncate(file.c_str(), kPiece), 0); });
  EXPECT_EQ(content, pattern(4 * kPiece).substr(0, kPiece));
}

TEST_F(FileReading, AFileWhoseSizeIsNotKnownIsReadToItsEnd) {
  const std::string file = "/proc/self/mountinfo";
  if (!files::exists(file)) {
    GTEST_SKIP() << "there is no /proc here";
  }
  std::ifstream stream(file);
  const std::string content{std::istreambuf_iterator<char>(stream), {}};
  EXPECT_FALSE(content.empty());
  EXPECT_EQ(read(file), content);
}

TEST_F(FileReading, WhatIsNoRegularFileIsAnErrorAtOnce) {
  ASSERT_EQ(mkfifo(path("fifo").c_str(), 0600), 0);
  ASSERT_EQ(symlink("/dev/zero", path("zero").c_str()), 0);
  ASSERT_EQ(symlink("loop", path("loop").c_str()), 0);
  for (const std::string& item : {path("fifo"), path("zero"), path("loop"), box_.path(), "/dev/null"s}) {
    EXPECT_EQ(errorCode(item), 256) << item;
  }
}

TEST_F(FileReading, MissingAndImpossiblePathsAreErrors) {
  const std::string file = box_.write("file", "x");
  ASSERT_EQ(symlink("nowhere", path("dangling").c_str()), 0);
  EXPECT_EQ(errorCode(path("missing")), 260);
  EXPECT_EQ(errorCode(path("dangling")), 260);
  EXPECT_EQ(errorCode(""), 260);
  EXPECT_EQ(errorCode(file + "\0x"s), 258);
  EXPECT_EQ(errorCode(path(std::string(256, 'x'))), 258);
  EXPECT_EQ(errorCode("/" + std::string(PATH_MAX, 'x')), 258);
}

TEST_F(FileReading, FollowsALinkToAFile) {
  box_.write("file", "content");
  ASSERT_EQ(symlink("file", path("link").c_str()), 0);
  EXPECT_EQ(read(path("link")), "content");
}

TEST_F(FileReading, AFileTooLargeForTheMemoryIsAnErrorOfItsOwn) {
  const std::string file = box_.write("file", "");
  if (truncate(file.c_str(), off_t{1} << 43U) != 0) {
    GTEST_SKIP() << "this file system holds no files of that size";
  }
  rlimit before{};
  getrlimit(RLIMIT_AS, &before);
  EXPECT_EQ(tests::exitStatusOf([&] {
              const rlimit limit{.rlim_cur = rlim_t{1} << 42U, .rlim_max = before.rlim_max};
              if (setrlimit(RLIMIT_AS, &limit) != 0) {
                return 1;
              }
              return static_cast<int>(errorCode(file) == 263 ? 0 : 2);
            }),
            0);
}

TEST_F(FileReading, ReadsTextsWithNuls) {
  EXPECT_EQ(files::readText(box_.write("file", "a\0b"s)).value(), "a\0b"s);
  EXPECT_EQ(files::readText(path("missing")).error().code, 260);
}

TEST_F(FileReading, PiecesAreThoseOfTheFileWithNoMoreMemoryThanOneTakes) {
  const std::string content = pattern(3 * kPiece + 17);
  std::string seen;
  const auto read = files::readInPieces(box_.write("file", content), buffer_, [&](std::span<const std::byte> piece) {
    seen.append(reinterpret_cast<const char*>(piece.data()), piece.size());
    return true;
  });
  EXPECT_TRUE(read.ok());
  EXPECT_EQ(seen, content);
  EXPECT_EQ(buffer_.memory().size(), kPiece);
}

TEST_F(FileReading, PiecesEndWhenTheReaderWantsNoMore) {
  int pieces = 0;
  const auto read = files::readInPieces(box_.write("file", pattern(3 * kPiece)), buffer_,
                                        [&](std::span<const std::byte>) { return ++pieces < 2; });
  EXPECT_TRUE(read.ok());
  EXPECT_EQ(pieces, 2);
}

TEST_F(FileReading, LengthAndPiecesAreOfRegularFilesOnlyAndNeverWaited) {
  const auto never = [](std::span<const std::byte>) {
    ADD_FAILURE() << "nothing can be read";
    return true;
  };
  ASSERT_EQ(mkfifo(path("pipe").c_str(), 0600), 0);
  box_.makeDirectory("folder");
  std::filesystem::create_symlink("loop", path("loop"));
  for (const char* name : {"pipe", "folder", "loop", "missing"}) {
    const auto read = files::readInPieces(path(name), buffer_, never);
    const auto length = files::lengthOfReadableFile(path(name));
    ASSERT_FALSE(read.ok() || length.ok()) << name;
    EXPECT_EQ(read.error().code, length.error().code);
    EXPECT_EQ(read.error().code, errorCode(path(name))) << name;
  }
  std::filesystem::create_symlink(box_.write("file", "12345"), path("link"));
  EXPECT_EQ(files::lengthOfReadableFile(path("link")).value(), 5U);
}
