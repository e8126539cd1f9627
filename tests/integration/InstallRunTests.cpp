#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/syscall.h>

#include <cstdint>
#include <filesystem>
#include <limits>

#include "general/foundation/propertylist/PropertyListFile.h"
#include "tests/integration/EngineInRoot.h"
#include "tests/support/KilledRun.h"

namespace tests {
namespace {

using support::SnapshotEntry;

class InstallRun : public EngineInRoot {
 protected:
  const SnapshotEntry* entryFor(const std::string& path) {
    snapshot_ = root().snapshot(path);
    return snapshot_.empty() ? nullptr : &snapshot_.front();
  }
  void expectAttributes(const std::string& path, char type, mode_t mode, uid_t owner, gid_t group) {
    const SnapshotEntry* entry = entryFor(path);
    ASSERT_NE(entry, nullptr) << path;
    EXPECT_EQ(entry->type, type) << path;
    EXPECT_EQ(entry->mode, mode) << path;
    EXPECT_EQ(entry->user, owner) << path;
    EXPECT_EQ(entry->group, group) << path;
  }
  void makeSmallProduct() {
    bundle().stageDirectory("Core", "/Library/Guard", 0751, 501, 20);
    bundle().stageFile("Core", "/Library/Guard/bin/guardd", "#!/bin/sh\nexit 0\n", 0755);
    bundle().stageFile("Core", "/Library/Guard/secret", "secret", 0600, 501, 20);
    bundle().stageFile("Core", "/Library/Guard/helper", "set-id", 06755, 0, 80);
    bundle().stageFile("Core", "/Library/Guard/empty", "");
    bundle().stageLink("Core", "/Library/Guard/current", "bin", 501, 20);
    bundle().stageFile("Core", "/Library/LaunchDaemons/com.corvane.guard.plist", "<plist/>");
    bundle().addComponent("Core", "1.0", kProduct);
    bundle().stageFile("Agent", "/Library/LaunchAgents/com.corvane.agent.plist", "<plist/>");
    bundle().addComponent("Agent", "1.0", kProduct);
  }

 private:
  support::Snapshot snapshot_;
};

TEST_F(InstallRun, ProductIsInstalledWithItsAttributesServicesAndReceipt) {
  makeSmallProduct();
  deliverBundle();
  support::RunOptions privateUmask;
  privateUmask.fileCreationMask = 077;
  const auto outcome = install(privateUmask);
  ASSERT_EQ(outcome.exitCode, 0) << outcome.description();

  expectAttributes("/Library/Guard", 'd', 0751, 501, 20);
  expectAttributes("/Library/Guard/bin", 'd', 0755, 0, 0);
  expectAttributes("/Library/Guard/bin/guardd", '-', 0755, 0, 0);
  expectAttributes("/Library/Guard/secret", '-', 0600, 501, 20);
  expectAttributes("/Library/Guard/helper", '-', 06755, 0, 80);
  EXPECT_EQ(root().readFile("/Library/Guard/secret"), "secret");
  EXPECT_EQ(root().readFile("/Library/Guard/empty"), "");
  const SnapshotEntry* link = entryFor("/Library/Guard/current");
  ASSERT_NE(link, nullptr);
  EXPECT_EQ(link->type, 'l');
  EXPECT_EQ(link->target, "bin");
  EXPECT_EQ(link->user, 501U);
  EXPECT_EQ(link->group, 20U);

  const auto calls = root().recordedCalls();
  ASSERT_EQ(calls.size(), 1U);
  EXPECT_EQ(calls[0].path, "/bin/launchctl");
  EXPECT_EQ(std::vector<std::string>(calls[0].arguments.begin() + 1, calls[0].arguments.end()),
            (std::vector<std::string>{"load", "-w", "/Library/LaunchDaemons/com.corvane.guard.plist"}));
  EXPECT_TRUE(loggedBeginning(outcome, "Notice", "Could not find user id (0) or loginwindow pid (0)"));

  expectAttributes(kReceipt, 'd', 0755, 0, 80);
  expectAttributes(std::string(kReceipt) + "/Contents/MacOS/InstallationDeployer", '-', 0755, 0, 80);
  expectAttributes(std::string(kReceipt) + "/Contents/Install/Manifests/Core.plist", '-', 0644, 0, 80);
  EXPECT_FALSE(root().exists("/Library/Application Support/Corvane/Guard/temp"));

  for (const char* message : {"Installing Guard", "Fresh install of the \"Guard\" product.",
                              "\"installer.localPayload.installComponents\" success: YES", "\"installer\" success: YES",
                              "Installation complete"}) {
    EXPECT_TRUE(logged(outcome, "Notice", message)) << message;
  }
}

TEST_F(InstallRun, AgentsAreLoadedInTheSessionOfTheUserAtTheConsole) {
  makeSmallProduct();
  deliverBundle();
  if (!root().hasProcesses()) {
    GTEST_SKIP() << root().whyNoMounts();
  }
  root().setConsoleUser(501);
  const pid_t loginWindow = root().startProcess("loginwindow", 501);
  const auto outcome = install();
  ASSERT_EQ(outcome.exitCode, 0) << outcome.description();
  const auto calls = root().recordedCalls();
  ASSERT_EQ(calls.size(), 2U);
  EXPECT_EQ(std::vector<std::string>(calls[1].arguments.begin() + 1, calls[1].arguments.end()),
            (std::vector<std::string>{"bsexec", std::to_string(loginWindow), "sudo", "-u", "#501", "/bin/launchctl",
                                      "load", "-w", "/Library/LaunchAgents/com.corvane.agent.plist"}));
}

TEST_F(InstallRun, SecondProductOfAnUnknownMachineNeedsAName) {
  bundle().stageFile("Core", "/opt/core", "x");
  bundle().addComponent("Core", "1", kProduct);
  bundle().addComponent("Core", "1", "Other");
  deliverBundle();
  const auto undecided = install();
  EXPECT_EQ(undecided.exitCode, 1);
  EXPECT_TRUE(loggedBeginning(undecided, "Error", "Unable to select product. Products = ("));
  EXPECT_FALSE(root().exists("/opt/core"));
  EXPECT_EQ(runEngine({"--install", "--product_name", "Other"}).exitCode, 0);
  EXPECT_EQ(root().readFile("/opt/core"), "x");
  EXPECT_TRUE(root().exists("/Library/Application Support/Corvane/Other/Installer.app"));
}

TEST_F(InstallRun, ProductWhoseReceiptFolderExistsIsDetected) {
  bundle().stageFile("Core", "/opt/core", "x");
  bundle().addComponent("Core", "1", kProduct);
  bundle().addComponent("Core", "1", "Other");
  bundle().setOptions(
      {},
      dictionary({{"ProductDetectionList",
                   array({dictionary({{"ProductName", kProduct}, {"ProductDetectionPaths", array({"/nowhere"})}}),
                          dictionary({{"ProductName", "Other"}, {"ProductDetectionPaths", array({"/nowhere"})}})})}}));
  deliverBundle();
  root().makeDirectory("/Library/Application Support/Corvane/Other");
  const auto outcome = install();
  EXPECT_EQ(outcome.exitCode, 0) << outcome.description();
  EXPECT_TRUE(logged(outcome, "Debug", "Product detected to install: Other"));
}

TEST_F(InstallRun, OtherProductThatMayNotBeCrossGradedEndsWithThree) {
  bundle().stageFile("Core", "/opt/core", "x");
  bundle().addComponent("Core", "1", kProduct);
  bundle().setOptions(
      {},
      dictionary({{"Products",
                   dictionary({{kProduct,
                                dictionary({{"CrossGrades", array({dictionary({{"ProductName", "Other"}})})}})}})}}));
  deliverBundle();
  root().makeDirectory("/Library/Application Support/Corvane/Other/Installer.app");
  root().makeDirectory("/Library/Application Support/Corvane/temp/leftover");
  const auto outcome = install();
  EXPECT_EQ(outcome.exitCode, 3) << outcome.description();
  EXPECT_TRUE(logged(outcome, "Error",
                     "The \"Other\" product is already installed. Remove the existing product before installing the "
                     "\"Guard\" product."));
  EXPECT_FALSE(root().exists("/opt/core"));
  EXPECT_FALSE(root().exists("/Library/Application Support/Corvane/temp"));
}

TEST_F(InstallRun, OtherProductWithItsReceiptThatMayBeCrossGradedIsLeftToItsReceipt) {
  bundle().stageFile("Core", "/opt/core", "x");
  bundle().addComponent("Core", "1", kProduct);
  bundle().stageFile("OtherCore", "/opt/other", "x");
  bundle().addComponent("OtherCore", "1", "Other");
  bundle().setOptions(
      {},
      dictionary(
          {{"ProductRemovals", array({dictionary({{"ProductName", "Other"},
                                                  {"ProductDetectionPaths", array({"/opt/other"})},
                                                  {"ListOfComponents", array({"OtherCore"})}})})},
           {"Products",
            dictionary({{kProduct, dictionary({{"CrossGrades", array({dictionary({{"ProductName", "Other"},
                                                                                  {"AllowCrossGrades", true},
                                                                                  {"TreatAsUpdate", true}})})}})}})}}));
  deliverBundle();
  root().writeFile("/opt/other", "x");
  root().makeDirectory("/Library/Application Support/Corvane/Other/Installer.app");
  const auto outcome = runEngine({"--install", "--product_name", kProduct});
  EXPECT_EQ(outcome.exitCode, 0) << outcome.description();
  EXPECT_TRUE(logged(outcome, "Notice",
                     "Installing the \"Guard\" product. Detected the \"Other\" product. The previous product will be "
                     "treated as an update."));
  EXPECT_TRUE(root().exists("/opt/core"));
  EXPECT_TRUE(root().exists("/opt/other")) << "its receipt is to remove it";
  EXPECT_TRUE(root().exists("/Library/Application Support/Corvane/Other/Installer.app"));
}

TEST_F(InstallRun, FirstPhaseThatIsNoPayloadEndsTheRunWithItsMessage) {
  bundle().stageFile("Core", "/opt/core", "x");
  bundle().addComponent("Core", "1", kProduct);
  const PropertyList index = bundle().readManifest("Index");
  const PropertyList product = index["Products"][kProduct];
  const PropertyList payload = product["ListOfInstallPhases"].at(0);
  const PropertyList oldProduct = dictionary({{"ProductName", "Old"}, {"AllowCrossGrades", true}});
  // The steps that remove the older product let the unknown first phase pass; the plan then finds no payload in it.
  const PropertyList twisted =
      product.with("ListOfInstallPhases", array({dictionary({{"InstallPhaseType", "Teleport"}}), payload}))
          .with("CrossGrades", array({oldProduct}));
  bundle().writeManifest("Index", index.with("Products", dictionary({{kProduct, twisted}}))
                                      .with("ProductRemovals", array({dictionary({{"ProductName", "Old"}})})));
  deliverBundle();
  const auto outcome = install();
  EXPECT_EQ(outcome.exitCode, 1) << outcome.description();
  EXPECT_EQ(logged(outcome, "Error", "Install Phase 0 of Product Guard is not LocalPayload"), 1)
      << outcome.standardError;
  EXPECT_FALSE(root().exists("/opt/core"));
  EXPECT_FALSE(root().exists(kReceipt));
}

TEST_F(InstallRun, TooLittleSpaceEndsWithFourAndWritesNothing) {
  bundle().stageFile("Core", "/opt/core", "x");
  bundle().addComponent("Core", "1", kProduct);
  bundle().writeManifest("Core", bundle().readManifest("Core").with("ComponentSize", std::int64_t{1} << 60));
  deliverBundle();
  const auto outcome = install();
  EXPECT_EQ(outcome.exitCode, 4) << outcome.description();
  EXPECT_TRUE(loggedBeginning(outcome, "Error", "Not enough space to install. Required space: "));
  EXPECT_FALSE(root().exists("/opt"));
  EXPECT_FALSE(root().exists("/Library/Application Support/Corvane"));
}

TEST_F(InstallRun, SpaceThatIsExactlyEnoughPassesAndOneByteLessDoesNot) {
  if (!root().hasPrivateMounts()) {
    GTEST_SKIP() << "others write to the volume meanwhile: " << root().whyNoMounts();
  }
  bundle().stageFile("Core", "/opt/core", "x");
  bundle().addComponent("Core", "1", kProduct);
  const std::string componentManifest = inBundle("Contents/Install/Manifests/Core.plist");
  // Always as long, so that the manifest itself takes the same room.
  const auto installNeeding = [&](std::int64_t bytes) {
    const auto document = foundation::plist::serialize(bundle().readManifest("Core").with("ComponentSize", bytes),
                                                       foundation::plist::Format::Binary);
    EXPECT_TRUE(document.ok());
    root().writeFile(componentManifest, document.ok() ? *document : "");
    return install();
  };
  const auto numberAfter = [](const support::Outcome& outcome, const std::string& text) {
    const auto at = outcome.standardError.find(text);
    return at == std::string::npos ? -1 : std::stoll(outcome.standardError.substr(at + text.size()));
  };
  bundle().writeManifest("Index", bundle().readManifest("Index").with("ReceiptSize", 0));
  deliverBundle();
  const std::int64_t freeBytes =
      numberAfter(installNeeding(std::numeric_limits<std::int64_t>::max()), "free disk space in bytes: ");
  ASSERT_GT(freeBytes, 0);
  const auto tooLarge = installNeeding(freeBytes + 1);
  EXPECT_EQ(tooLarge.exitCode, 4) << tooLarge.description();
  EXPECT_EQ(logged(tooLarge, "Error",
                   "Not enough space to install. Required space: " + std::to_string(freeBytes + 1) +
                       ", free space: " + std::to_string(freeBytes)),
            1)
      << tooLarge.standardError;
  const auto fitting = installNeeding(freeBytes);
  EXPECT_EQ(fitting.exitCode, 0) << fitting.description();
  EXPECT_EQ(numberAfter(fitting, "free disk space in bytes: "), freeBytes);
  EXPECT_TRUE(root().exists("/opt/core"));
}

TEST_F(InstallRun, RemovalFromTheInstallerIsRefused) {
  bundle().stageFile("Core", "/opt/core", "x");
  bundle().addComponent("Core", "1", kProduct);
  deliverBundle();
  const auto outcome = runEngine({"--remove"});
  EXPECT_EQ(outcome.exitCode, 1);
  EXPECT_TRUE(loggedBeginning(outcome, "Error", "Remove operation cannot run from this location ("));
}

TEST_F(InstallRun, FullVolumeFailsWithoutHalfAFile) {
  // Room for the bundle and a little more, but not for one of its large files.
  const std::uint64_t bundleBytes = std::filesystem::file_size(CORVANE_ENGINE) + (48U << 20);
  makeRoot({.way = support::PrivateRoot::Way::Best, .rootSizeBytes = bundleBytes + (16U << 20)});
  if (!root().hasPrivateMounts()) {
    GTEST_SKIP() << root().whyNoMounts();
  }
  bundle().stageFile("Core", "/opt/a-small", "small");
  bundle().stageFile("Core", "/opt/b-large", std::string(24U << 20, 'x'));
  bundle().stageFile("Core", "/opt/c-large", std::string(24U << 20, 'y'));
  bundle().stageFile("Core", "/opt/d-small", "small");
  bundle().addComponent("Core", "1", kProduct);
  // Claims to be small, as a lying manifest may.
  bundle().writeManifest("Core", bundle().readManifest("Core").with("ComponentSize", 1));
  bundle().writeManifest("Index", bundle().readManifest("Index").with("ReceiptSize", 1).with("PayloadSize", 1));
  deliverBundle();
  const auto outcome = install();
  EXPECT_EQ(outcome.exitCode, 1) << outcome.description();
  EXPECT_TRUE(loggedBeginning(outcome, "Error", "Error writing: ")) << outcome.standardError;
  EXPECT_EQ(root().readFile("/opt/a-small"), "small");
  EXPECT_FALSE(root().exists("/opt/d-small"));
  for (const SnapshotEntry& entry : root().snapshot("/opt")) {
    EXPECT_TRUE(entry.path == "/opt" || entry.size == 5 || entry.size == 24U << 20) << entry;
  }
}

TEST_F(InstallRun, FileBeyondTheSizeLimitOfTheProcessIsAnErrorAndDoesNotShow) {
  bundle().stageFile("Core", "/opt/a-small", "small");
  bundle().stageFile("Core", "/opt/b-large", std::string(std::size_t{1} << 20, 'x'));
  bundle().addComponent("Core", "1", kProduct);
  deliverBundle();
  support::RunOptions options;
  options.limits = {{RLIMIT_FSIZE, rlim_t{64} << 10}};
  const auto outcome = install(options);
  EXPECT_EQ(outcome.exitCode, 1) << outcome.description();
  EXPECT_TRUE(loggedBeginning(outcome, "Error", "Error writing: ")) << outcome.standardError;
  EXPECT_EQ(root().readFile("/opt/a-small"), "small");
  EXPECT_FALSE(root().exists("/opt/b-large"));
}

TEST_F(InstallRun, FolderThatSomebodyReplacedByALinkIsNotGivenAway) {
  bundle().stageDirectory("Core", "/Users/Shared/guard", 0755, 501, 20);
  bundle().stageDirectory("Core", "/Users/Shared/guard/cache", 0700, 501, 20);
  bundle().addComponent("Core", "1", kProduct);
  deliverBundle();
  root().makeDirectory("/Users/Shared/guard", 0755, 501, 20);
  root().makeLink("/Users/Shared/guard/cache", "/etc");
  ASSERT_EQ(root().shell("chown -h 501:20 /Users/Shared/guard/cache").exitCode, 0);
  const auto outcome = install();
  EXPECT_EQ(outcome.exitCode, 1) << outcome.description();
  EXPECT_TRUE(loggedBeginning(outcome, "Error", "Unable to set attributes on directory: /Users/Shared/guard/cache"));
  expectAttributes("/etc", 'd', 0755, 0, 0);
}

TEST_F(InstallRun, DataIsOnDiskBeforeTheReceiptVouchesForIt) {
  if (const auto reason = support::KilledRun::whyImpossible()) {
    GTEST_SKIP() << *reason;
  }
  makeSmallProduct();
  deliverBundle();
  support::KillMoment beforeFlush;
  beforeFlush.calls = {SYS_syncfs};
  const auto killed = support::KilledRun::run(root(), {kEngine, "--install"}, beforeFlush);
  EXPECT_TRUE(killed.reached) << killed.outcome.description();
  EXPECT_EQ(root().readFile("/Library/Guard/secret"), "secret");
  EXPECT_FALSE(root().exists(kReceipt));
}

TEST_F(InstallRun, EngineThatCannotReachItsReaderGoesOn) {
  makeSmallProduct();
  deliverBundle();
  const auto outcome =
      root().shell("('" + std::string(kEngine) + "' --install; echo $? > /tmp/code) 2>&1 | head -n 1 > /dev/null");
  EXPECT_EQ(outcome.exitCode, 0);
  EXPECT_EQ(root().readFile("/tmp/code"), "0\n");
}

}  // namespace
}  // namespace tests
