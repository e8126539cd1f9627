#include <gtest/gtest.h>

#include "general/foundation/files/ItemStatus.h"

using namespace foundation;

TEST(ItemStatus, TypesHaveThePlatformsNames) {
  EXPECT_EQ(fileTypeName(FileType::Regular), "NSFileTypeRegular");
  EXPECT_EQ(fileTypeName(FileType::Directory), "NSFileTypeDirectory");
  EXPECT_EQ(fileTypeName(FileType::SymbolicLink), "NSFileTypeSymbolicLink");
  EXPECT_EQ(fileTypeName(FileType::CharacterSpecial), "NSFileTypeCharacterSpecial");
  EXPECT_EQ(fileTypeName(FileType::BlockSpecial), "NSFileTypeBlockSpecial");
  EXPECT_EQ(fileTypeName(FileType::Socket), "NSFileTypeSocket");
  EXPECT_EQ(fileTypeName(FileType::Fifo), "NSFileTypeUnknown");
}
