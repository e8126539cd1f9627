#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

#include "InstallationDeployer/journal/JournalStore.h"
#include "general/foundation/Error.h"
#include "tests/support/TemporaryDirectory.h"
#include "tests/unit/InstallationDeployer/journal/JournalMaker.h"

namespace {

using deployer::ChangeJournal;
using deployer::JournalStore;
using tests::journalOfAnUpgrade;
namespace fs = std::filesystem;

class JournalStoreTest : public ::testing::Test {
 protected:
  [[nodiscard]] std::string folder() const { return box_.path("db/com.corvane.installer"); }
  [[nodiscard]] unsigned modeOf(const std::string& path) const {
    struct stat item {};
    return stat(path.c_str(), &item) == 0 ? item.st_mode & 07777U : 0U;
  }
  void writeRaw(const std::string& text) const { std::ofstream(store_.pathFor("Guard"), std::ios::binary) << text; }

  tests::TemporaryDirectory box_;
  const JournalStore store_{folder()};
};

TEST_F(JournalStoreTest, ReadsTheJournalThatWasWritten) {
  ASSERT_TRUE(store_.write(journalOfAnUpgrade()).ok());
  const auto read = store_.read("Guard");
  ASSERT_TRUE(read.ok());
  ASSERT_TRUE(read->has_value());
  EXPECT_EQ((*read)->manifests, journalOfAnUpgrade().manifests);
}

TEST_F(JournalStoreTest, HasNoneWhereNoneWasWritten) {
  EXPECT_FALSE(store_.read("Guard")->has_value());
  ASSERT_TRUE(store_.write(journalOfAnUpgrade()).ok());
  EXPECT_FALSE(store_.read("Other")->has_value());
}

TEST_F(JournalStoreTest, LetsNobodyButRootLookIn) {
  ASSERT_TRUE(store_.write(journalOfAnUpgrade()).ok());
  EXPECT_EQ(modeOf(folder()), 0700U);
  EXPECT_EQ(modeOf(store_.pathFor("Guard")), 0600U);
}

TEST_F(JournalStoreTest, RefusesAFolderThatOthersCanLookInto) {
  fs::create_directories(folder());
  ASSERT_EQ(chmod(folder().c_str(), 0755), 0);
  const auto written = store_.write(journalOfAnUpgrade());
  ASSERT_FALSE(written.ok());
  EXPECT_EQ(written.error().code, foundation::kWriteNoPermission);
  EXPECT_TRUE(fs::is_empty(folder()));
}

TEST_F(JournalStoreTest, RefusesALinkInTheFoldersPlace) {
  fs::create_directories(box_.path("db"));
  const std::string elsewhere = box_.makeDirectory("elsewhere");
  ASSERT_EQ(symlink(elsewhere.c_str(), folder().c_str()), 0);
  EXPECT_FALSE(store_.write(journalOfAnUpgrade()).ok());
  EXPECT_TRUE(fs::is_empty(elsewhere));
}

TEST_F(JournalStoreTest, AddsNotesAndDropsThemWithANewJournal) {
  ASSERT_TRUE(store_.write(journalOfAnUpgrade()).ok());
  ASSERT_TRUE(store_.append("Guard", {"stopped", {"Core"}}).ok());
  EXPECT_EQ((*store_.read("Guard"))->notes.size(), 1U);
  ASSERT_TRUE(store_.write(journalOfAnUpgrade()).ok());
  EXPECT_TRUE((*store_.read("Guard"))->notes.empty());
  EXPECT_FALSE(store_.append("Other", {"stopped", {}}).ok());
}

TEST_F(JournalStoreTest, RemovesAJournal) {
  ASSERT_TRUE(store_.write(journalOfAnUpgrade()).ok());
  ASSERT_TRUE(store_.remove("Guard").ok());
  EXPECT_TRUE(fs::is_empty(folder()));
  EXPECT_TRUE(store_.remove("Guard").ok());
}

TEST_F(JournalStoreTest, SaysThatAJournalMakesNoSense) {
  ASSERT_TRUE(store_.write(journalOfAnUpgrade()).ok());
  writeRaw("nonsense");
  EXPECT_EQ(store_.read("Guard").error().code, foundation::kReadCorrupt);
  ChangeJournal other = journalOfAnUpgrade();
  other.product = "Other";
  writeRaw(other.document().value());
  EXPECT_EQ(store_.read("Guard").error().code, foundation::kReadCorrupt);
}

TEST_F(JournalStoreTest, SaysThatAJournalCannotBeReadAndNotThatThereIsNone) {
  fs::create_directories(store_.pathFor("Guard"));
  const auto read = store_.read("Guard");
  ASSERT_FALSE(read.ok());
  EXPECT_NE(read.error().code, foundation::kReadCorrupt);
}

TEST_F(JournalStoreTest, SetsAJournalAsideInThePlaceOfAnOlderOne) {
  ASSERT_TRUE(store_.write(journalOfAnUpgrade()).ok());
  writeRaw("first");
  ASSERT_TRUE(store_.setAsideFor(journalOfAnUpgrade()).ok());
  writeRaw("second");
  const auto aside = store_.setAsideFor(journalOfAnUpgrade());
  ASSERT_TRUE(aside.ok());
  std::string content;
  std::ifstream(*aside) >> content;
  EXPECT_EQ(content, "second");
  EXPECT_TRUE(store_.read("Guard")->has_value()) << "what takes its place";
}

TEST_F(JournalStoreTest, TakesProductsOfAnyName) {
  for (const std::string& name : {std::string("A name"), std::string(255, 'x'), std::string(".hidden")}) {
    ChangeJournal journal = journalOfAnUpgrade();
    journal.product = name;
    ASSERT_TRUE(store_.write(journal).ok()) << name;
    EXPECT_TRUE(store_.read(name)->has_value()) << name;
    EXPECT_TRUE(store_.setAsideFor(journal).ok()) << name;
  }
}

TEST_F(JournalStoreTest, KnowsWhetherAnotherProductsRunOwesFiles) {
  EXPECT_FALSE(store_.anotherOwesFiles("Guard").value());
  ChangeJournal journal = journalOfAnUpgrade();
  journal.owedFiles = {"/Library/Guard/settings"};
  ASSERT_TRUE(store_.write(journal).ok());
  EXPECT_FALSE(store_.anotherOwesFiles("Guard").value());
  EXPECT_TRUE(store_.anotherOwesFiles("Other").value());
  journal.owedFiles.clear();
  ASSERT_TRUE(store_.write(journal).ok());
  EXPECT_FALSE(store_.anotherOwesFiles("Other").value());
  writeRaw("nonsense");
  EXPECT_TRUE(store_.anotherOwesFiles("Other").value()) << "it may owe some";
  ASSERT_TRUE(store_.setAsideFor(journal).ok());
  EXPECT_FALSE(store_.anotherOwesFiles("Other").value());
}

TEST_F(JournalStoreTest, SaysThatItCannotTellWhetherAnotherProductsRunOwesFiles) {
  box_.write("db/com.corvane.installer", "a file");
  EXPECT_FALSE(store_.anotherOwesFiles("Guard").ok());
}

TEST_F(JournalStoreTest, SaysWhenTheJournalOfAnotherProductCannotBeRead) {
  fs::create_directories(store_.pathFor("Other"));
  EXPECT_FALSE(store_.anotherOwesFiles("Guard").ok());
}

}  // namespace
