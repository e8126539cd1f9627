#include <gtest/gtest.h>

#include <atomic>
#include <filesystem>
#include <new>
#include <string>
#include <vector>

#include "InstallationDeployer/QVNInstallerChecksum.h"
#include "InstallationDeployer/install/MemoryBudget.h"
#include "InstallationDeployer/install/PayloadFileReader.h"
#include "InstallationDeployer/install/PayloadPrefetch.h"
#include "InstallationDeployer/install/WrittenVolumes.h"
#include "general/foundation/Thread.h"
#include "tests/support/TemporaryDirectory.h"

namespace {

using deployer::MemoryBudget;
using deployer::PayloadFile;
using deployer::PayloadFileReader;
using deployer::PayloadPrefetch;
using deployer::WrittenVolumes;
using foundation::NamedThread;
using tests::TemporaryDirectory;

std::string checksumOf(const std::string& content) {
  return deployer::QVNInstallerChecksum::generateSHA256(std::as_bytes(std::span(content)));
}

std::string textOf(std::span<const std::byte> bytes) {
  return {reinterpret_cast<const char*>(bytes.data()), bytes.size()};
}

// --- MemoryBudget
// -----------------------------------------------------------------------------------------------------

/// Whether several threads that use an idle budget ever have more of it than it has.
bool isEverExceeded(MemoryBudget& allowance) {
  std::atomic<std::size_t> used = 0;
  std::atomic<bool> exceeded = false;
  {
    std::vector<NamedThread> threads;
    threads.reserve(4);
    for (std::size_t thread = 0; thread < 4; ++thread) {
      threads.emplace_back("user", [&, thread] {
        for (std::size_t round = 0; round < 1000; ++round) {
          const std::size_t wanted = 1 + (thread + round) % allowance.bytes();
          const auto grant = allowance.acquire(wanted);
          exceeded = exceeded || (used += wanted) > allowance.bytes();
          used -= wanted;
        }
      });
    }
  }
  return exceeded;
}

TEST(MemoryBudget, WhatIsInUseNeverExceedsTheAllowance) {
  MemoryBudget allowance(10);
  EXPECT_FALSE(isEverExceeded(allowance));
}

TEST(MemoryBudget, MoreThanTheAllowanceIsGrantedWhenNobodyElseUsesAny) {
  MemoryBudget allowance(10);
  { const auto grant = allowance.acquire(1000); }
  EXPECT_FALSE(isEverExceeded(allowance)) << "only what was taken is given back";
}

TEST(MemoryBudget, AGrantThatMovedIsGivenBackOnce) {
  MemoryBudget allowance(10);
  {
    auto first = allowance.acquire(6);
    MemoryBudget::Grant second = std::move(first);
    second.release();
  }
  EXPECT_FALSE(isEverExceeded(allowance));
}

// --- PayloadFileReader
// ---------------------------------------------------------------------------------------------------

TEST(PayloadFileReader, GivesContentAndChecksumOfOneFileAfterTheOther) {
  const TemporaryDirectory scratch;
  const std::string large(1 << 20, 'x');
  MemoryBudget allowance(1 << 21);
  PayloadFileReader reader(allowance, 4096);
  for (const std::string& content : {std::string("first"), large, std::string(), std::string("last")}) {
    const auto read = reader.read(scratch.write("file", content));
    ASSERT_TRUE(read.ok());
    EXPECT_EQ(textOf(read->bytes()), content);
    EXPECT_EQ(read->checksum(), checksumOf(content));
  }
}

TEST(PayloadFileReader, ATroubledReadLeavesNothingInTheNextChecksum) {
  const TemporaryDirectory scratch;
  MemoryBudget allowance(1 << 20);
  PayloadFileReader reader(allowance, 4096);
  EXPECT_TRUE(reader.read(scratch.path("absent")).error().isNoSuchFile());
  const auto read = reader.read(scratch.write("file", "abc"));
  ASSERT_TRUE(read.ok());
  EXPECT_EQ(read->checksum(), "ba7816bf8f01cfea414140de5dae2223b00361a396177a9cb410ff61f20015ad");
}

TEST(PayloadFileReader, LargeFilesOfSeveralReadersShareOneAllowance) {
  const TemporaryDirectory scratch;
  const std::string content(50000, 'x');
  const std::string path = scratch.write("file", content);
  MemoryBudget allowance(60000);
  std::atomic<int> good = 0;
  {
    std::vector<NamedThread> threads;
    threads.reserve(4);
    for (int thread = 0; thread < 4; ++thread) {
      threads.emplace_back("reader", [&] {
        PayloadFileReader reader(allowance, 4096);
        for (int round = 0; round < 20; ++round) {
          const auto read = reader.read(path);
          good += read.ok() && read->bytes().size() == content.size() ? 1 : 0;
        }
      });
    }
  }
  EXPECT_EQ(good, 80);
}

// --- WrittenVolumes
// ------------------------------------------------------------------------------------------------------

TEST(WrittenVolumes, FlushesWhatWasNotedAlsoWhenTheItemIsGone) {
  const TemporaryDirectory scratch;
  WrittenVolumes volumes;
  volumes.note(scratch.makeDirectory("a/b"));
  std::filesystem::remove_all(scratch.path("a"));
  EXPECT_TRUE(volumes.flush().ok());
}

TEST(WrittenVolumes, ALinkThatLeadsNowhereStandsForItsFolder) {
  const TemporaryDirectory scratch;
  std::filesystem::create_symlink("nowhere", scratch.path("link"));
  WrittenVolumes volumes;
  volumes.note(scratch.path("link"));
  EXPECT_TRUE(volumes.flush().ok());
}

TEST(WrittenVolumes, NothingNotedIsNothingToFlush) {
  WrittenVolumes volumes;
  EXPECT_TRUE(volumes.flush().ok());
  volumes.note("/never/there");
  EXPECT_TRUE(volumes.flush().ok());
}

// --- PayloadPrefetch
// -----------------------------------------------------------------------------------------------------

class FilePreparationTest : public ::testing::Test {
 protected:
  PayloadPrefetch::Chooser chooser(std::size_t size) {
    return [this, size](std::size_t index) -> std::optional<PayloadFile> {
      if (index % 3 == 2) {
        return std::nullopt;
      }
      const std::string content(size, static_cast<char>('a' + index % 26));
      return PayloadFile{
          scratch_.write("sources/" + std::to_string(index), content), destination(index), checksumOf(content), {}};
    };
  }
  std::string destination(std::size_t index) const { return scratch_.path("missing/" + std::to_string(index)); }

  const TemporaryDirectory scratch_;
  MemoryBudget allowance_{10000};
  PayloadFileReader reader_{allowance_, 4096};
};

TEST_F(FilePreparationTest, GivesTheFilesOfTheListInItsOrderAndNothingShowsBefore) {
  constexpr std::size_t kCount = 300;
  PayloadPrefetch preparation(kCount, chooser(100), 2, reader_, allowance_, 4096);
  std::size_t taken = 0;
  for (std::size_t index = 0; index < kCount; ++index) {
    const auto prepared = preparation.takeNext();
    if (prepared) {
      EXPECT_EQ(prepared->destination, destination(index));
      ++taken;
    }
  }
  EXPECT_EQ(taken, 2 * kCount / 3) << "all but what the chooser left out";
  EXPECT_FALSE(std::filesystem::exists(scratch_.path("missing")));
}

TEST_F(FilePreparationTest, FilesLargerThanWhatAHelperKeepsGoThroughTheAllowance) {
  constexpr std::size_t kCount = 40;
  for (const std::size_t size : {9000U, 20000U}) {
    PayloadPrefetch preparation(kCount, chooser(size), 3, reader_, allowance_, 4096);
    for (std::size_t index = 0; index < kCount; ++index) {
      const auto prepared = preparation.takeNext();
      EXPECT_EQ(prepared.has_value(), index % 3 != 2);
    }
  }
}

TEST_F(FilePreparationTest, WhatIsNotTakenIsThrownAway) {
  const std::string folder = scratch_.makeDirectory("missing");
  { PayloadPrefetch preparation(300, chooser(100), 2, reader_, allowance_, 4096); }
  EXPECT_TRUE(std::filesystem::is_empty(folder));
}

TEST_F(FilePreparationTest, AfterGivingUpNothingIsPrepared) {
  PayloadPrefetch preparation(300, chooser(100), 2, reader_, allowance_, 4096);
  preparation.giveUp();
  for (int index = 0; index < 300; ++index) {
    EXPECT_FALSE(preparation.takeNext().has_value());
  }
}

TEST_F(FilePreparationTest, WithoutHelpersTheOwnerPreparesEverything) {
  PayloadPrefetch preparation(300, chooser(100), 0, reader_, allowance_, 4096);
  for (std::size_t index = 0; index < 300; ++index) {
    EXPECT_EQ(preparation.takeNext().has_value(), index % 3 != 2);
  }
}

TEST_F(FilePreparationTest, RunningOutOfMemoryPreparesNothingAndEndsNothing) {
  PayloadPrefetch preparation(
      50, [](std::size_t) -> std::optional<PayloadFile> { throw std::bad_alloc(); }, 2, reader_, allowance_, 4096);
  for (int index = 0; index < 50; ++index) {
    EXPECT_FALSE(preparation.takeNext().has_value());
  }
}

TEST_F(FilePreparationTest, AFileThatDoesNotMatchItsChecksumIsNotPrepared) {
  const std::string source = scratch_.write("source", "content");
  PayloadPrefetch preparation(
      50,
      [&](std::size_t index) {
        return PayloadFile{source, destination(index), checksumOf("else"), {}};
      },
      2, reader_, allowance_, 4096);
  for (int index = 0; index < 50; ++index) {
    EXPECT_FALSE(preparation.takeNext().has_value());
  }
}

}  // namespace
