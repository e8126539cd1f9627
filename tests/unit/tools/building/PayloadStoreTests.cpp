#include <gtest/gtest.h>

#include <csignal>
#include <filesystem>
#include <string>

#include "tests/support/TemporaryDirectory.h"
#include "tools/building/Interruption.h"
#include "tools/building/PayloadStore.h"

namespace {

constexpr const char* kDigestOfAbc = "ba7816bf8f01cfea414140de5dae2223b00361a396177a9cb410ff61f20015ad";

class PayloadStore : public ::testing::Test {
 protected:
  PayloadStore() { folder_.makeDirectory("Root"); }

  [[nodiscard]] bool isStored(const std::string& component) const {
    return std::filesystem::is_regular_file(folder_.path("Root/" + component + "/" + kDigestOfAbc));
  }

  tests::TemporaryDirectory folder_;
  bundletool::Problems problems_;
  bundletool::ProgressBar progress_{{}, 80};
  bundletool::PayloadStore store_{folder_.path("Root"), problems_, progress_};
};

TEST_F(PayloadStore, KeepsEachContentOncePerComponentUnderItsChecksum) {
  const std::string first = folder_.write("first", "abc");
  const std::string second = folder_.write("second", "abc");
  ASSERT_TRUE(store_.beginComponent("A"));
  EXPECT_EQ(store_.store(first), kDigestOfAbc);
  EXPECT_EQ(store_.store(second), kDigestOfAbc);
  EXPECT_TRUE(isStored("A"));
  EXPECT_TRUE(store_.holds("A", kDigestOfAbc));
  EXPECT_FALSE(store_.holds("B", kDigestOfAbc)) << "not begun";
  ASSERT_TRUE(store_.beginComponent("B"));
  EXPECT_FALSE(store_.holds("B", kDigestOfAbc)) << "nobody shares another's payload";
  EXPECT_EQ(store_.store(first), kDigestOfAbc);
  EXPECT_TRUE(isStored("B"));
  EXPECT_TRUE(problems_.none());
}

TEST_F(PayloadStore, RemembersWhatAComponentHasWhenItIsBegunAgain) {
  const std::string file = folder_.write("file", "abc");
  ASSERT_TRUE(store_.beginComponent("A"));
  ASSERT_EQ(store_.store(file), kDigestOfAbc);
  ASSERT_TRUE(store_.beginComponent("B"));
  ASSERT_TRUE(store_.beginComponent("A"));
  EXPECT_TRUE(store_.holds("A", kDigestOfAbc));
}

TEST_F(PayloadStore, ComplainsOfAFileThatCannotBeReadAndGivesNoChecksum) {
  ASSERT_TRUE(store_.beginComponent("A"));
  EXPECT_EQ(store_.store(folder_.path("none")), "");
  ASSERT_EQ(problems_.errors().size(), 1U);
  EXPECT_EQ(problems_.errors()[0].file, folder_.path("none"));
}

TEST_F(PayloadStore, ComplainsOfAFolderThatCannotBeMade) {
  folder_.write("Root/A", "in the way");
  EXPECT_FALSE(store_.beginComponent("A"));
  ASSERT_EQ(problems_.errors().size(), 1U);
  EXPECT_EQ(problems_.errors()[0].file, folder_.path("Root/A"));
}

TEST_F(PayloadStore, StoresNothingOnceTheWorkIsInterrupted) {
  const std::string file = folder_.write("file", "abc");
  ASSERT_TRUE(store_.beginComponent("A"));
  const bundletool::Interruption interruption;
  ASSERT_EQ(std::raise(SIGTERM), 0);
  EXPECT_EQ(store_.store(file), "");
  EXPECT_FALSE(isStored("A"));
  EXPECT_TRUE(problems_.none());
}

}  // namespace
