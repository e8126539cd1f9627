#include <gtest/gtest.h>

#include <string>
#include <string_view>

#include "InstallationDeployer/InstallAction.h"
#include "InstallationDeployer/ManifestKeys.h"
#include "tests/support/PropertyLists.h"

namespace deployer {
namespace {

using Kind = InstallAction::Kind;

/// The rules of a component Core that is installed below /target.
class InstallActionTest : public ::testing::Test, protected tests::PropertyLists {
 protected:
  [[nodiscard]] InstallAction decide(const PropertyList& entry) const { return rules_.decide(FileEntry(entry)); }
  [[nodiscard]] static PropertyList file(std::string_view path, std::string_view checksum = "abc") {
    return entry(path, {{std::string(kManifestSHAChecksum), checksum}});
  }
  [[nodiscard]] static PropertyList modifiable(std::string_view path) {
    return file(path).with(kManifestIsModifiableFile, true);
  }

  InstallRules rules_{.component = "Core", .source = "/payload", .destination = "/target", .directoryAttributes = {}};
};

TEST_F(InstallActionTest, AFileComesFromThePayloadByItsChecksum) {
  const InstallAction action = decide(file("/opt/tool"));
  EXPECT_EQ(action.kind, Kind::PayloadFile);
  EXPECT_EQ(action.source, "/payload/Core/abc");
  EXPECT_EQ(action.destination, "/target/opt/tool");
  EXPECT_EQ(action.entry.path(), "/opt/tool");
}

TEST_F(InstallActionTest, AnExternalFileComesFromBesideThePayloadWhateverItsChecksum) {
  const InstallAction action = decide(file("/opt/tool").with(kManifestExternalSourcePath, "../tool"));
  EXPECT_EQ(action.kind, Kind::ExternalFile);
  EXPECT_EQ(action.source, "/tool");
  EXPECT_EQ(decide(external("/opt/tool", "/absolute/tool")).source, "/absolute/tool");
}

TEST_F(InstallActionTest, DirectoriesAreMadeAndExternalOnesRefilled) {
  EXPECT_EQ(decide(directory("/opt")).kind, Kind::Directory);
  EXPECT_EQ(decide(directory("/opt")).destination, "/target/opt");
  const InstallAction action = decide(externalDirectory("/opt", "content"));
  EXPECT_EQ(action.kind, Kind::ExternalDirectory);
  EXPECT_EQ(action.source, "/payload/content");
}

TEST_F(InstallActionTest, ALinkWaitsWhateverElseItIs) {
  rules_.keepsModifiableFiles = true;
  EXPECT_EQ(decide(link("/link", "text")).kind, Kind::Link);
  EXPECT_EQ(decide(link("/link", "text").with(kManifestIsDirectory, true)).kind, Kind::Link);
  EXPECT_EQ(decide(link("/link", "text").with(kManifestIsModifiableFile, true)).kind, Kind::Link);
  EXPECT_EQ(decide(link("../climbs", "text")).kind, Kind::Link) << "its path is looked at when it is made";
}

TEST_F(InstallActionTest, OnlyAnUpgradeKeepsModifiableFiles) {
  EXPECT_EQ(decide(modifiable("/settings")).kind, Kind::PayloadFile);
  rules_.keepsModifiableFiles = true;
  EXPECT_EQ(decide(modifiable("/settings")).kind, Kind::Keep);
  EXPECT_EQ(decide(file("/settings")).kind, Kind::PayloadFile);
}

TEST_F(InstallActionTest, InThePlaceOfAFileThatWaitsElsewhereNothingShowsBeforeItIsOnTheDisk) {
  rules_.owedFiles = {"/settings"};
  EXPECT_TRUE(decide(modifiable("/settings")).isFlushed);
  EXPECT_TRUE(decide(file("/settings")).isFlushed);
  EXPECT_FALSE(decide(modifiable("/others")).isFlushed);
}

TEST_F(InstallActionTest, WhatIsCopiedByItselfIsNeitherKeptNorALink) {
  rules_.keepsModifiableFiles = true;
  EXPECT_EQ(rules_.decideCopy(FileEntry(modifiable("/settings"))).kind, Kind::PayloadFile);
  EXPECT_EQ(rules_.decideCopy(FileEntry(file("/link").with(kManifestIsSymbolicLink, true))).kind, Kind::PayloadFile);
}

TEST_F(InstallActionTest, TheSystemFolderOfTheDestinationIsSkippedWhereNobodyMayInstallThere) {
  rules_.destination = "/";
  EXPECT_EQ(decide(file("/System/file")).kind, Kind::PayloadFile);
  rules_.skipsSystemFolder = true;
  EXPECT_EQ(decide(file("/System/file")).kind, Kind::Skip);
  EXPECT_EQ(decide(directory("System/folder")).kind, Kind::Skip);
  EXPECT_EQ(decide(file("/Systems/file")).kind, Kind::PayloadFile);
  rules_.destination = "/target";
  EXPECT_EQ(decide(file("/System/file")).kind, Kind::PayloadFile);
}

TEST_F(InstallActionTest, WhatCannotBeInstalledIsRefusedWithItsMessage) {
  const auto refusal = [this](const PropertyList& entry) {
    const InstallAction action = decide(entry);
    EXPECT_EQ(action.kind, Kind::Refuse);
    return action.refusal;
  };
  EXPECT_EQ(refusal(file("/opt/../tool")), "A file of component Core has no usable path: /opt/../tool");
  EXPECT_EQ(refusal({}), "A file of component Core has no usable path: (null)");
  EXPECT_EQ(refusal(externalDirectory("/", "/content")), "The root of component Core cannot be emptied for /content");
  EXPECT_EQ(refusal(entry("/tool", {})), "path doesn't exist at (null)");
  EXPECT_EQ(refusal(file("/tool", "../abc")), "path doesn't exist at /payload/Core/../abc");
}

}  // namespace
}  // namespace deployer
