#include <gtest/gtest.h>

#include <cerrno>
#include <thread>

#include "InstallationDeployer/checks/BundleProblem.h"

namespace deployer {
namespace {

using Kind = BundleProblem::Kind;
using foundation::Access;
using foundation::fileError;

TEST(BundleProblem, TellsMissingFromUnreadableFromDamaged) {
  const auto missing = problemOfReading("/b/f", "Core", fileError(ENOENT, Access::Read, "/b/f"));
  EXPECT_EQ(missing.kind, Kind::Missing);
  EXPECT_EQ(missing.what, "is missing");
  EXPECT_EQ(missing.file, "/b/f");
  EXPECT_EQ(missing.component, "Core");
  const auto forbidden = problemOfReading("/b/f", "", fileError(EACCES, Access::Read, "/b/f"));
  EXPECT_EQ(forbidden.kind, Kind::Unreadable);
  EXPECT_EQ(forbidden.what, "cannot be read: Permission denied");
  const auto failing = problemOfReading("/b/f", "", fileError(EIO, Access::Read, "/b/f"));
  EXPECT_EQ(failing.kind, Kind::Unreadable);
  EXPECT_EQ(failing.what, "cannot be read: Input/output error");
  const auto pipe = problemOfReading("/b/f", "", fileError(foundation::kReadUnknown, "It is no regular file.", "/b/f"));
  EXPECT_EQ(pipe.kind, Kind::Unreadable);
  EXPECT_EQ(pipe.what, "cannot be read: It is no regular file.");
  const auto damaged = problemOfReading("/b/f", "", fileError(foundation::kReadCorrupt, "It ends early.", "/b/f"));
  EXPECT_EQ(damaged.kind, Kind::Malformed);
  EXPECT_EQ(damaged.what, "is damaged: It ends early.");
}

TEST(BundleProblem, HasANameForEveryKind) {
  EXPECT_EQ(nameOf(Kind::Missing), "missing");
  EXPECT_EQ(nameOf(Kind::Unreadable), "unreadable");
  EXPECT_EQ(nameOf(Kind::Malformed), "malformed");
  EXPECT_EQ(nameOf(Kind::Checksum), "checksum");
  EXPECT_EQ(nameOf(Kind::Space), "space");
}

TEST(BundleProblems, CountsAllAndKeepsTheFirstOnesInTheBundlesOrder) {
  BundleProblems problems;
  const auto addEvery = [&](std::uint64_t first) {
    for (std::uint64_t place = first; place < 1000; place += 2) {
      problems.add(place, {.file = std::to_string(place), .what = {}, .component = {}});
    }
  };
  std::thread other([&] { addEvery(1); });
  addEvery(0);
  other.join();
  EXPECT_EQ(problems.count(), 1000U);
  const auto kept = problems.first();
  ASSERT_EQ(kept.size(), BundleProblems::kMostKept);
  for (std::size_t index = 0; index < kept.size(); ++index) {
    EXPECT_EQ(kept[index].file, std::to_string(index));
  }
}

TEST(BundleProblems, KeepTheBeginningOfTextsOfAnyLength) {
  BundleProblems problems;
  problems.add(0, {.file = {}, .what = std::string(1000, 'x'), .component = {}});
  problems.add(1, {.file = {}, .what = std::string(std::size_t{10} << 20U, 'x'), .component = {}});
  EXPECT_EQ(problems.first()[0].what, std::string(1000, 'x'));
  EXPECT_EQ(problems.first()[1].what, std::string(1000, 'x') + "...");
}

}  // namespace
}  // namespace deployer
