#include <gtest/gtest.h>

#include <cstddef>
#include <span>
#include <string>
#include <vector>

#include "general/foundation/Error.h"
#include "general/foundation/propertylist/PropertyListFile.h"
#include "tests/unit/InstallationDeployer/journal/JournalMaker.h"

namespace {

using deployer::ChangeJournal;
using deployer::JournalNote;
using tests::journaled;
using tests::journalOfAnUpgrade;
using tests::PropertyLists;
using tests::Role;
using Names = std::vector<std::string>;

std::span<const std::byte> bytesOf(const std::string& text) { return std::as_bytes(std::span(text)); }

foundation::Result<ChangeJournal> parse(const std::string& bytes) { return ChangeJournal::parse(bytesOf(bytes)); }

std::string framed(const foundation::PropertyList& value) {
  const std::string document = foundation::plist::serialize(value, foundation::plist::Format::Binary).value();
  std::string length(4, '\0');
  length[2] = static_cast<char>(document.size() >> 8);
  length[3] = static_cast<char>(document.size());
  return length + document;
}

TEST(ChangeJournal, IsReadAsItWasWritten) {
  ChangeJournal journal = journalOfAnUpgrade();
  journal.operation = ChangeJournal::Operation::Remove;
  journal.processStart = 815;
  journal.treatedAsUpdate = true;
  journal.owedFiles = {"/Library/Guard/settings", "/Library/Guard/more"};
  journal.owedFromElsewhere = {"/Library/Guard/more"};
  const auto read = parse(journal.document().value());
  ASSERT_TRUE(read.ok());
  EXPECT_EQ(read->operation, ChangeJournal::Operation::Remove);
  EXPECT_EQ(read->product, "Guard");
  EXPECT_EQ(read->bundlePath, "/Volumes/Second/Installer.app");
  EXPECT_EQ(read->process, 4711);
  EXPECT_EQ(read->processStart, 815);
  EXPECT_EQ(read->begunAt, 820000000);
  EXPECT_TRUE(read->treatedAsUpdate);
  EXPECT_EQ(read->versionsBefore, journal.versionsBefore);
  EXPECT_EQ(read->versionsAfter, journal.versionsAfter);
  EXPECT_EQ(read->manifests, journal.manifests);
  EXPECT_EQ(read->owedFiles, journal.owedFiles);
  EXPECT_EQ(read->owedFromElsewhere, journal.owedFromElsewhere);
  EXPECT_TRUE(read->notes.empty());
}

TEST(ChangeJournal, OfAFirstInstallHasNoVersionsBefore) {
  ChangeJournal journal = journalOfAnUpgrade();
  journal.versionsBefore = {};
  EXPECT_TRUE(parse(journal.document().value())->versionsBefore.isNil());
}

TEST(ChangeJournal, GivesBackTheManifestsThatWereWrittenDown) {
  const auto read = parse(journalOfAnUpgrade().document().value());
  EXPECT_EQ(read->manifests[0].content(), PropertyLists::manifestOf({PropertyLists::directory("/Library/Guard")}));
}

TEST(ChangeJournal, HasTheNotesThatWereAddedToItsEnd) {
  const std::string bytes = journalOfAnUpgrade().document().value() +
                            ChangeJournal::documentOf({"stopped", {"Core", "Tools"}}).value() +
                            ChangeJournal::documentOf({"removed", {"Core"}}).value();
  const auto read = parse(bytes);
  ASSERT_TRUE(read.ok());
  EXPECT_EQ(read->notes, (std::vector<JournalNote>{{"stopped", {"Core", "Tools"}}, {"removed", {"Core"}}}));
}

TEST(ChangeJournal, LeavesOutANoteThatWasNotWrittenWholeAndWhatComesAfter) {
  const std::string note = ChangeJournal::documentOf({"stopped", {"Core"}}).value();
  const std::string begin = journalOfAnUpgrade().document().value() + note;
  for (std::size_t length = 0; length < note.size(); ++length) {
    const auto read = parse(begin + note.substr(0, length));
    ASSERT_TRUE(read.ok()) << length;
    EXPECT_EQ(read->notes.size(), 1U) << length;
  }
  EXPECT_EQ(parse(begin + std::string(64, '\0'))->notes.size(), 1U);
}

TEST(ChangeJournal, ThatWasNotWrittenWholeIsAnError) {
  const std::string whole = journalOfAnUpgrade().document().value();
  for (std::size_t length = 0; length < whole.size(); ++length) {
    const auto read = parse(whole.substr(0, length));
    ASSERT_FALSE(read.ok()) << length;
    EXPECT_EQ(read.error().code, foundation::kReadCorrupt);
  }
}

TEST(ChangeJournal, OfANewerEngineIsAnErrorThatSaysSo) {
  const auto read = parse(framed(PropertyLists::dictionary({{"Format", 2}, {"Product", "Guard"}})));
  ASSERT_FALSE(read.ok());
  EXPECT_EQ(read.error().code, foundation::kReadCorrupt);
  EXPECT_NE(read.error().text.find("newer engine"), std::string::npos);
}

TEST(ChangeJournal, WithAnythingButWhatItMustSayIsAnError) {
  EXPECT_FALSE(parse(framed(PropertyLists::array({}))).ok());
  EXPECT_FALSE(parse(framed(PropertyLists::dictionary({{"Operation", "Install"}}))).ok());
  EXPECT_FALSE(parse(framed(PropertyLists::dictionary({{"Operation", "Else"}, {"Product", "Guard"}}))).ok());
  EXPECT_FALSE(parse(framed(PropertyLists::dictionary(
                         {{"Operation", "Install"},
                          {"Product", "Guard"},
                          {"Manifests", PropertyLists::array({PropertyLists::dictionary({{"Component", "Core"}})})}})))
                   .ok());
  EXPECT_TRUE(parse(framed(PropertyLists::dictionary(
                        {{"Operation", "Install"}, {"Product", "Guard"}, {"Manifests", PropertyLists::array({})}})))
                  .ok());
}

TEST(ChangeJournal, NamesEachComponentOnce) {
  ChangeJournal journal = journalOfAnUpgrade();
  journal.add(journaled("Tools", Role::Placed, PropertyLists::manifestOf({})));
  EXPECT_EQ(journal.components(), (Names{"Core", "Tools"}));
}

TEST(ChangeJournal, AdoptsWhatAnEarlierRunLeftUndone) {
  ChangeJournal earlier = journalOfAnUpgrade();
  earlier.add(journaled("Old", Role::Removed, PropertyLists::manifestOf({})));
  earlier.owedFiles = {"/a", "/b"};
  earlier.owedFromElsewhere = {"/b"};
  earlier.treatedAsUpdate = true;
  ChangeJournal journal = journalOfAnUpgrade();
  journal.owedFiles = {"/b", "/c"};
  journal.adopt(earlier);
  EXPECT_EQ(journal.components(), (Names{"Core", "Old"}));
  EXPECT_EQ(journal.manifests.size(), 3U) << "the same manifest twice";
  EXPECT_EQ(journal.owedFiles, (Names{"/b", "/c", "/a"}));
  EXPECT_EQ(journal.owedFromElsewhere, Names{"/b"});
  EXPECT_TRUE(journal.treatedAsUpdate);
}

TEST(ChangeJournal, SaysWhatWasInterruptedWhenAndHowFarItHadCome) {
  ChangeJournal journal = journalOfAnUpgrade();
  EXPECT_EQ(journal.description(),
            "The install of \"Guard\" by process 4711 from /Volumes/Second/Installer.app was interrupted. It began at "
            "2026-12-26 17:46:40 +0000 and had done nothing yet.");
  journal.operation = ChangeJournal::Operation::Remove;
  journal.notes = {{"stopped", {"Core"}}, {"removed", {"Core", "Tools"}}};
  EXPECT_EQ(journal.description(),
            "The removal of \"Guard\" by process 4711 from /Volumes/Second/Installer.app was interrupted. It began at "
            "2026-12-26 17:46:40 +0000 and had stopped (Core), removed (Core, Tools).");
}

}  // namespace
