#include <gtest/gtest.h>

#include <csignal>
#include <string>
#include <vector>

#include "tests/integration/StepInRoot.h"
#include "tests/support/PropertyLists.h"

namespace {

using support::Outcome;
using namespace std::string_literals;
using support::Snapshot;

const std::string kFolder = "/Library/Guard";
const std::string kCacheFolder = "/Library/Caches/com.corvane.installer";
const std::string kCache = kCacheFolder + "/tmp";
const std::string kSuccess = "success=1 state=0 published=\n";
const std::string kFailure = "success=0 state=1 published=\n";

/// Modifiable files that the manifest of the component Core lists.
class ComponentCache : public tests::StepInRoot {
 protected:
  using PropertyList = foundation::PropertyList;

  static Keys modifiable() { return {{std::string(deployer::kManifestIsModifiableFile), true}}; }
  static PropertyList settings(const std::string& path) { return entry(path, modifiable()); }
  static PropertyList wildcard(const std::string& path) {
    return entry(path, joined(modifiable(), {{std::string(deployer::kManifestIsWildcardPath), true}}));
  }
  Outcome runStep(const std::string& step, Entries entries, const std::vector<std::string>& more = {"Core"}) {
    writeIndex({"Core"});
    writeComponent("Core", manifestOf(std::move(entries)));
    return root().run(command(step, more));
  }
  Outcome cache(Entries entries, const std::vector<std::string>& more = {"Core"}) {
    return runStep("cache", std::move(entries), more);
  }
  Outcome restore(Entries entries) { return runStep("restore", std::move(entries)); }
  support::SnapshotEntry item(const std::string& path) {
    const Snapshot snapshot = root().snapshot(path);
    return snapshot.empty() ? support::SnapshotEntry{} : snapshot.front();
  }
};

TEST_F(ComponentCache, CarriesAFileOverWithItsOwnerGroupAndMode) {
  root().writeFile(kFolder + "/settings", "edited", 0640, 501, 20);
  const Snapshot before = root().snapshot(kFolder);
  const Entries entries{settings(kFolder + "/settings")};
  const Outcome cached = cache(entries);
  EXPECT_EQ(cached.standardOutput, kSuccess) << cached.standardError;
  EXPECT_EQ(logged(cached, "Debug",
                   "QVNCacheComponentStrategy:\n\tsourceFilePath = /Library/Guard/settings\n\ttargetFilePath = " +
                       kCache + "/Library/Guard/settings"),
            1);
  EXPECT_EQ(root().readFile(kCache + "/Library/Guard/settings"), "edited");
  root().writeFile(kFolder + "/settings", "default", 0644);
  const Outcome restored = restore(entries);
  EXPECT_EQ(restored.standardOutput, kSuccess) << restored.standardError;
  EXPECT_EQ(logged(restored, "Debug",
                   "QVNRestoreCacheComponentStrategy:\n\tsourceFilePath = " + kCache +
                       "/Library/Guard/settings\n\ttargetFilePath = /Library/Guard/settings"),
            1);
  EXPECT_EQ(root().snapshot(kFolder), before);
  EXPECT_FALSE(root().exists(kCache));
  EXPECT_TRUE(root().exists(kCacheFolder));
}

TEST_F(ComponentCache, AFolderOfItThatIsThereButCannotBeListedIsNoEmptyOne) {
  root().writeFile(kCache + "/Library/Guard", "a file where a folder should be");
  const Outcome restored = restore({wildcard(kFolder + "/*.conf")});
  EXPECT_EQ(restored.standardOutput, kFailure) << restored.standardError;
  EXPECT_TRUE(loggedBeginning(
      restored, "Error",
      "QVNCacheComponentStrategy: Unable to get contents of " + kCache + "/Library/Guard. Error:Error Domain="))
      << restored.standardError;
}

TEST_F(ComponentCache, WhoseFolderCannotBeLookedAtIsNotTakenForSomebodyElses) {
  ASSERT_TRUE(root().shell("rm -rf /Library/Caches && ln -s Caches /Library/Caches").succeeded());
  const Outcome restored = restore({settings(kFolder + "/settings")});
  EXPECT_EQ(restored.standardOutput, kFailure) << restored.standardError;
  EXPECT_TRUE(
      loggedBeginning(restored, "Error", "QVNRestoreCacheComponentStrategy: Unable to restore file. Error Domain="))
      << restored.standardError;
}

TEST_F(ComponentCache, MakesFoldersOfRootAndAdmin) {
  root().writeFile(kFolder + "/settings", "edited", 0600, 501, 20);
  const Entries entries{settings(kFolder + "/settings")};
  ASSERT_EQ(cache(entries).standardOutput, kSuccess);
  for (const std::string& folder : {kCacheFolder, kCache, kCache + "/Library", kCache + "/Library/Guard"}) {
    const auto made = item(folder);
    EXPECT_EQ(made.type, 'd') << folder;
    EXPECT_EQ(made.mode, 0755U) << folder;
    EXPECT_EQ(made.user, 0U) << folder;
    EXPECT_EQ(made.group, 80U) << folder;
  }
  ASSERT_TRUE(root().shell("rm -r /Library/Guard").succeeded());
  ASSERT_EQ(restore(entries).standardOutput, kSuccess);
  EXPECT_EQ(item(kFolder).mode, 0755U);
  EXPECT_EQ(item(kFolder).group, 80U);
  EXPECT_EQ(item(kFolder + "/settings").user, 501U);
}

TEST_F(ComponentCache, TakesAnExternalSourceAndKeepsItUnderTheInstalledPath) {
  root().writeFile("/Users/Shared/licence", "of the administrator");
  const Entries entries{external(kFolder + "/licence", "/Users/Shared/licence", modifiable())};
  ASSERT_EQ(cache(entries).standardOutput, kSuccess);
  EXPECT_EQ(root().readFile(kCache + kFolder + "/licence"), "of the administrator");
}

TEST_F(ComponentCache, PassesOverFilesThatAreMissingOrNotModifiable) {
  root().writeFile(kFolder + "/program", "x");
  const Entries entries{entry(kFolder + "/program", attributes(0644)), settings(kFolder + "/missing")};
  EXPECT_EQ(cache(entries).standardOutput, kSuccess);
  EXPECT_FALSE(root().exists(kCache));
  root().writeFile(kFolder + "/missing", "default");
  EXPECT_EQ(restore(entries).standardOutput, kSuccess);
  EXPECT_EQ(root().readFile(kFolder + "/missing"), "default");
}

TEST_F(ComponentCache, KeepsNothingWhenTheProductIsRemovedForGood) {
  root().writeFile(kFolder + "/settings", "edited");
  EXPECT_EQ(cache({settings(kFolder + "/settings"), wildcard("/nowhere/*")}, {"--removal", "Core"}).standardOutput,
            kSuccess);
  EXPECT_FALSE(root().exists(kCache));
}

TEST_F(ComponentCache, AWildcardTakesWhatBeginsAndEndsSo) {
  for (const std::string name : {"a.conf", "b.txt", ".hidden.conf"}) {
    root().writeFile("/etc/x/" + name, name);
  }
  const Entries entries{wildcard("/etc/x/*.conf")};
  const Outcome cached = cache(entries);
  EXPECT_EQ(cached.standardOutput, kSuccess) << cached.standardError;
  EXPECT_EQ(logged(cached, "Debug",
                   "QVNCacheComponentStrategy: matchedFilePaths: (\n    /etc/x/.hidden.conf,\n    "
                   "/etc/x/a.conf\n)"),
            1)
      << cached.standardError;
  EXPECT_EQ(root().readFile(kCache + "/etc/x/a.conf"), "a.conf");
  EXPECT_EQ(root().readFile(kCache + "/etc/x/.hidden.conf"), ".hidden.conf");
  EXPECT_FALSE(root().exists(kCache + "/etc/x/b.txt"));
  root().writeFile("/etc/x/a.conf", "default");
  ASSERT_TRUE(root().shell("rm /etc/x/.hidden.conf").succeeded());
  EXPECT_EQ(restore(entries).standardOutput, kSuccess);
  EXPECT_EQ(root().readFile("/etc/x/a.conf"), "a.conf");
  EXPECT_EQ(root().readFile("/etc/x/.hidden.conf"), ".hidden.conf");
}

TEST_F(ComponentCache, TextBehindTheFirstAsteriskIsLiteralAndMayOverlap) {
  for (const std::string name : {"a1b*c", "a1b2c", "aba"}) {
    root().writeFile("/etc/x/" + name, name);
  }
  ASSERT_EQ(cache({wildcard("/etc/x/a*b*c")}).standardOutput, kSuccess);
  EXPECT_TRUE(root().exists(kCache + "/etc/x/a1b*c"));
  EXPECT_FALSE(root().exists(kCache + "/etc/x/a1b2c"));
  ASSERT_EQ(cache({wildcard("/etc/x/ab*ba")}).standardOutput, kSuccess);
  EXPECT_TRUE(root().exists(kCache + "/etc/x/aba"));
}

TEST_F(ComponentCache, AWildcardPathWithoutAsteriskIsThatPath) {
  root().writeFile("/etc/x/file", "x");
  const Outcome outcome = cache({wildcard("/etc/x/file")});
  EXPECT_EQ(outcome.standardOutput, kSuccess);
  EXPECT_EQ(logged(outcome, "Debug", "QVNCacheComponentStrategy: Cannot find wildcard from pathPattern: file"), 1);
  EXPECT_TRUE(root().exists(kCache + "/etc/x/file"));
  EXPECT_EQ(cache({wildcard("/etc/x/absent")}).standardOutput, kSuccess);
}

TEST_F(ComponentCache, AWildcardThatMatchesNothingFailsTheCachingButNotTheRestoring) {
  root().makeDirectory("/etc/x");
  const Entries entries{wildcard("/etc/x/*.conf")};
  const Outcome cached = cache(entries);
  EXPECT_EQ(cached.standardOutput, kFailure);
  EXPECT_EQ(logged(cached, "Error",
                   "QVNCacheComponentStrategy: Unable to find matched files from wildcarded path: '/etc/x/*.conf'"),
            1);
  const Outcome restored = restore(entries);
  EXPECT_EQ(restored.standardOutput, kSuccess);
  EXPECT_EQ(logged(restored, "Debug",
                   "QVNRestoreCacheComponentStrategy: Unable to find matched files from wildcarded path: '" + kCache +
                       "/etc/x/*.conf'"),
            1);
}

TEST_F(ComponentCache, AWildcardInAFolderThatIsMissingFailsTheCaching) {
  const Outcome outcome = cache({wildcard("/nowhere/*.conf")});
  EXPECT_EQ(outcome.standardOutput, kFailure);
  EXPECT_TRUE(
      loggedBeginning(outcome, "Error", "QVNCacheComponentStrategy: Unable to get contents of /nowhere. Error:"));
}

TEST_F(ComponentCache, AWildcardWithAnExternalSourceIsRefused) {
  const auto refused =
      entry(kFolder + "/x",
            joined(modifiable(), {{std::string(deployer::kManifestIsWildcardPath), true},
                                  {std::string(deployer::kManifestExternalSourcePath), "/Users/Shared/*.conf"}}));
  const Outcome outcome = cache({refused});
  EXPECT_EQ(outcome.standardOutput, kFailure);
  EXPECT_EQ(logged(outcome, "Error",
                   "QVNCacheComponentStrategy: Wildcard patterns do not support \"ExternalSourcePath\".\n\tFound in "
                   "component plist Core at list of files entry for /Library/Guard/x"),
            1);
}

TEST_F(ComponentCache, AFolderAmongTheMatchesFailsTheCaching) {
  root().makeDirectory("/etc/x/folder.conf");
  const Outcome outcome = cache({wildcard("/etc/x/*.conf")});
  EXPECT_EQ(outcome.standardOutput, kFailure);
  EXPECT_TRUE(loggedBeginning(outcome, "Error", "QVNCacheComponentStrategy: Unable to copy file. "));
}

TEST_F(ComponentCache, BeginsWithoutWhatAnEarlierRunLeft) {
  root().writeFile(kCache + "/Library/Guard/stale", "x");
  ASSERT_EQ(cache({settings(kFolder + "/settings")}).standardOutput, kSuccess);
  EXPECT_FALSE(root().exists(kCache));
}

TEST_F(ComponentCache, MakesNothingWhenNothingIsCached) {
  root().makeDirectory("/Library/Caches");
  const Snapshot before = root().snapshot("/Library/Caches");
  ASSERT_EQ(cache({settings(kFolder + "/missing"), entry(kFolder + "/program", attributes(0644))}).standardOutput,
            kSuccess);
  EXPECT_EQ(root().snapshot("/Library/Caches"), before);
}

TEST_F(ComponentCache, IsRemovedAloneAndNothingBesideIt) {
  root().writeFile(kFolder + "/settings", "edited");
  root().writeFile(kCacheFolder + "/of somebody", "x");
  const Entries entries{settings(kFolder + "/settings")};
  ASSERT_EQ(cache(entries).standardOutput, kSuccess);
  ASSERT_EQ(restore(entries).standardOutput, kSuccess);
  EXPECT_FALSE(root().exists(kCache));
  EXPECT_EQ(root().readFile(kCacheFolder + "/of somebody"), "x");
}

TEST_F(ComponentCache, TakesOverAFolderThatOthersCanChange) {
  root().writeFile(kFolder + "/settings", "edited", 0600);
  const Entries entries{settings(kFolder + "/settings")};
  const std::vector<std::string> preparations{"chown -R 501:20 " + kCacheFolder, "chmod 0777 " + kCacheFolder};
  for (const std::string& preparation : preparations) {
    ASSERT_TRUE(root().shell("rm -rf " + kCacheFolder).succeeded());
    root().writeFile(kCache + "/planted", "x");
    root().writeFile(kCacheFolder + "/kept", "x");
    ASSERT_TRUE(root().shell(preparation).succeeded());
    const Outcome outcome = cache(entries);
    EXPECT_EQ(outcome.standardOutput, kSuccess) << outcome.standardError;
    EXPECT_EQ(item(kCacheFolder).user, 0U) << preparation;
    EXPECT_EQ(item(kCacheFolder).mode, 0755U) << preparation;
    EXPECT_EQ(item(kCache).user, 0U) << preparation;
    EXPECT_FALSE(root().exists(kCache + "/planted"));
    EXPECT_TRUE(root().exists(kCacheFolder + "/kept"));
    EXPECT_EQ(root().readFile(kCache + kFolder + "/settings"), "edited");
  }
}

TEST_F(ComponentCache, FailsBesideAFileInTheFoldersPlace) {
  root().writeFile(kFolder + "/settings", "edited");
  root().writeFile(kCacheFolder, "of somebody");
  for (const Entries& entries : {Entries{settings(kFolder + "/settings")}, Entries{}}) {
    const Outcome outcome = cache(entries);
    EXPECT_EQ(outcome.standardOutput, kFailure);
    EXPECT_TRUE(loggedBeginning(outcome, "Error",
                                "QVNCacheComponentStrategy: Unable to cleanup temp file cache. Error Domain="))
        << outcome.standardError;
    EXPECT_EQ(root().readFile(kCacheFolder), "of somebody");
  }
}

TEST_F(ComponentCache, FailsBesideALinkOfAnotherUserInTheFoldersPlace) {
  root().writeFile(kFolder + "/settings", "edited");
  root().writeFile("/Users/outside/tmp/file", "x", 0644, 501, 20);
  const Snapshot outside = root().snapshot("/Users/outside");
  root().makeLink(kCacheFolder, "/Users/outside");
  ASSERT_TRUE(root().shell("chown -h 501 " + kCacheFolder).succeeded());
  const Outcome outcome = cache({settings(kFolder + "/settings")});
  EXPECT_EQ(outcome.standardOutput, kFailure);
  EXPECT_TRUE(
      loggedBeginning(outcome, "Error", "QVNCacheComponentStrategy: Unable to cleanup temp file cache. Error Domain="))
      << outcome.standardError;
  EXPECT_EQ(item(kCacheFolder).type, 'l');
  EXPECT_EQ(root().snapshot("/Users/outside"), outside);
}

TEST_F(ComponentCache, MayLieBehindALinkOfRoot) {
  root().writeFile(kFolder + "/settings", "edited");
  root().writeFile("/private/caches/tmp/stale", "x");
  root().makeLink(kCacheFolder, "/private/caches");
  const Entries entries{settings(kFolder + "/settings")};
  ASSERT_EQ(cache(entries).standardOutput, kSuccess);
  EXPECT_FALSE(root().exists("/private/caches/tmp/stale"));
  EXPECT_EQ(root().readFile("/private/caches/tmp" + kFolder + "/settings"), "edited");
  root().writeFile(kFolder + "/settings", "default");
  ASSERT_EQ(restore(entries).standardOutput, kSuccess);
  EXPECT_EQ(root().readFile(kFolder + "/settings"), "edited");
  EXPECT_TRUE(root().exists("/private/caches"));
}

TEST_F(ComponentCache, RestoresNothingFromAFolderThatOthersCanChange) {
  root().writeFile(kFolder + "/settings", "default");
  root().writeFile(kCache + kFolder + "/settings", "planted", 0644, 501, 20);
  ASSERT_TRUE(root().shell("chown -R 501 " + kCacheFolder).succeeded());
  const Outcome outcome = restore({settings(kFolder + "/settings")});
  EXPECT_EQ(outcome.standardOutput, kFailure);
  EXPECT_EQ(root().readFile(kFolder + "/settings"), "default");
}

TEST_F(ComponentCache, ALinkOfAnotherUserIsNotReadForThatUser) {
  root().writeFile("/etc/secret", "secret", 0600);
  root().makeDirectory("/Users/Shared/x", 0777, 501, 20);
  root().makeLink("/Users/Shared/x/a.conf", "/etc/secret");
  ASSERT_TRUE(root().shell("chown -h 501:20 /Users/Shared/x/a.conf").succeeded());
  const Outcome outcome = cache({wildcard("/Users/Shared/x/*.conf")});
  EXPECT_EQ(outcome.standardOutput, kFailure);
  EXPECT_TRUE(loggedBeginning(outcome, "Error", "QVNCacheComponentStrategy: Unable to copy file. "));
  EXPECT_FALSE(root().exists(kCache + "/Users/Shared/x/a.conf"));
}

TEST_F(ComponentCache, AFileThatItsOwnerKeepsExchangingNeverBecomesACopyOfWhatHeMustNotRead) {
  constexpr int kAttempts = 30;
  root().writeFile("/etc/secret", "secret", 0600);
  root().makeDirectory("/Users/Shared/x", 0755, 501, 20);
  support::RunOptions asOwner;
  asOwner.user = 501;
  asOwner.group = 20;
  auto exchanging =
      root().start({"/bin/sh", "-c",
                    "cd /Users/Shared/x; echo begun; while :; do ln -s /etc/secret n; mv -f n a.conf; mkfifo n; "
                    "mv -f n a.conf; echo mine >n; mv -f n a.conf; done"},
                   asOwner);
  ASSERT_TRUE(exchanging.waitForStandardOutput("begun"));
  const std::string copy = kCache + "/Users/Shared/x/a.conf";
  for (int attempt = 0; attempt < kAttempts; ++attempt) {
    const Outcome outcome = cache({settings("/Users/Shared/x/a.conf")});
    EXPECT_TRUE(outcome.standardOutput == kSuccess || outcome.standardOutput == kFailure) << outcome.description();
    EXPECT_TRUE(!root().exists(copy) || (item(copy).type == '-' && root().readFile(copy) == "mine\n"));
  }
  exchanging.kill(SIGKILL);
  static_cast<void>(exchanging.wait());
  EXPECT_EQ(root().readFile("/etc/secret"), "secret");
}

TEST_F(ComponentCache, ALinkOfRootGivesTheContentItLeadsTo) {
  root().writeFile("/etc/shared.conf", "shared", 0640);
  root().makeLink(kFolder + "/settings", "/etc/shared.conf");
  ASSERT_EQ(cache({settings(kFolder + "/settings")}).standardOutput, kSuccess);
  EXPECT_EQ(root().readFile(kCache + kFolder + "/settings"), "shared");
}

TEST_F(ComponentCache, ReplacesWhateverIsInTheFilesPlace) {
  root().writeFile(kFolder + "/settings", "edited");
  const Entries entries{settings(kFolder + "/settings")};
  ASSERT_EQ(cache(entries).standardOutput, kSuccess);
  root().writeFile("/etc/elsewhere", "x");
  ASSERT_TRUE(root().shell("rm /Library/Guard/settings && ln -s /etc/elsewhere /Library/Guard/settings").succeeded());
  ASSERT_EQ(restore(entries).standardOutput, kSuccess);
  EXPECT_EQ(item(kFolder + "/settings").type, '-');
  EXPECT_EQ(root().readFile("/etc/elsewhere"), "x");

  ASSERT_EQ(cache(entries).standardOutput, kSuccess);
  ASSERT_TRUE(root().shell("rm /Library/Guard/settings && mkdir -p /Library/Guard/settings/sub").succeeded());
  ASSERT_EQ(restore(entries).standardOutput, kSuccess);
  EXPECT_EQ(root().readFile(kFolder + "/settings"), "edited");
}

TEST_F(ComponentCache, IsNotWrittenThroughALinkOfAnotherUser) {
  root().writeFile(kFolder + "/sub/settings", "edited");
  const Entries entries{settings(kFolder + "/sub/settings")};
  ASSERT_EQ(cache(entries).standardOutput, kSuccess);
  root().writeFile("/Users/outside/settings", "x", 0644, 501, 20);
  const Snapshot outside = root().snapshot("/Users/outside");
  ASSERT_TRUE(root()
                  .shell("rm -r /Library/Guard/sub && ln -s /Users/outside /Library/Guard/sub && "
                         "chown -h 501 /Library/Guard/sub")
                  .succeeded());
  const Outcome outcome = restore(entries);
  EXPECT_EQ(outcome.standardOutput, kFailure);
  EXPECT_TRUE(loggedBeginning(outcome, "Error", "Unable to remove file. Error Domain=NSCocoaErrorDomain Code=513"));
  EXPECT_EQ(root().snapshot("/Users/outside"), outside);
}

TEST_F(ComponentCache, AnExternalSourceIsTakenAsItStands) {
  root().writeFile("/Users/Shared/licence", "of the administrator");
  ASSERT_EQ(cache({external(kFolder + "/licence", "/Users/../Users/Shared/licence", modifiable())}).standardOutput,
            kSuccess);
  EXPECT_EQ(root().readFile(kCache + kFolder + "/licence"), "of the administrator");
}

TEST_F(ComponentCache, AnEmptyExternalSourceIsNoneAndAMissingOneLeavesNothingToKeep) {
  root().writeFile(kFolder + "/licence", "of the administrator");
  ASSERT_EQ(cache({external(kFolder + "/licence", "/Users/Shared/missing", modifiable())}).standardOutput, kSuccess);
  EXPECT_FALSE(root().exists(kCache));
  ASSERT_EQ(cache({external(kFolder + "/licence", "", modifiable())}).standardOutput, kSuccess);
  EXPECT_EQ(root().readFile(kCache + kFolder + "/licence"), "of the administrator");
}

TEST_F(ComponentCache, WhatCannotBePutBackFailsTheRestoringAndStaysInIt) {
  root().writeFile(kFolder + "/settings", "default");
  root().makeDirectory(kCache + kFolder + "/settings");
  const Outcome outcome = restore({settings(kFolder + "/settings")});
  EXPECT_EQ(outcome.standardOutput, kFailure);
  EXPECT_TRUE(
      loggedBeginning(outcome, "Error", "QVNRestoreCacheComponentStrategy: Unable to restore file. Error Domain="))
      << outcome.standardError;
  EXPECT_TRUE(root().exists(kCache + kFolder + "/settings"));
  EXPECT_EQ(root().readFile(kFolder + "/settings"), "default");
}

TEST_F(ComponentCache, PathsThatWouldLeadOutOfItCannotBeCopied) {
  root().writeFile("/etc/secret", "x");
  for (const PropertyList& climbing :
       {settings("/Library/../etc/secret"), wildcard("/Library/../etc/sec*"),
        external("/", "/etc/secret", modifiable()), external("", "/etc/secret", modifiable()),
        external("/../out", "/etc/secret", modifiable())}) {
    const Outcome outcome = cache({climbing});
    EXPECT_EQ(outcome.standardOutput, kFailure);
    EXPECT_TRUE(loggedBeginning(outcome, "Error", "QVNCacheComponentStrategy: Unable to copy file. Error Domain="))
        << outcome.standardError;
    EXPECT_FALSE(root().exists(kCacheFolder));
  }
}

TEST_F(ComponentCache, NothingIsRestoredFromOutsideOfIt) {
  root().writeFile("/etc/secret", "x", 0600);
  root().makeDirectory(kCache);
  const Outcome outcome = restore({settings("/../../../../etc/secret")});
  EXPECT_EQ(outcome.standardOutput, kFailure);
  EXPECT_TRUE(
      loggedBeginning(outcome, "Error", "QVNRestoreCacheComponentStrategy: Unable to restore file. Error Domain="))
      << outcome.standardError;
}

TEST_F(ComponentCache, ModifiableEntriesAtWhoseOddPathsNothingLiesArePassedOver) {
  const Entries odd{settings(""), settings("/Library/../nowhere"), settings(kFolder + "/" + std::string(256, 'n')),
                    PropertyList::dictionary(modifiable())};
  EXPECT_EQ(cache(odd).standardOutput, kSuccess);
  EXPECT_EQ(restore(odd).standardOutput, kSuccess);
  EXPECT_FALSE(root().exists(kCacheFolder));
}

TEST_F(ComponentCache, AWildcardWithAnOddPathMatchesNothing) {
  const std::string tooLong = "/" + std::string(256, 'n');
  for (const std::string& path : {std::string(), "nowhere/*.conf"s, "/nowhere/../*.conf"s, tooLong + "/*.conf"}) {
    const Outcome outcome = cache({wildcard(path)});
    EXPECT_EQ(outcome.standardOutput, kFailure) << path;
    EXPECT_TRUE(loggedBeginning(outcome, "Error", "QVNCacheComponentStrategy: Unable to get contents of "))
        << outcome.standardError;
    EXPECT_EQ(logged(outcome, "Error",
                     "QVNCacheComponentStrategy: Unable to find matched files from wildcarded path: '" + path + "'"),
              1);
    EXPECT_EQ(restore({wildcard(path)}).standardOutput, kSuccess) << path;
  }
}

TEST_F(ComponentCache, AfterAFailureNothingIsTouched) {
  root().writeFile(kCache + "/Library/Guard/kept", "x");
  EXPECT_EQ(cache({}, {"--failed", "Core"}).standardOutput, "success=0 state=0 published=\n");
  EXPECT_EQ(runStep("restore", {}, {"--failed", "Core"}).standardOutput, "success=0 state=0 published=\n");
  EXPECT_TRUE(root().exists(kCache + "/Library/Guard/kept"));
}

/// The steps where something is mounted, which nothing can remove.
class ComponentCacheOnMounts : public ComponentCache {
 protected:
  [[nodiscard]] bool needsMounts() const override { return true; }

  void mountOn(const std::string& folder) {
    root().makeDirectory(folder);
    ASSERT_TRUE(root().shell("mount -t tmpfs none " + folder + " && echo kept > " + folder + "/file").succeeded());
  }
};

TEST_F(ComponentCacheOnMounts, OneThatCannotBeRemovedFailsTheCaching) {
  root().writeFile(kFolder + "/settings", "edited");
  mountOn(kCache);
  const Outcome outcome = cache({settings(kFolder + "/settings")});
  EXPECT_EQ(outcome.standardOutput, kFailure);
  EXPECT_TRUE(
      loggedBeginning(outcome, "Error", "QVNCacheComponentStrategy: Unable to cleanup temp file cache. Error Domain="))
      << outcome.standardError;
}

TEST_F(ComponentCacheOnMounts, OneThatCannotBeRemovedFailsTheRestoringOnceTheFilesAreBack) {
  root().writeFile(kFolder + "/settings", "edited");
  const Entries entries{settings(kFolder + "/settings")};
  ASSERT_EQ(cache(entries).standardOutput, kSuccess);
  root().writeFile(kFolder + "/settings", "default");
  mountOn(kCache + "/mounted");
  const Outcome outcome = restore(entries);
  EXPECT_EQ(outcome.standardOutput, kFailure);
  EXPECT_TRUE(loggedBeginning(outcome, "Error",
                              "QVNRestoreCacheComponentStrategy: Unable to cleanup temp file cache. Error Domain="))
      << outcome.standardError;
  EXPECT_EQ(root().readFile(kFolder + "/settings"), "edited");
}

TEST_F(ComponentCacheOnMounts, WhatCannotBeRemovedFromTheFilesPlaceFailsTheRestoring) {
  root().writeFile(kFolder + "/settings", "edited");
  const Entries entries{settings(kFolder + "/settings")};
  ASSERT_EQ(cache(entries).standardOutput, kSuccess);
  ASSERT_TRUE(root().shell("rm " + kFolder + "/settings").succeeded());
  mountOn(kFolder + "/settings");
  const Outcome outcome = restore(entries);
  EXPECT_EQ(outcome.standardOutput, kFailure);
  EXPECT_TRUE(loggedBeginning(outcome, "Error", "Unable to remove file. Error Domain=")) << outcome.standardError;
  EXPECT_EQ(root().readFile(kCache + kFolder + "/settings"), "edited");
}

}  // namespace
