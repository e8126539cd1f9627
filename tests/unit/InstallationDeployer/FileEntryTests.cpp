#include <gtest/gtest.h>

#include <optional>
#include <string>
#include <utility>

#include "InstallationDeployer/FileEntry.h"
#include "tests/support/PropertyLists.h"

using namespace deployer;
using foundation::FileAttributes;
using foundation::FileType;
using foundation::ItemStatus;
using foundation::PropertyList;

namespace {

using Keys = tests::PropertyLists::Keys;

FileEntry entryWith(Keys keys) { return FileEntry(PropertyList::dictionary(std::move(keys))); }
FileEntry entryAt(PropertyList path) { return entryWith({{"Path", std::move(path)}}); }

}  // namespace

TEST(FileEntry, AnswersEveryQuestionAboutNothing) {
  const FileEntry nothing{PropertyList()};
  EXPECT_FALSE(nothing.path());
  EXPECT_FALSE(nothing.hasUsablePath());
  EXPECT_FALSE(nothing.isRoot());
  EXPECT_FALSE(nothing.installedPath());
  EXPECT_FALSE(nothing.isDirectory() || nothing.isSymbolicLink() || nothing.isModifiable() || nothing.isWildcard());
  EXPECT_FALSE(nothing.removesContents() || nothing.checksForExternalChanges());
  EXPECT_FALSE(nothing.checksum() || nothing.linkTarget() || nothing.externalSource());
  EXPECT_EQ(nothing.attributes(), FileAttributes{});
}

TEST(FileEntry, TellsWhatTheManifestSays) {
  const FileEntry entry = entryWith({{"Path", "/opt/tool"},
                                     {"IsDirectory", true},
                                     {"IsSymbolicLink", true},
                                     {"SymbolicLinkTarget", "target"},
                                     {"SHAChecksum", "abc"},
                                     {"ExternalSourcePath", "../tool"},
                                     {"CheckForExternalFileChanges", true},
                                     {"IsModifiableFile", true},
                                     {"IsWildcardPath", true},
                                     {"RemoveDirectoryAndContents", true}});
  EXPECT_EQ(entry.path(), "/opt/tool");
  EXPECT_TRUE(entry.isDirectory() && entry.isSymbolicLink() && entry.isModifiable() && entry.isWildcard());
  EXPECT_TRUE(entry.removesContents() && entry.checksForExternalChanges());
  EXPECT_EQ(entry.linkTarget(), "target");
  EXPECT_EQ(entry.checksum(), "abc");
  EXPECT_EQ(entry.externalSource(), "../tool");
}

TEST(FileEntry, AValueOfTheWrongTypeIsAbsent) {
  const FileEntry entry = entryWith(
      {{"Path", 7}, {"SHAChecksum", 7}, {"ExternalSourcePath", true}, {"SymbolicLinkTarget", PropertyList::Array{}}});
  EXPECT_FALSE(entry.path() || entry.checksum() || entry.externalSource() || entry.linkTarget());
  EXPECT_EQ(entry.listedPath().integer(), 7);
}

TEST(FileEntry, ReadsBooleansFromNumbersAndTexts) {
  EXPECT_TRUE(entryWith({{"IsDirectory", 1}}).isDirectory());
  EXPECT_TRUE(entryWith({{"IsDirectory", "YES"}}).isDirectory());
  EXPECT_FALSE(entryWith({{"IsDirectory", "NO"}}).isDirectory());
  EXPECT_FALSE(entryWith({{"IsDirectory", PropertyList::Array{}}}).isDirectory());
}

TEST(FileEntry, EntriesOfAManifestComeInTheirOrder) {
  const auto manifest = tests::PropertyLists::manifestOf(
      {PropertyList::dictionary({{"Path", "/b"}}), "no entry", PropertyList::dictionary({{"Path", "/a"}})});
  const std::vector<FileEntry> entries = fileEntriesOf(manifest);
  ASSERT_EQ(entries.size(), 3U);
  EXPECT_EQ(entries[0].path(), "/b");
  EXPECT_EQ(entries[1].path(), std::nullopt);
  EXPECT_EQ(entries[2].path(), "/a");
  EXPECT_TRUE(fileEntriesOf(PropertyList()).empty());
  EXPECT_TRUE(fileEntriesOf(PropertyList::dictionary({{"ListOfFiles", "none"}})).empty());
}

TEST(FileEntry, WhatItAnswersOutlivesTheManifestItCameFrom) {
  std::optional<FileEntry> entry;
  {
    const auto manifest =
        tests::PropertyLists::manifestOf({PropertyList::dictionary({{"Path", "/a longer path/item"}})});
    entry.emplace(manifest["ListOfFiles"].at(0));
  }
  EXPECT_EQ(entry->path(), "/a longer path/item");
}

TEST(FileEntry, APathIsUsableThatNamesSomethingBelowTheRootOrTheRootItself) {
  for (const char* path : {"/", "/a", "a", "//a/./b/", "/a/.hidden"}) {
    EXPECT_TRUE(entryAt(path).hasUsablePath()) << path;
    EXPECT_TRUE(isUsablePath(path)) << path;
  }
  for (const char* path : {"", ".", "//", "/.", "..", "/a/..", "/a/../b"}) {
    EXPECT_FALSE(entryAt(path).hasUsablePath()) << path;
    EXPECT_FALSE(isUsablePath(path)) << path;
  }
  EXPECT_FALSE(isUsablePath(std::string_view("/a\0b", 4)));
  EXPECT_TRUE(isUsablePath("/" + std::string(256, 'n'))) << "the call that is made with it says what is wrong";
  EXPECT_FALSE(entryAt(7).hasUsablePath());
}

TEST(FileEntry, TheRootIsTheRootInEverySpelling) {
  EXPECT_TRUE(entryAt("/").isRoot());
  EXPECT_TRUE(entryAt("//").isRoot());
  EXPECT_TRUE(entryAt("/./").isRoot());
  EXPECT_FALSE(entryAt("/a").isRoot());
  EXPECT_FALSE(entryAt("").isRoot());
}

TEST(FileEntry, TheInstalledPathIsAbsoluteAndStandardized) {
  EXPECT_EQ(entryAt("//opt/./tool/").installedPath(), "/opt/tool");
  EXPECT_EQ(entryAt("/").installedPath(), "/");
  EXPECT_FALSE(entryAt("opt/tool").installedPath());
  EXPECT_FALSE(entryAt("/opt/../tool").installedPath());
}

TEST(FileEntry, OnlyWhatLiesBelowTheSystemFolderLiesInIt) {
  EXPECT_TRUE(liesInSystemFolder("/System/Library"));
  EXPECT_FALSE(liesInSystemFolder("/System"));
  EXPECT_FALSE(liesInSystemFolder("/Systems/Library"));
}

TEST(FileEntry, HasOwnerGroupAndPermissions) {
  const auto attributes =
      entryWith({{"NSFileOwnerAccountID", 501}, {"NSFileGroupOwnerAccountID", 80}, {"NSFilePosixPermissions", 04755}})
          .attributes();
  EXPECT_EQ(attributes, (FileAttributes{.owner = 501, .group = 80, .permissions = 04755}));
}

TEST(FileEntry, AnAttributeThatIsMissingOrNoNumberStaysAbsent) {
  EXPECT_EQ(FileEntry(PropertyList()).attributes(), FileAttributes{});
  EXPECT_EQ(entryWith({{"NSFileOwnerAccountID", "501"}}).attributes(), FileAttributes{});
}

TEST(FileEntry, NegativeAccountsAreThoseOfTheSystem) {
  EXPECT_EQ(entryWith({{"NSFileOwnerAccountID", -2}}).attributes().owner, 4294967294U);
}

TEST(FileEntry, PermissionsAreTheLowTwelveBits) {
  EXPECT_EQ(entryWith({{"NSFilePosixPermissions", 0100644}}).attributes().permissions, 0644U);
}

TEST(FileEntry, AnItemsAttributesAreADictionaryForMessages) {
  ItemStatus item;
  item.type = FileType::Regular;
  item.size = 12;
  item.owner = 501;
  item.group = 20;
  item.permissions = 0644;
  item.modificationNanoseconds = 978'307'201'500'000'000;
  const PropertyList dictionary = dictionaryOf(item);
  EXPECT_EQ(dictionary["NSFileType"].text(), "NSFileTypeRegular");
  EXPECT_EQ(dictionary["NSFileSize"].integer(), 12);
  EXPECT_EQ(dictionary["NSFileOwnerAccountID"].integer(), 501);
  EXPECT_EQ(dictionary["NSFileGroupOwnerAccountID"].integer(), 20);
  EXPECT_EQ(dictionary["NSFilePosixPermissions"].integer(), 0644);
  EXPECT_DOUBLE_EQ(dictionary["NSFileModificationDate"].secondsSince2001().value(), 1.5);
}
