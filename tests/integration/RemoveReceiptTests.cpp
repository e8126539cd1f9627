#include <gtest/gtest.h>

#include <algorithm>
#include <string>
#include <vector>

#include "tests/integration/StepInRoot.h"
#include "tests/support/KilledRun.h"

namespace {

using support::KilledRun;
using support::KillMoment;
using support::Outcome;
using support::Snapshot;

const std::string kLocation = "/Library/Application Support/Corvane";
const std::string kFolder = kLocation + "/Guard";
const std::string kReceipt = kFolder + "/Installer.app";
const std::string kAside = kLocation + "/.com.corvane.installer.4000000.0123456789abcdef0123456789abcdef";
const std::string kSucceeded = "success=1 state=0 published=\n";
const std::string kFailed = "success=0 state=1 published=\n";

class RemoveReceipt : public tests::StepInRoot {
 protected:
  void prepare() override {
    StepInRoot::prepare();
    makeReceipt();
  }
  void makeReceipt() {
    root().writeFile(kReceipt + "/Contents/MacOS/InstallationDeployer", "engine", 0755);
    root().writeFile(kReceipt + "/Contents/Install/Manifests/Index.plist", "index");
    root().writeFile(kFolder + "/more/file", "x");
  }
  Outcome removeReceipt(const std::vector<std::string>& more = {}) {
    std::vector<std::string> arguments{kDriver, "remove-receipt", kReceipt, kProduct};
    arguments.insert(arguments.end(), more.begin(), more.end());
    return root().run(arguments);
  }
};

TEST_F(RemoveReceipt, TheLastReceiptGoesWithTheReceiptLocation) {
  const Outcome outcome = removeReceipt();
  EXPECT_EQ(outcome.standardOutput, kSucceeded) << outcome.standardError;
  EXPECT_FALSE(root().exists(kLocation));
  EXPECT_TRUE(root().exists("/Library/Application Support"));
  EXPECT_FALSE(loggedAnything(outcome, "Error"));
}

TEST_F(RemoveReceipt, ALocationThatHoldsNothingButWhatABrowserLeftGoesToo) {
  root().writeFile(kLocation + "/.DS_Store", "x");
  EXPECT_EQ(removeReceipt().standardOutput, kSucceeded);
  EXPECT_FALSE(root().exists(kLocation));
}

TEST_F(RemoveReceipt, OneOtherReceiptKeepsTheLocation) {
  root().writeFile(kLocation + "/Shield/Installer.app/Contents/Info.plist", "other");
  EXPECT_EQ(removeReceipt().standardOutput, kSucceeded);
  EXPECT_FALSE(root().exists(kFolder));
  EXPECT_EQ(root().readFile(kLocation + "/Shield/Installer.app/Contents/Info.plist"), "other");
}

TEST_F(RemoveReceipt, OtherReceiptsAndWhatABrowserLeftKeepTheLocation) {
  root().writeFile(kLocation + "/.DS_Store", "x");
  root().writeFile(kLocation + "/Shield/Installer.app/Contents/Info.plist", "other");
  EXPECT_EQ(removeReceipt().standardOutput, kSucceeded);
  EXPECT_FALSE(root().exists(kFolder));
  EXPECT_TRUE(root().exists(kLocation + "/.DS_Store"));
  EXPECT_TRUE(root().exists(kLocation + "/Shield"));
}

TEST_F(RemoveReceipt, WhatAKilledRunPutAsideIsSweptAndKeepsNothing) {
  root().writeFile(kAside + "/Installer.app/Contents/Info.plist", "put aside");
  EXPECT_EQ(removeReceipt().standardOutput, kSucceeded);
  EXPECT_FALSE(root().exists(kLocation));
}

TEST_F(RemoveReceipt, WhatALivingRunPutAsideCountsAsNothing) {
  // Process 1 lives in every root.
  const std::string aside = kLocation + "/.com.corvane.installer.1.0123456789abcdef0123456789abcdef";
  root().writeFile(aside + "/Installer.app/Contents/Info.plist", "put aside");
  root().writeFile(kLocation + "/Shield/Installer.app/Contents/Info.plist", "other");
  EXPECT_EQ(removeReceipt().standardOutput, kSucceeded);
  EXPECT_TRUE(root().exists(aside));
  ASSERT_TRUE(root().shell("rm -r '" + kLocation + "/Shield'").succeeded());
  makeReceipt();
  EXPECT_EQ(removeReceipt().standardOutput, kSucceeded);
  EXPECT_FALSE(root().exists(kLocation));
}

TEST_F(RemoveReceipt, OutsideTheReceiptLocationNothingIsTouched) {
  const Snapshot before = root().snapshot(kLocation);
  const Outcome outcome = root().run({kDriver, "remove-receipt", kBundle, kProduct});
  EXPECT_EQ(outcome.standardOutput, kFailed);
  EXPECT_EQ(logged(outcome, "Error",
                   "QVNRemoveReceiptStrategy must run from the receipt location.\n\tCurrently running from: " +
                       std::string(kBundle)),
            1);
  EXPECT_EQ(root().snapshot(kLocation), before);
}

TEST_F(RemoveReceipt, AfterAnEarlierFailureNothingIsTouched) {
  const Snapshot before = root().snapshot(kLocation);
  const Outcome outcome = removeReceipt({"--failed"});
  EXPECT_EQ(outcome.standardOutput, "success=0 state=0 published=\n");
  EXPECT_EQ(root().snapshot(kLocation), before);
}

TEST_F(RemoveReceipt, AReceiptThatIsALinkGoesAndWhatItLeadsToStays) {
  root().writeFile("/Users/keep/file", "kept");
  ASSERT_TRUE(root().shell("rm -r '" + kFolder + "'").succeeded());
  root().makeLink(kFolder, "/Users/keep");
  EXPECT_EQ(removeReceipt().standardOutput, kSucceeded);
  EXPECT_EQ(root().readFile("/Users/keep/file"), "kept");
  EXPECT_FALSE(root().exists(kLocation));
}

/// A root that has to obey the permissions of folders, so that something can go wrong for it.
class RemoveStuckReceipt : public RemoveReceipt {
 protected:
  Outcome expectFailureWithStuck(const std::string& folder) {
    EXPECT_TRUE(root().shell("chown 501 '" + folder + "' && chmod 555 '" + folder + "'").succeeded());
    const std::string setpriv = "/usr/bin/setpriv";
    if (!root().exists(setpriv)) {
      root().copyIn(setpriv, setpriv);
    }
    Outcome outcome = root().run({setpriv, "--bounding-set=-dac_override,-dac_read_search", "--", kDriver,
                                  "remove-receipt", kReceipt, kProduct});
    EXPECT_EQ(outcome.standardOutput, kFailed);
    EXPECT_TRUE(
        loggedBeginning(outcome, "Error", "Unable to remove receipt at " + kFolder + "\n\terror: Error Domain="))
        << outcome.standardError;
    return outcome;
  }
};

TEST_F(RemoveStuckReceipt, AReceiptThatCannotBePutAsideStaysWholeAndFailsTheStep) {
  const Snapshot before = root().snapshot(kFolder);
  static_cast<void>(expectFailureWithStuck(kLocation));
  EXPECT_EQ(root().snapshot(kFolder), before);
}

TEST_F(RemoveStuckReceipt, AReceiptThatCannotBeRemovedFailsTheStepAndIsNamedWhereItIsThen) {
  const Outcome outcome = expectFailureWithStuck(kReceipt + "/Contents/MacOS");
  EXPECT_FALSE(root().exists(kFolder));
  const std::string left = "What is left of the receipt lies at " + kLocation + "/.com.corvane.installer.";
  EXPECT_TRUE(loggedBeginning(outcome, "Error", left)) << outcome.standardError;
}

TEST_F(RemoveStuckReceipt, AReceiptStaysWhileNobodyCanTellWhetherOthersLieBesideIt) {
  root().writeFile(kLocation + "/Shield/Installer.app/Contents/Info.plist", "other");
  const Snapshot before = root().snapshot(kReceipt);
  // Whoever may not list the folder may still rename what is in it.
  ASSERT_TRUE(root().shell("chmod 333 '" + kLocation + "'").succeeded());
  static_cast<void>(expectFailureWithStuck(kFolder + "/more"));
  EXPECT_EQ(root().readFile(kLocation + "/Shield/Installer.app/Contents/Info.plist"), "other");
  EXPECT_EQ(root().snapshot(kReceipt), before);
}

TEST_F(RemoveReceipt, KilledAtAnyChangeTheReceiptIsWholeOrGoneAndTheNextReceiptSweepsWhatIsLeft) {
  if (const auto reason = KilledRun::whyImpossible()) {
    GTEST_SKIP() << *reason;
  }
  const Snapshot whole = root().snapshot(kFolder);
  KillMoment moment;
  moment.calls = KilledRun::nameAndAttributeChanges();
  bool sawLeftovers = false;
  for (moment.number = 1;; ++moment.number) {
    SCOPED_TRACE("killed at change " + std::to_string(moment.number));
    ASSERT_TRUE(root().shell("rm -rf '" + kLocation + "'").succeeded());
    makeReceipt();
    root().writeFile(kLocation + "/Shield/Installer.app/Contents/Info.plist", "other");
    if (!KilledRun::run(root(), {kDriver, "remove-receipt", kReceipt, kProduct}, moment).reached) {
      break;
    }
    const Snapshot left = root().snapshot(kFolder);
    ASSERT_TRUE(left.empty() || left == whole) << support::listing(left);
    sawLeftovers = sawLeftovers || root().snapshot(kLocation).size() > 5 + left.size();
    makeReceipt();
    ASSERT_EQ(removeReceipt().standardOutput, kSucceeded);
    EXPECT_EQ(root().snapshot(kLocation).size(), 5U) << support::listing(root().snapshot(kLocation));
  }
  EXPECT_TRUE(sawLeftovers);
  EXPECT_GT(moment.number, 5U);
}

}  // namespace
