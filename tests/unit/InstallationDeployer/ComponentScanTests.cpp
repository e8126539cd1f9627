#include <gtest/gtest.h>

#include <filesystem>
#include <string>
#include <vector>

#include "InstallationDeployer/ComponentScan.h"
#include "InstallationDeployer/FileEntry.h"
#include "tests/support/CapturedLog.h"
#include "tests/support/TemporaryDirectory.h"

namespace deployer {
namespace {

using tests::CapturedLog;
using Names = std::vector<std::string>;

/// A staged tree and the manifest that its scan fills.
class ComponentScanTest : public ::testing::Test {
 protected:
  [[nodiscard]] ComponentScan::Options options(const std::string& prefix = "/") const {
    return {directory_.path(), prefix, std::nullopt, [](const std::string&) { return std::string("checksum"); }};
  }
  [[nodiscard]] bool scan(const std::string& prefix = "/") {
    return ComponentScan(options(prefix), manifest_, plists_).scan(directory_.path());
  }
  [[nodiscard]] Names listed() const {
    Names paths;
    for (const auto& element : manifest_.files) {
      paths.emplace_back(FileEntry(element).listedPath().text());
    }
    return paths;
  }
  [[nodiscard]] FileEntry entryAt(std::string_view path) const {
    for (const auto& element : manifest_.files) {
      if (FileEntry(element).path() == path) {
        return FileEntry(element);
      }
    }
    return FileEntry({});
  }

  tests::TemporaryDirectory directory_;
  MutableComponentManifest manifest_;
  ManifestCache plists_;
};

TEST_F(ComponentScanTest, ListsEachFolderBeforeWhatItHolds) {
  directory_.write("opt/folder/file", "abc");
  ASSERT_TRUE(scan());
  EXPECT_EQ(listed(), (Names{"/opt/folder", "/opt/folder/file"}));
  EXPECT_TRUE(entryAt("/opt/folder").isDirectory());
  EXPECT_EQ(entryAt("/opt/folder/file").checksum(), "checksum");
  EXPECT_EQ(manifest_.size, 3);
}

TEST_F(ComponentScanTest, WhatItListsCanBeInstalledAgain) {
  directory_.write("file", "abc");
  std::filesystem::create_symlink("file", directory_.path("link"));
  ASSERT_TRUE(scan("/Library/Thing"));
  EXPECT_EQ(listed(), (Names{"/Library/Thing", "/Library/Thing/file", "/Library/Thing/link"}));
  EXPECT_EQ(entryAt("/Library/Thing/link").linkTarget(), "file");
  EXPECT_TRUE(entryAt("/Library/Thing/link").isSymbolicLink());
  EXPECT_FALSE(entryAt("/Library/Thing/link").checksum());
  for (const auto& element : manifest_.files) {
    EXPECT_TRUE(FileEntry(element).installedPath());
    EXPECT_TRUE(FileEntry(element).attributes().permissions);
  }
}

TEST_F(ComponentScanTest, FailsAtAFolderThatIsNotThere) {
  CapturedLog log;
  ComponentScan scan(options(), manifest_, plists_);
  EXPECT_FALSE(scan.scan(directory_.path("missing")));
  EXPECT_TRUE(scan.failed());
  EXPECT_TRUE(manifest_.files.empty());
}

TEST_F(ComponentScanTest, GoesPastAFolderThatCannotBeListedAndSaysSo) {
  CapturedLog log;
  const std::string file = directory_.write("file", "abc");
  ComponentScan::Options fileAsRoot = options("/opt/x");
  fileAsRoot.rootDirectory = file;
  ComponentScan scan(fileAsRoot, manifest_, plists_);
  EXPECT_TRUE(scan.scan(file));
  EXPECT_TRUE(scan.failed());
  EXPECT_EQ(listed(), Names{"/opt/x"});
}

TEST_F(ComponentScanTest, FindsServicesWhereTheSystemLooksForThem) {
  CapturedLog log;
  directory_.write("Library/LaunchDaemons/svcd.plist", "");
  directory_.write("Library/LaunchDaemons/deeper/none.plist", "");
  directory_.write("Library/LaunchAgents/agent.plist", "");
  ASSERT_TRUE(scan());
  ASSERT_EQ(manifest_.launchDaemons.size(), 1U);
  EXPECT_EQ(manifest_.launchDaemons.front().text(), "svcd");
  ASSERT_EQ(manifest_.launchAgents.size(), 1U);
  EXPECT_EQ(manifest_.launchAgents.front().text(), "agent");
}

TEST_F(ComponentScanTest, ThePlistOutsideTheTreeTellsWhatAScanCannotKnow) {
  CapturedLog log;
  tests::TemporaryDirectory outside;
  directory_.write("opt/settings", "abc");
  ComponentScan::Options withPlist = options();
  withPlist.plistPath =
      outside.write("authoring.plist",
                    "<plist version=\"1.0\"><dict><key>ListOfModifiableFiles</key><array><string>/opt/settings</string>"
                    "</array></dict></plist>");
  ASSERT_TRUE(ComponentScan(withPlist, manifest_, plists_).scan(directory_.path()));
  EXPECT_TRUE(entryAt("/opt/settings").isModifiable());
}

}  // namespace
}  // namespace deployer
