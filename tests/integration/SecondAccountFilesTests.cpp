#include <csignal>

#include "tests/integration/ProductLife.h"

namespace tests {
namespace {

using support::Outcome;
using support::Snapshot;

/// What an ordinary user (501) puts in the places that installs, upgrades and removals use, where folders let everybody
/// (a sticky bit, as /tmp has it) or let this user.
class SecondAccountFiles : public ProductLife {
 protected:
  static constexpr const char* kCacheFolder = "/Library/Caches/com.corvane.installer";
  static constexpr const char* kReceipts = "/Library/Application Support/Corvane";
  static constexpr const char* kSecret = "/etc/secret";

  static support::RunOptions asUser() {
    support::RunOptions options;
    options.user = 501;
    options.group = 501;
    return options;
  }
  void beginWithSecrets() {
    beginAgain();
    root().writeFile(kSecret, "secret", 0600);
    root().makeDirectory("/Users/Shared", 01777);
    root().makeDirectory("/Users/Shared/mine", 0755, 501, 20);
    root().writeFile("/Users/Shared/mine/file", "mine", 0644, 501, 20);
    root().makeDirectory("/Library/Caches", 01777);
  }
  void doAsUser(const std::string& attack) {
    const Outcome outcome = root().shell(attack, asUser());
    ASSERT_TRUE(outcome.succeeded()) << attack << outcome.standardError;
  }
  /// What no run has to do with.
  Snapshot outside() {
    Snapshot all = root().snapshot("/etc");
    const Snapshot more = root().snapshot("/Users");
    all.insert(all.end(), more.begin(), more.end());
    return all;
  }
  Outcome upgrade() {
    deliverNewBundle();
    return install();
  }
  void expectUpgraded() {
    EXPECT_EQ(root().readFile("/Library/Guard/core"), "core, second edition");
    EXPECT_EQ(root().readFile(kConfiguration), "edited by the user");
    EXPECT_TRUE(root().exists("/opt/extra/new"));
    EXPECT_FALSE(root().exists("/opt/legacy/old"));
  }
  /// A first install makes no receipt and writes nowhere else while somebody's item is in the way.
  void expectNoReceiptUntilRemoved(const std::string& trap) {
    deliverBundle();
    const Snapshot before = outside();
    const Outcome refused = install();
    EXPECT_EQ(refused.exitCode, 1) << refused.description();
    EXPECT_TRUE(loggedBeginning(refused, "Error", "Error creating receipt directory, error: "))
        << refused.description();
    EXPECT_EQ(support::difference(outside(), before), "");
    EXPECT_FALSE(root().exists(kReceipt));
    ASSERT_TRUE(root().shell("rm -r '" + trap + "'").succeeded());
    EXPECT_EQ(install().exitCode, 0);
    EXPECT_TRUE(root().exists(kReceipt));
  }
};

TEST_F(SecondAccountFiles, WhoMadeTheFolderOfReceiptsFirstHasNothingOfHisRunByRoot) {
  const std::string evil =
      "mkdir -p \"$R/Guard/Installer.app/Contents/MacOS\"; F=\"$R/Guard/Installer.app/Contents/MacOS/"
      "InstallationDeployer\"; printf '#!/bin/sh\\ntouch /etc/was-here\\n' >\"$F\"; chmod 0755 \"$F\"";
  for (const std::string& trap :
       {evil, "R=/Users/Shared/bait; " + evil + "; ln -s $R '" + std::string(kReceipts) + "'",
        "mkdir \"$R\"; R=/Users/Shared/bait; " + evil + "; ln -s $R/Guard '" + std::string(kReceipts) + "/Guard'"}) {
    beginWithSecrets();
    root().makeDirectory("/Library/Application Support", 01777);
    doAsUser("R='" + std::string(kReceipts) + "'; " + trap);
    deliverBundle();
    const Snapshot before = outside();
    const Outcome refused = install();
    EXPECT_EQ(refused.exitCode, 1) << refused.description();
    EXPECT_TRUE(loggedBeginning(refused, "Error",
                                "Failed to launch receipt  at " + std::string(kReceiptEngine) +
                                    ". Others than root decide what lies at " + kReceipts))
        << refused.description();
    EXPECT_EQ(support::difference(outside(), before), "");
    EXPECT_FALSE(root().exists("/Library/Guard"));
    ASSERT_TRUE(root().shell("rm -r '" + std::string(kReceipts) + "'").succeeded());
    EXPECT_EQ(install().exitCode, 0);
    EXPECT_EQ(root().readFile("/Library/Guard/core"), "core 1");
    EXPECT_EQ(support::difference(outside(), before), "");
  }
}

TEST_F(SecondAccountFiles, NoReceiptIsWrittenWhereSomebodyElseCouldExchangeIt) {
  const std::string outsideOfIt = "/Users/Shared/mine";
  for (const std::string& trap : {std::string("mkdir \"$R\""), "ln -s " + outsideOfIt + " \"$R\"",
                                  "mkdir \"$R\"; ln -s " + outsideOfIt + " \"$R/Guard\""}) {
    beginWithSecrets();
    root().makeDirectory("/Library/Application Support", 01777);
    doAsUser("R='" + std::string(kReceipts) + "'; " + trap);
    expectNoReceiptUntilRemoved(kReceipts);
  }
}

TEST_F(SecondAccountFiles, LinksInThePlaceOfStagingAreNotWrittenThrough) {
  for (const char* trap : {"ln -s /Users/Shared/mine", "ln -s /etc", "touch", "mkfifo"}) {
    beginWithSecrets();
    root().makeDirectory(std::string(kReceipts) + "/Guard", 01777);
    doAsUser(std::string(trap) + " '" + kReceipts + "/Guard/temp'");
    expectNoReceiptUntilRemoved(std::string(kReceipts) + "/Guard/temp");
  }
}

TEST_F(SecondAccountFiles, WhatLiesInThePlaceOfTheCacheStopsNoUpgradeAndStays) {
  for (const char* trap : {"ln -s /Users/Shared/mine", "ln -s /etc", "mkdir", "touch", "mkfifo"}) {
    beginWithSecrets();
    installFirstVersion();
    doAsUser(std::string(trap) + " " + kCacheFolder);
    const Snapshot before = outside();
    const Outcome outcome = upgrade();
    EXPECT_EQ(outcome.exitCode, 0) << outcome.description();
    expectUpgraded();
    EXPECT_EQ(support::difference(outside(), before), "");
  }
}

TEST_F(SecondAccountFiles, AModifiableFileThatItsOwnerKeepsExchangingGivesAwayNoSecret) {
  beginWithSecrets();
  installFirstVersion();
  const Snapshot before = outside();
  // The folder of the product is this user's, so everything in it may be exchanged at any moment.
  auto exchanging = root().start({"/bin/sh", "-c",
                                  "cd /Library/Guard; echo begun; while :; do ln -s /etc/secret x; mv -f x guard.conf; "
                                  "mkfifo x; mv -f x guard.conf; echo mine >x; mv -f x guard.conf; done"},
                                 asUser());
  ASSERT_TRUE(exchanging.waitForStandardOutput("begun"));
  const Outcome upgraded = upgrade();
  EXPECT_TRUE(upgraded.exitCode == 0 || upgraded.exitCode == 1) << upgraded.description();
  const Outcome removed = removeProduct();
  EXPECT_TRUE(removed.exitCode == 0 || removed.exitCode == 1) << removed.description();
  exchanging.kill(SIGKILL);
  static_cast<void>(exchanging.wait());
  EXPECT_FALSE(root().shell("grep -rqs --devices=skip '^secret' /Library /opt", asUser()).succeeded());
  EXPECT_EQ(support::difference(outside(), before), "");
}

}  // namespace
}  // namespace tests
