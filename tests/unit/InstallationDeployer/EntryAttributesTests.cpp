#include <gtest/gtest.h>

#include "InstallationDeployer/EntryAttributes.h"

using namespace deployer;
using foundation::FileAttributes;
using foundation::FileType;
using foundation::ItemStatus;
using foundation::PropertyList;

TEST(EntryAttributes, ComeFromAnEntry) {
  const auto attributes = attributesFromEntry(PropertyList::dictionary(
      {{"NSFileOwnerAccountID", 501}, {"NSFileGroupOwnerAccountID", 80}, {"NSFilePosixPermissions", 04755}}));
  EXPECT_EQ(attributes, (FileAttributes{.owner = 501, .group = 80, .permissions = 04755}));
}

TEST(EntryAttributes, WhatIsMissingOrNoNumberStaysAbsent) {
  EXPECT_EQ(attributesFromEntry(PropertyList()), FileAttributes{});
  EXPECT_EQ(attributesFromEntry(PropertyList::dictionary({{"NSFileOwnerAccountID", "501"}})), FileAttributes{});
}

TEST(EntryAttributes, NegativeAccountsAreThoseOfTheSystem) {
  EXPECT_EQ(attributesFromEntry(PropertyList::dictionary({{"NSFileOwnerAccountID", -2}})).owner, 4294967294U);
}

TEST(EntryAttributes, PermissionsAreTheLowTwelveBits) {
  EXPECT_EQ(attributesFromEntry(PropertyList::dictionary({{"NSFilePosixPermissions", 0100644}})).permissions, 0644U);
}

TEST(EntryAttributes, AnItemsAttributesAreADictionaryForMessages) {
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
