#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <filesystem>
#include <new>
#include <span>
#include <string>

#include "InstallationDeployer/ManifestKeys.h"
#include "InstallationDeployer/QVNInstallerChecksum.h"
#include "InstallationDeployer/install/PayloadPrefetch.h"
#include "tests/support/PropertyLists.h"
#include "tests/support/TemporaryDirectory.h"

namespace deployer {
namespace {

using tests::PropertyLists;
using tests::TemporaryDirectory;

std::string checksumOf(const std::string& content) {
  return QVNInstallerChecksum::generateSHA256(std::as_bytes(std::span(content)));
}

class PayloadPrefetchTest : public ::testing::Test {
 protected:
  static InstallAction fileAction(const std::string& source, const std::string& destination,
                                  const std::string& checksum) {
    return {.kind = InstallAction::Kind::PayloadFile,
            .entry = FileEntry(PropertyLists::entry(destination, {{std::string(kManifestSHAChecksum), checksum}})),
            .destination = destination,
            .source = source};
  }
  /// Every third entry is no file of the payload.
  PayloadPrefetch::Decider files(std::size_t size) {
    return [this, size](std::size_t index) -> InstallAction {
      if (index % 3 == 2) {
        return {.kind = InstallAction::Kind::Directory, .entry = FileEntry({}), .destination = destination(index)};
      }
      const std::string content(size, static_cast<char>('a' + index % 26));
      return fileAction(scratch_.write("sources/" + std::to_string(index), content), destination(index),
                        checksumOf(content));
    };
  }
  std::string destination(std::size_t index) const { return scratch_.path("missing/" + std::to_string(index)); }

  const TemporaryDirectory scratch_;
  MemoryBudget budget_{10000};
  PayloadFileReader reader_{budget_, 4096};
};

TEST_F(PayloadPrefetchTest, GivesTheEntriesOfTheListInItsOrderAndNothingShowsBefore) {
  constexpr std::size_t kCount = 300;
  PayloadPrefetch prefetch(kCount, files(100), 2, reader_, budget_, 4096);
  std::size_t taken = 0;
  for (std::size_t index = 0; index < kCount; ++index) {
    const auto turn = prefetch.takeNext();
    EXPECT_EQ(turn.action.destination, destination(index));
    taken += turn.prepared ? 1 : 0;
  }
  EXPECT_EQ(taken, 2 * kCount / 3) << "all that are files of the payload";
  EXPECT_FALSE(std::filesystem::exists(scratch_.path("missing")));
}

TEST_F(PayloadPrefetchTest, FilesLargerThanWhatAHelperKeepsGoThroughTheBudget) {
  constexpr std::size_t kCount = 40;
  for (const std::size_t size : {9000U, 20000U}) {
    PayloadPrefetch prefetch(kCount, files(size), 3, reader_, budget_, 4096);
    for (std::size_t index = 0; index < kCount; ++index) {
      EXPECT_EQ(prefetch.takeNext().prepared.has_value(), index % 3 != 2);
    }
  }
}

TEST_F(PayloadPrefetchTest, WhatIsNotTakenIsThrownAway) {
  const std::string folder = scratch_.makeDirectory("missing");
  { PayloadPrefetch prefetch(300, files(100), 2, reader_, budget_, 4096); }
  EXPECT_TRUE(std::filesystem::is_empty(folder));
}

TEST_F(PayloadPrefetchTest, AfterGivingUpNothingIsPrepared) {
  PayloadPrefetch prefetch(300, files(100), 2, reader_, budget_, 4096);
  prefetch.giveUp();
  for (std::size_t index = 0; index < 300; ++index) {
    const auto turn = prefetch.takeNext();
    EXPECT_EQ(turn.action.destination, destination(index)) << "what is to be done is told all the same";
    EXPECT_FALSE(turn.prepared.has_value());
  }
}

TEST_F(PayloadPrefetchTest, WithoutHelpersTheOwnerPreparesEverything) {
  PayloadPrefetch prefetch(300, files(100), 0, reader_, budget_, 4096);
  for (std::size_t index = 0; index < 300; ++index) {
    EXPECT_EQ(prefetch.takeNext().prepared.has_value(), index % 3 != 2);
  }
}

TEST_F(PayloadPrefetchTest, EntriesTakenBeforeGivingUpAreNotGivenAgain) {
  PayloadPrefetch prefetch(300, files(100), 2, reader_, budget_, 4096);
  for (std::size_t index = 0; index < 300; ++index) {
    if (index == 100) {
      prefetch.giveUp();
    }
    EXPECT_EQ(prefetch.takeNext().action.destination, destination(index));
  }
}

TEST_F(PayloadPrefetchTest, AnEntryThatThereWasTooLittleMemoryForIsDecidedAgainWhenItsTurnComes) {
  std::array<std::atomic<int>, 50> decisions{};
  PayloadPrefetch prefetch(
      decisions.size(),
      [&, decide = files(100)](std::size_t index) {
        if (decisions[index]++ == 0) {
          throw std::bad_alloc();
        }
        return decide(index);
      },
      2, reader_, budget_, 4096);
  for (std::size_t index = 0; index < decisions.size(); ++index) {
    const auto turn = prefetch.takeNext();
    EXPECT_EQ(turn.action.destination, destination(index));
    EXPECT_FALSE(turn.prepared.has_value());
  }
}

TEST_F(PayloadPrefetchTest, EachEntryIsDecidedOnce) {
  std::array<std::atomic<int>, 200> decisions{};
  PayloadPrefetch prefetch(
      decisions.size(),
      [&, decide = files(100)](std::size_t index) {
        ++decisions[index];
        return decide(index);
      },
      2, reader_, budget_, 4096);
  for (std::size_t index = 0; index < decisions.size(); ++index) {
    EXPECT_EQ(prefetch.takeNext().action.destination, destination(index));
  }
  EXPECT_TRUE(std::ranges::all_of(decisions, [](const auto& times) { return times == 1; }));
}

TEST_F(PayloadPrefetchTest, AFileThatDoesNotMatchItsChecksumIsNotPrepared) {
  const std::string source = scratch_.write("source", "content");
  PayloadPrefetch prefetch(
      50, [&](std::size_t index) { return fileAction(source, destination(index), checksumOf("else")); }, 2, reader_,
      budget_, 4096);
  for (int index = 0; index < 50; ++index) {
    EXPECT_FALSE(prefetch.takeNext().prepared.has_value());
  }
}

}  // namespace
}  // namespace deployer
