#include <gtest/gtest.h>

#include "general/foundation/files/FileAttributes.h"

using namespace foundation;

TEST(FileAttributes, ComeFromAnEntry) {
  const auto attributes = FileAttributes::fromEntry(PropertyList::dictionary(
      {{"NSFileOwnerAccountID", 501}, {"NSFileGroupOwnerAccountID", 80}, {"NSFilePosixPermissions", 04755}}));
  EXPECT_EQ(attributes, (FileAttributes{.owner = 501, .group = 80, .permissions = 04755}));
}

TEST(FileAttributes, WhatIsMissingOrNoNumberStaysAbsent) {
  EXPECT_EQ(FileAttributes::fromEntry(PropertyList()), FileAttributes{});
  EXPECT_EQ(FileAttributes::fromEntry(PropertyList::dictionary({{"NSFileOwnerAccountID", "501"}})), FileAttributes{});
}

TEST(FileAttributes, NegativeAccountsAreThoseOfTheSystem) {
  EXPECT_EQ(FileAttributes::fromEntry(PropertyList::dictionary({{"NSFileOwnerAccountID", -2}})).owner, 4294967294U);
}

TEST(FileAttributes, PermissionsAreTheLowTwelveBits) {
  EXPECT_EQ(FileAttributes::fromEntry(PropertyList::dictionary({{"NSFilePosixPermissions", 0100644}})).permissions,
            0644U);
}

TEST(FileAttributes, TypesHaveThePlatformsNames) {
  EXPECT_EQ(fileTypeName(FileType::Regular), "NSFileTypeRegular");
  EXPECT_EQ(fileTypeName(FileType::Directory), "NSFileTypeDirectory");
  EXPECT_EQ(fileTypeName(FileType::SymbolicLink), "NSFileTypeSymbolicLink");
  EXPECT_EQ(fileTypeName(FileType::CharacterSpecial), "NSFileTypeCharacterSpecial");
  EXPECT_EQ(fileTypeName(FileType::BlockSpecial), "NSFileTypeBlockSpecial");
  EXPECT_EQ(fileTypeName(FileType::Socket), "NSFileTypeSocket");
  EXPECT_EQ(fileTypeName(FileType::Fifo), "NSFileTypeUnknown");
}

TEST(FileAttributes, AnItemsAttributesAreADictionaryForMessages) {
  ItemStatus item;
  item.type = FileType::Regular;
  item.size = 12;
  item.owner = 501;
  item.group = 20;
  item.permissions = 0644;
  item.modificationNanoseconds = 978'307'201'500'000'000;
  const PropertyList dictionary = item.dictionary();
  EXPECT_EQ(dictionary["NSFileType"].text(), "NSFileTypeRegular");
  EXPECT_EQ(dictionary["NSFileSize"].integer(), 12);
  EXPECT_EQ(dictionary["NSFileOwnerAccountID"].integer(), 501);
  EXPECT_EQ(dictionary["NSFileGroupOwnerAccountID"].integer(), 20);
  EXPECT_EQ(dictionary["NSFilePosixPermissions"].integer(), 0644);
  EXPECT_DOUBLE_EQ(dictionary["NSFileModificationDate"].secondsSince2001().value(), 1.5);
}
