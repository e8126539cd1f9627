#include <regex>

#include "tests/integration/ManyMoments.h"
#include "tests/integration/WatchedEngineInRoot.h"

namespace tests {
namespace {

using support::KilledRun;
using support::KillMoment;
using support::Outcome;
using support::RunningProgram;

/// A product whose second phase of three is left to the real engine of another bundle. Both local phases install the
/// components of the first, as everywhere:
///   Guard    Core /opt/guard/core
///   Extras   Extra /opt/extras/extra, and maybe a program that waits until the test lets it go on
class ExternalDeployerRun : public WatchedEngineInRoot {
 protected:
  static constexpr const char* kExternalBundle = "/Volumes/Extras/Installer.app";
  static constexpr const char* kExternalEngine = "/Volumes/Extras/Installer.app/Contents/MacOS/InstallationDeployer";
  static constexpr const char* kExternalReceipt = "/Library/Application Support/Corvane/Extras/Installer.app";
  static constexpr const char* kWaiter = "/opt/extras/wait";

  [[nodiscard]] bool needsProc() const override { return true; }

  void makeProduct(const std::string& externalProduct = "Extras") {
    bundle().stageFile("Core", "/opt/guard/core", "core");
    bundle().addComponent("Core", "1.0", kProduct);
    const auto external = dictionary({{"InstallPhaseType", "ExternalInstallationDeployer"},
                                      {"BundlePath", kExternalBundle},
                                      {"ProductName", externalProduct}});
    bundle().writeManifest("Index",
                           withPhasesAfterTheFirst({external, dictionary({{"InstallPhaseType", "LocalPayload"}})}));
  }
  void makeExternalProduct() {
    external_.stageFile("Extra", "/opt/extras/extra", "extra");
    external_.addComponent("Extra", "1.0", "Extras");
  }
  void makeExternalProductThatWaits() {
    external_.stageFile("Extra", "/opt/extras/extra", "extra");
    external_.stageFile("Extra", kWaiter, "#!/bin/sh\nread line </run/gate\n", 0755);
    external_.addComponent(
        "Extra", "1.0", "Extras",
        dictionary({{"ListOfExecutables", array({dictionary({{"Path", kWaiter}, {"ExecuteOnInstall", true}})})}}));
    EXPECT_TRUE(root().shell("mkfifo /run/gate").succeeded());
  }
  void deliver() {
    deliverBundle();
    root().copyIn(external_.path(), kExternalBundle);
  }
  BundleMaker& external() { return external_; }

  /// Returns once the other engine waits for its product's program.
  static void waitForWaiter(RunningProgram& engine) {
    ASSERT_TRUE(engine.waitForStandardError(std::string("launching ") + kWaiter)) << engine.standardErrorSoFar();
  }
  /// The number of the other engine, that has announced itself.
  static std::string externalProcess(const RunningProgram& engine) {
    const std::string log = engine.standardErrorSoFar();
    const std::regex announced(std::string("posting com.corvane.installer.deployer.started to object: ") +
                               kExternalBundle + " with serviceName: com.corvane.installer.([0-9]+)");
    std::smatch found;
    return std::regex_search(log, found, announced) ? found[1].str() : "";
  }
  std::string watchExternal(const RunningProgram& engine, const std::string& command) {
    return root().run({kWatcher, externalProcess(engine), command}).standardOutput;
  }
  void killWaiter() {
    EXPECT_TRUE(root()
                    .shell("for p in /proc/[0-9]*; do grep -qa '[/]opt/extras/wait' $p/cmdline && kill -9 ${p#/proc/}; "
                           "done; true")
                    .succeeded());
  }

  support::Snapshot machine() {
    support::Snapshot all = root().snapshot("/Library");
    const support::Snapshot more = root().snapshot("/opt");
    all.insert(all.end(), more.begin(), more.end());
    return all;
  }
  void expectInstalled() {
    for (const char* item : {"/opt/guard/core", "/opt/extras/extra", kReceipt, kExternalReceipt}) {
      EXPECT_TRUE(root().exists(item)) << item;
    }
  }
  void expectStoppedAtTheExternalPhase() {
    EXPECT_TRUE(root().exists("/opt/guard/core"));
    EXPECT_FALSE(root().exists(kReceipt));
    EXPECT_TRUE(noEngineIsLeft()) << enginesRunning();
  }
  /// The other engine ended in this way, and nobody knows how its work did.
  void expectFailedWithTheOtherEngine(const Outcome& outcome, const std::string& ended) {
    EXPECT_EQ(outcome.exitCode, 1) << outcome.description();
    EXPECT_EQ(logged(outcome, "Error",
                     std::string("The external deployer ") + kExternalEngine +
                         " ended before its final state was known (" + ended + ")."),
              1);
    expectStoppedAtTheExternalPhase();
  }

 private:
  PropertyList withPhasesAfterTheFirst(const PropertyList::Array& more) {
    const PropertyList index = bundle().readManifest("Index");
    PropertyList phases = index["Products"][kProduct]["ListOfInstallPhases"];
    for (const PropertyList& phase : more) {
      phases = phases.appending(phase);
    }
    const PropertyList product = index["Products"][kProduct].with("ListOfInstallPhases", phases);
    return index.with("Products", index["Products"].with(kProduct, product));
  }

  BundleMaker external_{CORVANE_ENGINE};
};

TEST_F(ExternalDeployerRun, InstallsBothProductsInTheOrderOfThePhases) {
  makeProduct();
  makeExternalProduct();
  deliver();
  const Outcome outcome = install();
  EXPECT_EQ(outcome.exitCode, 0) << outcome.description();
  expectInstalled();
  EXPECT_EQ(enginesRunning(), "");
  EXPECT_EQ(logged(outcome, "Notice", "Installation complete"), 2);
  const auto place = [&](std::string_view text, std::size_t from) { return outcome.standardError.find(text, from); };
  const std::size_t before = place("\"installer.localPayload.launchServices\" success: YES", 0);
  const std::size_t other = place("Installing Extras", before);
  const std::size_t external = place("\"installer.externalDeployer\" success: YES", other);
  const std::size_t after = place("\"installer.localPayload.launchServices\" success: YES", external);
  EXPECT_NE(place("\"installer.writeReceipt\" success: YES", after), std::string::npos) << outcome.standardError;
}

TEST_F(ExternalDeployerRun, ShowsTheOtherEnginesStateAndProgressToItsOwnWatcher) {
  makeProduct();
  makeExternalProductThatWaits();
  deliver();
  auto engine = startWatchedInstall();
  waitForWaiter(engine);
  auto watcher = startWatcher(engine, {"observe", "follow", "progress", "shutdown"});
  ASSERT_TRUE(watcher.waitForStandardOutput("state 17\n")) << watcher.standardOutputSoFar();
  // The fifth of ten steps runs, and of that the fourth of five.
  const std::string progress = watch(engine, {"progress"});
  EXPECT_TRUE(std::regex_match(progress, std::regex("progress 4[6-8]\n"))) << progress;
  EXPECT_TRUE(root().exists("/opt/guard/core"));
  letGoOn();
  const Outcome outcome = engine.wait();
  EXPECT_EQ(outcome.exitCode, 0) << outcome.description();
  const std::string seen = watcher.wait().standardOutput;
  EXPECT_TRUE(seen.starts_with("observing\nstate 17\n")) << seen;
  EXPECT_TRUE(seen.ends_with("state 0\nprogress 100\nshutdown sent\n")) << seen;
  expectInstalled();
  EXPECT_EQ(enginesRunning(), "");
}

TEST_F(ExternalDeployerRun, EndsWithTheFailureOfTheOtherEngine) {
  makeProduct("Nobody's");
  makeExternalProduct();
  deliver();
  const Outcome outcome = install();
  EXPECT_EQ(outcome.exitCode, 1) << outcome.description();
  EXPECT_TRUE(logged(outcome, "Notice", "\"installer.externalDeployer\" success: NO"));
  EXPECT_FALSE(root().exists("/opt/extras"));
  expectStoppedAtTheExternalPhase();
}

TEST_F(ExternalDeployerRun, EndsWithThreeWhenTheOtherEngineRefusesAnIncompatibleProduct) {
  makeProduct();
  makeExternalProduct();
  external().setOptions(
      dictionary({}),
      dictionary({{"Products",
                   dictionary({{"Extras", dictionary({{"CrossGrades",
                                                       array({dictionary({{"ProductName", "Rival"},
                                                                          {"AllowCrossGrades", false}})})}})}})}}));
  deliver();
  root().makeDirectory("/Library/Application Support/Corvane/Rival/Installer.app");
  const Outcome outcome = install();
  EXPECT_EQ(outcome.exitCode, 3) << outcome.description();
  expectStoppedAtTheExternalPhase();
}

TEST_F(ExternalDeployerRun, EndsWithFourWhenTheOtherEngineLacksSpace) {
  makeProduct();
  makeExternalProduct();
  const PropertyList extra = external().readManifest("Extra");
  external().writeManifest("Extra", extra.with("ComponentSize", std::int64_t{1} << 60));
  const PropertyList index = external().readManifest("Index");
  external().writeManifest("Index", index.with("PayloadSize", std::int64_t{1} << 60));
  deliver();
  const Outcome outcome = install();
  EXPECT_EQ(outcome.exitCode, 4) << outcome.description();
  expectStoppedAtTheExternalPhase();
}

TEST_F(ExternalDeployerRun, EndsWithTwentyOneWhenTheOtherEngineIsCancelled) {
  makeProduct();
  makeExternalProductThatWaits();
  deliver();
  auto engine = startEngine({"--install"});
  waitForWaiter(engine);
  EXPECT_EQ(watchExternal(engine, "cancel"), "cancel sent\n");
  // Answered after the request before it.
  EXPECT_EQ(watchExternal(engine, "state"), "state 17\n");
  letGoOn();
  EXPECT_EQ(engine.wait().exitCode, 21);
  expectStoppedAtTheExternalPhase();
}

TEST_F(ExternalDeployerRun, LetsNobodyButRootGiveOrdersToTheOtherEngine) {
  makeProduct();
  makeExternalProductThatWaits();
  deliver();
  root().setConsoleUser(501);
  auto engine = startEngine({"--install"});
  waitForWaiter(engine);
  const std::string refused =
      "refused: Only root may cancel or release this engine: another one started it and follows it.\n";
  EXPECT_EQ(root()
                .run({kWatcher, externalProcess(engine), "cancel", "refusal", "shutdown", "refusal", "state"}, asUser())
                .standardOutput,
            "cancel sent\n" + refused + "shutdown sent\n" + refused + "state 17\n");
  letGoOn();
  EXPECT_EQ(engine.wait().exitCode, 0);
  expectInstalled();
}

TEST_F(ExternalDeployerRun, CancelledItselfLetsTheOtherEngineFinish) {
  makeProduct();
  makeExternalProductThatWaits();
  deliver();
  auto engine = startWatchedInstall();
  waitForWaiter(engine);
  auto watcher = startWatcher(engine, {"observe", "follow", "shutdown"});
  ASSERT_TRUE(watcher.waitForStandardOutput("state 17\n")) << watcher.standardOutputSoFar();
  EXPECT_EQ(watch(engine, {"cancel", "state"}), "cancel sent\nstate 17\n");
  letGoOn();
  EXPECT_EQ(engine.wait().exitCode, 21);
  EXPECT_TRUE(root().exists(kExternalReceipt));
  expectStoppedAtTheExternalPhase();
}

TEST_F(ExternalDeployerRun, FailsWhenTheOtherEngineIsKilledAndNamesIt) {
  makeProduct();
  makeExternalProductThatWaits();
  deliver();
  auto engine = startEngine({"--install"});
  waitForWaiter(engine);
  EXPECT_TRUE(root().shell("kill -9 " + externalProcess(engine)).succeeded());
  expectFailedWithTheOtherEngine(engine.wait(), "signal 9");
}

TEST_F(ExternalDeployerRun, FailsWhenTheOtherEnginesServiceIsEndedBySomebodyElse) {
  makeProduct();
  makeExternalProductThatWaits();
  deliver();
  auto engine = startEngine({"--install"});
  waitForWaiter(engine);
  EXPECT_EQ(watchExternal(engine, "shutdown"), "shutdown sent\n");
  letGoOn();
  expectFailedWithTheOtherEngine(engine.wait(), "exit status 0");
}

TEST_F(ExternalDeployerRun, KilledTakesTheOtherEngineAlongAndIsFinishedByTheNextRun) {
  makeProduct();
  makeExternalProductThatWaits();
  deliver();
  auto engine = startEngine({"--install"});
  waitForWaiter(engine);
  engine.kill(SIGKILL);
  EXPECT_EQ(engine.wait().signal, SIGKILL);
  EXPECT_TRUE(noEngineIsLeft()) << enginesRunning();
  killWaiter();
  auto next = startEngine({"--install"});
  waitForWaiter(next);
  letGoOn();
  const Outcome outcome = next.wait();
  EXPECT_EQ(outcome.exitCode, 0) << outcome.description();
  expectInstalled();
  EXPECT_EQ(enginesRunning(), "");
}

TEST_F(ExternalDeployerRun, OfABundleWhoseProgramStartsTheEngineAsAnotherProcessIsFollowedToItsEnd) {
  makeProduct();
  makeExternalProduct();
  deliver();
  const std::string wrapped = std::string(kExternalEngine) + "Itself";
  ASSERT_TRUE(root().shell(std::string("mv ") + kExternalEngine + " " + wrapped).succeeded());
  root().writeFile(kExternalEngine, "#!/bin/sh\n" + wrapped + " \"$@\"\nexit 0\n", 0755);
  const Outcome outcome = install();
  EXPECT_EQ(outcome.exitCode, 0) << outcome.description();
  expectInstalled();
  EXPECT_TRUE(noEngineIsLeft()) << enginesRunning();
}

TEST_F(ExternalDeployerRun, OfABundleThatIsNotThereWaitsForSomebodyWhoRunsIt) {
  makeProduct();
  makeExternalProduct();
  deliverBundle();
  auto engine = startEngine({"--install"});
  ASSERT_TRUE(engine.waitForStandardError(std::string("Failed to launch external deployer at ") + kExternalEngine))
      << engine.standardErrorSoFar();
  root().copyIn(external().path(), kExternalBundle);
  EXPECT_EQ(root().run({kExternalEngine, "--ui", "--install", "--product_name", "Extras"}).exitCode, 0);
  EXPECT_EQ(engine.wait().exitCode, 0);
  expectInstalled();
}

class KilledExternalDeployerRun : public ExternalDeployerRun, public ::testing::WithParamInterface<KillMoment::When> {
 protected:
  [[nodiscard]] std::optional<std::string> whyImpossible() override {
    const auto reason = ExternalDeployerRun::whyImpossible();
    return reason ? reason : KilledRun::whyImpossible();
  }
  void prepare() override {
    ExternalDeployerRun::prepare();
    makeProduct();
    makeExternalProduct();
  }
  void begin() {
    makeRoot();
    root().makeDirectory("/opt");
    deliver();
  }
  /// Kills an install, or its child, and expects the next run to end with the tree of one that was left alone.
  void expectToSurvive(const std::optional<std::string>& child) {
    begin();
    ASSERT_EQ(install().exitCode, 0);
    const support::Snapshot whole = machine();
    killAtManyMoments(
        GetParam(), child, {kEngine, "--install"}, [this] { begin(); }, [this] { return &root(); },
        [&](const Outcome& killed) {
          EXPECT_TRUE(noEngineIsLeft()) << enginesRunning();
          if (child) {
            // Once its final state is known it is needed no more.
            const bool hasFinished = support::difference(machine(), whole).empty();
            EXPECT_EQ(killed.exitCode, hasFinished ? 0 : 1) << killed.standardError;
            EXPECT_EQ(loggedBeginning(killed, "Error", std::string("The external deployer ") + kExternalEngine),
                      !hasFinished);
          }
          const Outcome next = install();
          EXPECT_EQ(next.exitCode, 0) << next.standardError;
          EXPECT_EQ(support::difference(machine(), whole), "");
          EXPECT_TRUE(noEngineIsLeft()) << enginesRunning();
        });
  }
};

TEST_P(KilledExternalDeployerRun, IsFinishedByTheNextOne) { expectToSurvive(std::nullopt); }

TEST_P(KilledExternalDeployerRun, FailsWithItsChildAndIsFinishedByTheNextOne) {
  expectToSurvive(std::string(kExternalEngine));
}

INSTANTIATE_TEST_SUITE_P(AtManyChanges, KilledExternalDeployerRun,
                         ::testing::Values(KillMoment::When::Before, KillMoment::When::After), nameOfMoment);

}  // namespace
}  // namespace tests
