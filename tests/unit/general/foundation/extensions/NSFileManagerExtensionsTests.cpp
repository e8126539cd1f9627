#include <gtest/gtest.h>

#include <map>
#include <optional>
#include <string>

#include "general/foundation/extensions/NSFileManagerExtensions.h"
#include "tests/unit/general/foundation/files/FileTest.h"

using namespace foundation;

TEST(NSFileManagerExtensions, AnErrorWithoutAPathHasThreeFactsAndWithAPathFour) {
  const Error without = NSFileManagerExtensions::errorWithMessage("broken", std::nullopt, 12);
  EXPECT_EQ(without.domain, "NSFileManager+Extensions");
  EXPECT_EQ(without.code, 12);
  EXPECT_EQ(without.userInfo(), (std::map<std::string, std::string, std::less<>>{{"NSLocalizedDescription", "broken"},
                                                                                 {"NSLocalizedFailureReason", "broken"},
                                                                                 {"NSUnderlyingError", "broken"}}));
  const Error with = NSFileManagerExtensions::errorWithMessage("broken", "/a", 12);
  EXPECT_EQ(with.userInfo().size(), 4U);
  EXPECT_EQ(with.userInfo().at("NSFilePath"), "/a");
}

using FileManagerExtensions = tests::FileTest;

TEST_F(FileManagerExtensions, CreatesADirectoryWithAllItsParents) {
  const FileAttributes attributes{.owner = 501, .group = 80, .permissions = 0750};
  ASSERT_TRUE(NSFileManagerExtensions::createDeepDirectoryAtPath(path("a/b"), attributes));
  EXPECT_TRUE(NSFileManagerExtensions::createDeepDirectoryAtPath(path("a/b"), attributes));
  EXPECT_EQ(modeOf(path("a")), 0750U);
  expectOwner(path("a/b"), 501, 80);
}

TEST_F(FileManagerExtensions, CopyingOntoAnExistingFileReplacesItAndGivesItTheSourcesAttributes) {
  const tests::Umask umask(0077);
  box_.write("source", "new");
  box_.write("destination", "old and longer");
  ASSERT_TRUE(files::setAttributes(
      {.owner = 501, .group = 80, .permissions = 04751, .modificationNanoseconds = 1'234'567'890'123'456'789},
      path("source")));
  ASSERT_TRUE(NSFileManagerExtensions::copyAndOverwriteItemAtPath(path("source"), path("destination")));
  EXPECT_EQ(files::readText(path("destination")).value(), "new");
  EXPECT_EQ(modeOf(path("destination")), 04751U);
  expectOwner(path("destination"), 501, 80);
  EXPECT_EQ(files::attributesOfItem(path("destination"))->modificationNanoseconds, 1'234'567'890'123'456'789);
  EXPECT_EQ(files::readText(path("source")).value(), "new");
}

TEST_F(FileManagerExtensions, ALinkAsSourceIsFollowedForItsContent) {
  box_.write("target", "content");
  ASSERT_EQ(chmod(path("target").c_str(), 04750), 0);
  ASSERT_EQ(symlink("target", path("link").c_str()), 0);
  ASSERT_EQ(lchown(path("link").c_str(), 501, 20), 0);
  ASSERT_TRUE(NSFileManagerExtensions::copyAndOverwriteItemAtPath(path("link"), path("copy")));
  EXPECT_EQ(files::attributesOfItem(path("copy"))->type, FileType::Regular);
  EXPECT_EQ(files::readText(path("copy")).value(), "content");
  EXPECT_EQ(modeOf(path("copy")), 0750U);
  expectOwner(path("copy"), 501, 20);
}

TEST_F(FileManagerExtensions, WhatIsNoRegularFileIsNotCopied) {
  box_.makeDirectory("folder");
  ASSERT_EQ(mkfifo(path("fifo").c_str(), 0600), 0);
  ASSERT_EQ(symlink("loop", path("loop").c_str()), 0);
  for (const char* name : {"folder", "fifo", "loop"}) {
    EXPECT_EQ(NSFileManagerExtensions::copyAndOverwriteItemAtPath(path(name), path("copy")).error().code, 256) << name;
  }
  EXPECT_EQ(NSFileManagerExtensions::copyAndOverwriteItemAtPath(path("missing"), path("copy")).error().code, 260);
  EXPECT_FALSE(files::exists(path("copy")));
}

TEST_F(FileManagerExtensions, CopyingNeedsTheDestinationsParent) {
  box_.write("source", "x");
  EXPECT_EQ(NSFileManagerExtensions::copyAndOverwriteItemAtPath(path("source"), path("no/copy")).error().code, 4);
  box_.makeDirectory("folder");
  EXPECT_EQ(NSFileManagerExtensions::copyAndOverwriteItemAtPath(path("source"), path("folder")).error().code, 512);
}
