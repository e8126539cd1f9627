#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>
#include <string>

#include "InstallationDeployer/receipt/ReceiptComparison.h"
#include "tests/support/CapturedLog.h"
#include "tests/support/TemporaryDirectory.h"

namespace deployer {
namespace {

class Comparison : public ::testing::Test {
 protected:
  void writeBoth(const std::string& file, const std::string& content) {
    directory_.write("bundle/" + file, content);
    directory_.write("receipt/" + file, content);
  }
  /// What was said to be missing, and why.
  [[nodiscard]] std::string complaint() const {
    const auto errors = log_.texts("Error");
    return errors.empty() ? "" : errors.back();
  }
  void expectComplaint(const std::string& file, const std::string& reason) const {
    EXPECT_TRUE(complaint().starts_with("Receipt incomplete. It does not hold the bundle's " + file + ": " + reason))
        << complaint();
  }

  tests::TemporaryDirectory directory_;
  tests::CapturedLog log_;
  ReceiptComparison comparison_{directory_.path("bundle"), directory_.path("receipt")};
};

TEST_F(Comparison, FilesWithTheSameBytesAreTheSame) {
  writeBoth("Contents/file", std::string(300000, 'x'));
  writeBoth("empty", "");
  EXPECT_TRUE(comparison_.isSame("Contents/file"));
  EXPECT_TRUE(comparison_.isSame("empty"));
  EXPECT_EQ(complaint(), "");
}

TEST_F(Comparison, OtherOrFewerBytesAreADifference) {
  writeBoth("file", "content");
  for (const char* const copy : {"conTent", "conten", "content.", ""}) {
    directory_.write("receipt/file", copy);
    EXPECT_FALSE(comparison_.isSame("file")) << copy;
    expectComplaint("file", "The copy differs.");
  }
}

TEST_F(Comparison, AFileThatIsMissingOnEitherSideIsADifference) {
  directory_.makeDirectory("receipt");
  directory_.write("bundle/file", "x");
  EXPECT_FALSE(comparison_.isSame("file"));
  expectComplaint("file", "Error Domain=NSCocoaErrorDomain Code=260 ");
  directory_.write("receipt/only", "x");
  EXPECT_FALSE(comparison_.isSame("only"));
}

TEST_F(Comparison, AFileThatTheBundleNeedNotHaveIsComparedWhereItHasIt) {
  directory_.write("receipt/only", "x");
  EXPECT_TRUE(comparison_.isSameIfPresent("only"));
  EXPECT_TRUE(comparison_.isSameIfPresent("neither"));
  EXPECT_EQ(complaint(), "");
  directory_.write("bundle/only", "y");
  EXPECT_FALSE(comparison_.isSameIfPresent("only"));
  expectComplaint("only", "The copy differs.");
}

TEST_F(Comparison, AFolderInTheFilesPlaceIsNoFileThatTheBundleHas) {
  directory_.makeDirectory("bundle/Installer");
  EXPECT_TRUE(comparison_.isSameIfPresent("Installer"));
  EXPECT_FALSE(comparison_.isSame("Installer"));
}

TEST_F(Comparison, WhatCannotBeReadIsADifference) {
  writeBoth("file", "x");
  std::filesystem::remove(directory_.path("bundle/file"));
  ASSERT_EQ(mkfifo(directory_.path("bundle/file").c_str(), 0644), 0);
  EXPECT_FALSE(comparison_.isSameIfPresent("file"));
  expectComplaint("file", "Error Domain=");
}

TEST_F(Comparison, AFolderIsHeldWhenItsFilesAreThereWithTheirSizes) {
  writeBoth("Root/Core/abc", "payload");
  writeBoth("Root/Core/def", "");
  directory_.write("receipt/Root/Core/more", "x");
  EXPECT_TRUE(comparison_.holdsFolder("Root/Core"));
  EXPECT_TRUE(comparison_.holdsFolder("Root/None"));
  directory_.write("receipt/Root/Core/abc", "payloa");
  EXPECT_FALSE(comparison_.holdsFolder("Root/Core"));
  expectComplaint("Root/Core/abc", "The copy has another size.");
  std::filesystem::remove(directory_.path("receipt/Root/Core/abc"));
  EXPECT_FALSE(comparison_.holdsFolder("Root/Core"));
  expectComplaint("Root/Core/abc", "Error Domain=NSCocoaErrorDomain Code=260 ");
}

TEST_F(Comparison, LinksOfTheBundleAreNoFilesThatAReceiptHolds) {
  writeBoth("Root/Core/abc", "payload");
  ASSERT_EQ(symlink("abc", directory_.path("bundle/Root/Core/link").c_str()), 0);
  EXPECT_TRUE(comparison_.holdsFolder("Root/Core"));
}

TEST_F(Comparison, FoldersInAFolderAreHeldWithWhatIsInThem) {
  writeBoth("Root/Core/abc", "payload");
  directory_.makeDirectory("bundle/Root/Empty");
  EXPECT_FALSE(comparison_.holdsFolder("Root"));
  expectComplaint("Root/Empty", "Error Domain=NSCocoaErrorDomain Code=260 ");
  directory_.write("receipt/Root/Empty", "");
  EXPECT_FALSE(comparison_.holdsFolder("Root"));
  expectComplaint("Root/Empty", "The copy is no folder.");
  std::filesystem::remove(directory_.path("receipt/Root/Empty"));
  directory_.makeDirectory("receipt/Root/Empty");
  EXPECT_TRUE(comparison_.holdsFolder("Root"));
  std::filesystem::remove(directory_.path("receipt/Root/Core/abc"));
  EXPECT_FALSE(comparison_.holdsFolder("Root"));
  expectComplaint("Root/Core/abc", "Error Domain=NSCocoaErrorDomain Code=260 ");
}

TEST_F(Comparison, AFolderItselfIsHeldWithoutWhatIsInIt) {
  writeBoth("file", "x");
  directory_.write("bundle/Root/Core/abc", "payload");
  EXPECT_TRUE(comparison_.holdsFolderItself("None"));
  EXPECT_FALSE(comparison_.holdsFolderItself("Root"));
  expectComplaint("Root", "Error Domain=NSCocoaErrorDomain Code=260 ");
  directory_.makeDirectory("receipt/Root");
  EXPECT_TRUE(comparison_.holdsFolderItself("Root"));
}

TEST_F(Comparison, AFolderThatCannotBeListedIsADifference) {
  directory_.write("bundle/Root/Core", "a file where a folder should be");
  EXPECT_FALSE(comparison_.holdsFolder("Root/Core"));
  expectComplaint("Root/Core", "Error Domain=");
}

}  // namespace
}  // namespace deployer
