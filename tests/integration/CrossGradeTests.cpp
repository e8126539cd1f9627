#include <cstdint>
#include <filesystem>
#include <string>

#include "tests/integration/EngineInRoot.h"
#include "tests/integration/ManyMoments.h"

namespace tests {
namespace {

using support::KilledRun;
using support::KillMoment;

/// Guard Classic, an older product that left no receipt, and Guard, which may take its place: they share the folder
/// /Library/Guard, a configuration and rules that the user may change.
class CrossGrade : public EngineInRoot {
 protected:
  static constexpr const char* kClassic = "Guard Classic";
  static constexpr const char* kClassicProgram = "/Library/Guard/classic";
  static constexpr const char* kConfiguration = "/Library/Guard/guard.conf";
  static constexpr const char* kDefaultRule = "/Library/Guard/rules/default.rule";
  static constexpr const char* kOwnRule = "/Library/Guard/rules/mine.rule";
  static constexpr const char* kCache = "/Library/Caches/com.corvane.installer/tmp";

  void prepare() override {
    bundle().stageFile("Guard", "/Library/Guard/guard", "guard", 0755);
    bundle().stageFile("Guard", kConfiguration, "default");
    bundle().stageFile("Guard", kDefaultRule, "default rule");
    bundle().addComponent("Guard", "2", kProduct, dictionary({{"ListOfModifiableFiles", array({kConfiguration})}}));
    bundle().stageFile("Classic", kClassicProgram, "classic", 0755);
    bundle().stageFile("Classic", kConfiguration, "default of old");
    bundle().stageFile("Classic", kDefaultRule, "default rule");
    bundle().addComponent("Classic", "1", kClassic, dictionary({{"ListOfModifiableFiles", array({kConfiguration})}}));
    addWildcard();
    furnish();
  }

  void furnish() {
    root().makeDirectory("/Library/Application Support");
    root().makeDirectory("/Library/Caches");
    root().makeDirectory("/Library/Guard/rules");
    root().writeFile(kClassicProgram, "classic", 0755);
    root().writeFile(kConfiguration, "of the user", 0600);
    root().writeFile(kDefaultRule, "of the user too");
    root().writeFile(kOwnRule, "made by the user");
    root().writeFile("/Library/Guard/rules/notes", "no rule");
    static_cast<void>(root().shell(std::string("chown 501:20 ") + kConfiguration));
  }
  void deliverWith(const PropertyList& crossGrade) {
    bundle().setOptions(
        {}, dictionary({{"ProductRemovals", array({dictionary({{"ProductName", kClassic},
                                                               {"ProductDetectionPaths", array({kClassicProgram})},
                                                               {"ListOfComponents", array({"Classic"})}})})},
                        {"Products", dictionary({{kProduct, dictionary({{"CrossGrades", array({crossGrade})}})}})}}));
    deliverBundle();
  }
  void deliverUpdate() {
    deliverWith(dictionary({{"ProductName", kClassic}, {"AllowCrossGrades", true}, {"TreatAsUpdate", true}}));
  }
  support::Outcome installGuard() { return runEngine({"--install", "--product_name", kProduct}); }

  /// 1 when the installer announced what it does with the older product in these words.
  static auto announced(const support::Outcome& outcome, const std::string& treatment) {
    return logged(outcome, "Notice",
                  "Installing the \"Guard\" product. Detected the \"Guard Classic\" product. " + treatment);
  }
  void expectUsersFiles() {
    EXPECT_EQ(root().readFile(kConfiguration), "of the user");
    EXPECT_EQ(root().readFile(kDefaultRule), "of the user too");
    EXPECT_EQ(root().readFile(kOwnRule), "made by the user");
  }

 private:
  /// Every rule may be changed by the user, and the folder goes with the older product.
  void addWildcard() {
    const PropertyList manifest = bundle().readManifest("Classic");
    const auto listed = manifest["ListOfFiles"].elements();
    PropertyList::Array files(listed.begin(), listed.end());
    const auto isDefaultRule = [](const PropertyList& entry) { return entry["Path"].text() == kDefaultRule; };
    const auto rule = std::ranges::find_if(files, isDefaultRule);
    ASSERT_NE(rule, files.end());
    files.push_back(
        rule->with("Path", "/Library/Guard/rules/*.rule").with("IsModifiableFile", true).with("IsWildcardPath", true));
    bundle().writeManifest("Classic", manifest.with("ListOfFiles", PropertyList(files)));
  }
};

TEST_F(CrossGrade, TreatedAsAnUpdateReplacesTheOlderProductAndCarriesTheUsersFilesOver) {
  deliverUpdate();
  const auto outcome = installGuard();
  ASSERT_EQ(outcome.exitCode, 0) << outcome.description();
  EXPECT_EQ(announced(outcome, "The previous product will be treated as an update."), 1);
  EXPECT_EQ(root().readFile("/Library/Guard/guard"), "guard");
  EXPECT_FALSE(root().exists(kClassicProgram));
  expectUsersFiles();
  EXPECT_EQ(root().shell(std::string("stat -c '%a %u:%g' ") + kConfiguration).standardOutput, "600 501:20\n");
  EXPECT_EQ(root().readFile("/Library/Guard/rules/notes"), "no rule");
  EXPECT_FALSE(root().exists(kCache));
  EXPECT_TRUE(root().exists(kReceipt));
  EXPECT_EQ(logged(outcome, "Notice", "\"installer.preinstall.cacheComponent\" success: YES"), 1);
  EXPECT_EQ(logged(outcome, "Notice", "\"installer.preinstall.removeComponents\" success: YES"), 1);
  EXPECT_EQ(logged(outcome, "Notice", "\"installer.postinstall.restoreCacheComponent\" success: YES"), 1);
}

TEST_F(CrossGrade, NotTreatedAsAnUpdateRemovesTheOlderProductAndKeepsNothingOfIt) {
  deliverWith(dictionary({{"ProductName", kClassic}, {"AllowCrossGrades", true}, {"TreatAsUpdate", false}}));
  const auto outcome = installGuard();
  ASSERT_EQ(outcome.exitCode, 0) << outcome.description();
  EXPECT_EQ(announced(outcome, "The previous product will be removed and the new product will be installed."), 1);
  EXPECT_FALSE(root().exists(kClassicProgram));
  EXPECT_EQ(root().readFile(kConfiguration), "default");
  EXPECT_EQ(root().readFile(kDefaultRule), "default rule");
  EXPECT_EQ(root().readFile(kOwnRule), "made by the user") << "no manifest lists it";
  EXPECT_FALSE(root().exists(kCache));
}

TEST_F(CrossGrade, ThatIsNotAllowedEndsWithThreeAndChangesNothing) {
  const support::Snapshot before = root().snapshot("/Library");
  for (const PropertyList& crossGrade :
       {dictionary({{"ProductName", kClassic}, {"AllowCrossGrades", false}, {"TreatAsUpdate", true}}),
        dictionary({{"ProductName", "Somebody Else's"}, {"AllowCrossGrades", true}})}) {
    deliverWith(crossGrade);
    const auto outcome = installGuard();
    EXPECT_EQ(outcome.exitCode, 3) << outcome.description();
    EXPECT_EQ(logged(outcome, "Error",
                     "The \"Guard Classic\" product is already installed. Remove the existing product before "
                     "installing the \"Guard\" product."),
              1);
    EXPECT_EQ(difference(root().snapshot("/Library"), before), "");
  }
}

TEST_F(CrossGrade, WhoseRulesAreGoneFailsBeforeAnythingIsRemoved) {
  ASSERT_TRUE(root().shell("rm -r /Library/Guard/rules").succeeded());
  deliverUpdate();
  const auto outcome = installGuard();
  EXPECT_EQ(outcome.exitCode, 1);
  EXPECT_EQ(logged(outcome, "Error",
                   "QVNCacheComponentStrategy: Unable to find matched files from wildcarded path: "
                   "'/Library/Guard/rules/*.rule'"),
            1);
  EXPECT_EQ(root().readFile(kClassicProgram), "classic");
  EXPECT_EQ(root().readFile(kConfiguration), "of the user");
  EXPECT_FALSE(root().exists("/Library/Guard/guard"));
}

/// Kills it at changes that it makes to what names show or what attributes they have.
class KilledCrossGrade : public CrossGrade, public ::testing::WithParamInterface<KillMoment::When> {
 protected:
  bool holds(const std::string& path, const std::string& content) {
    return root().exists(path) && root().readFile(path) == content;
  }
  /// The user's file in its place or, while the products change places, in the cache.
  void expectKept(const std::string& path, const std::string& content) {
    EXPECT_TRUE(holds(path, content) || holds(kCache + path, content)) << path;
  }
};

// The next run finds the older product or what the killed one left of it. It begins with an empty cache when it finds
// the older product, so what waits there is the user's to fetch before.
TEST_P(KilledCrossGrade, LosesNothingOfTheUserAndTheNextRunInstalls) {
  if (const auto reason = KilledRun::whyImpossible()) {
    GTEST_SKIP() << *reason;
  }
  bool sawCached = false;
  killAtManyMoments(
      GetParam(), std::nullopt, {kEngine, "--install", "--product_name", kProduct},
      [&] {
        makeRoot();
        furnish();
        deliverUpdate();
      },
      [&] { return &root(); },
      [&](const support::Outcome&) {
        expectKept(kConfiguration, "of the user");
        expectKept(kDefaultRule, "of the user too");
        expectKept(kOwnRule, "made by the user");
        sawCached = sawCached || !holds(kConfiguration, "of the user");
        const auto next = installGuard();
        EXPECT_EQ(next.exitCode, 0) << next.standardError;
        EXPECT_EQ(root().readFile("/Library/Guard/guard"), "guard");
        EXPECT_FALSE(root().exists(kClassicProgram));
        EXPECT_TRUE(root().exists(kReceipt));
        EXPECT_EQ(root().readFile("/Library/Guard/rules/notes"), "no rule");
        EXPECT_EQ(root().readFile(kOwnRule), "made by the user");
      });
  EXPECT_TRUE(sawCached);
}

INSTANTIATE_TEST_SUITE_P(AtManyChanges, KilledCrossGrade,
                         ::testing::Values(KillMoment::When::Before, KillMoment::When::After), nameOfMoment);

TEST_F(CrossGrade, LeavesTheCacheAloneWhileTheRunOfAnotherProductFillsIt) {
  if (!root().hasProcesses()) {
    GTEST_SKIP() << root().whyNoMounts();
  }
  deliverUpdate();
  ASSERT_TRUE(root().shell("mkdir -p /var/run/com.corvane.installer && mkfifo /run/gate").succeeded());
  auto other = root().start(
      {"/usr/bin/flock", "/var/run/com.corvane.installer/.cache", "-c", "echo held; read line </run/gate"});
  ASSERT_TRUE(other.waitForStandardOutput("held"));
  root().writeFile(std::string(kCache) + "/of/another", "of another product");
  auto engine = root().start({kEngine, "--install", "--product_name", kProduct});
  ASSERT_TRUE(root().shell("until grep -q -e '-> FLOCK' /proc/locks; do sleep 0.02; done").succeeded());
  EXPECT_TRUE(root().exists(std::string(kCache) + "/of/another"));
  EXPECT_EQ(root().readFile(kClassicProgram), "classic");
  ASSERT_TRUE(root().shell("echo >/run/gate").succeeded());
  const auto outcome = engine.wait();
  EXPECT_EQ(outcome.exitCode, 0) << outcome.description();
  EXPECT_EQ(root().readFile(kConfiguration), "of the user");
  EXPECT_FALSE(root().exists(kCache));
}

TEST_F(CrossGrade, WithoutTheLockOfTheCacheNothingIsRemoved) {
  deliverUpdate();
  ASSERT_TRUE(root().shell("mkdir -p /var/run/com.corvane.installer/.cache").succeeded());
  const auto outcome = installGuard();
  EXPECT_EQ(outcome.exitCode, 1) << outcome.description();
  EXPECT_EQ(logged(outcome, "Error", "Unable to lock /var/run/com.corvane.installer/.cache. Is a directory"), 1);
  EXPECT_EQ(root().readFile(kClassicProgram), "classic");
  expectUsersFiles();
}

/// A run that fails: while it puts its files in place, or once it has put the user's files back.
class InterruptedCrossGrade : public CrossGrade {
 protected:
  static constexpr const char* kJournal = "/var/db/com.corvane.installer/Guard.journal";
  static constexpr const char* kProgram = "/etc/guard-prepare";
  static constexpr const char* kElsewhere = "/Users/Shared/guard.conf";

  void prepare() override {
    CrossGrade::prepare();
    bundle().stageFile("Last", "/Library/Guard/last", "last");
    bundle().addComponent("Last", "1", kProduct);
    const PropertyList program = dictionary({{"Path", kProgram}, {"ExecuteOnInstall", true}});
    bundle().writeManifest("Guard", bundle().readManifest("Guard").with("ListOfExecutables", array({program})));
    root().writeFile(kProgram, "#!/bin/sh\n", 0755);
  }
  /// Lets the component list this at the configuration's path.
  void listConfiguration(const std::string& component, const Keys& listed) {
    const PropertyList manifest = bundle().readManifest(component);
    PropertyList::Array files;
    for (const PropertyList& file : manifest["ListOfFiles"].elements()) {
      files.push_back(file["Path"].text() == kConfiguration ? entry(kConfiguration, joined(attributes(0600), listed))
                                                            : file);
    }
    bundle().writeManifest(component, manifest.with("ListOfFiles", PropertyList(std::move(files))));
  }
  void takeConfigurationFromElsewhere(const std::string& component) {
    listConfiguration(component, {{"IsModifiableFile", true}, {"ExternalSourcePath", kElsewhere}});
  }
  void makeConfigurationALink() {
    listConfiguration("Guard", {{"IsSymbolicLink", true}, {"SymbolicLinkTarget", "guard"}});
  }
  /// Nothing of the user is put back.
  void failWhileFilesArePutInPlace() {
    const std::string payload = bundle().payloadPath("Last", "/Library/Guard/last");
    std::filesystem::rename(payload, payload + ".hidden");
    deliverUpdate();
    EXPECT_EQ(installGuard().exitCode, 1);
    ASSERT_TRUE(root().exists(kCache));
    std::filesystem::rename(payload + ".hidden", payload);
    deliverBundle();
  }
  void failOnceTheUsersFilesAreBack() {
    root().writeFile(kProgram, "#!/bin/sh\nexit 7\n", 0755);
    deliverUpdate();
    EXPECT_EQ(installGuard().exitCode, 1);
    ASSERT_FALSE(root().exists(kCache));
    root().writeFile(kProgram, "#!/bin/sh\n", 0755);
  }
  void expectNextRunKeeps(const std::string& configuration) {
    const auto outcome = installGuard();
    EXPECT_EQ(outcome.exitCode, 0) << outcome.description();
    EXPECT_EQ(root().readFile(kConfiguration), configuration);
    EXPECT_EQ(root().shell(std::string("test -L ") + kConfiguration).exitCode, 1);
    EXPECT_EQ(root().readFile(kOwnRule), "made by the user");
    EXPECT_FALSE(root().exists(kJournal));
  }
};

TEST_F(InterruptedCrossGrade, WhoseJournalMakesNoSenseOwesEveryFileInTheCache) {
  failWhileFilesArePutInPlace();
  root().writeFile(kConfiguration, "default");
  root().writeFile(kJournal, "nonsense", 0600);
  expectNextRunKeeps("of the user");
}

TEST_F(InterruptedCrossGrade, WhoseJournalMakesNoSenseOwesThemStillAfterARunThatChangedNothing) {
  failWhileFilesArePutInPlace();
  root().writeFile(kConfiguration, "default");
  root().writeFile(kJournal, "nonsense", 0600);
  const PropertyList manifest = bundle().readManifest("Last");
  bundle().writeManifest("Last", manifest.with("ComponentSize", std::int64_t{1} << 60));
  deliverBundle();
  EXPECT_EQ(installGuard().exitCode, 4);
  bundle().writeManifest("Last", manifest);
  deliverBundle();
  expectNextRunKeeps("of the user");
}

TEST_F(InterruptedCrossGrade, ThatHadPutBackWhatCameFromElsewhereKeepsIt) {
  takeConfigurationFromElsewhere("Classic");
  root().writeFile(kElsewhere, "of the administrator");
  failOnceTheUsersFilesAreBack();
  expectNextRunKeeps("of the administrator");
}

TEST_F(InterruptedCrossGrade, ThatHadPutAFileBackWhereTheNewProductTakesItsOwnFromElsewhereKeepsIt) {
  takeConfigurationFromElsewhere("Guard");
  root().writeFile(kElsewhere, "of the administrator");
  failOnceTheUsersFilesAreBack();
  expectNextRunKeeps("of the user");
}

TEST_F(InterruptedCrossGrade, ThatHadPutAFileBackInThePlaceOfALinkKeepsIt) {
  makeConfigurationALink();
  failOnceTheUsersFilesAreBack();
  expectNextRunKeeps("of the user");
}

TEST_F(InterruptedCrossGrade, PutsTheCopyInThePlaceOfAnotherUsersLink) {
  failWhileFilesArePutInPlace();
  const std::string place = kConfiguration;
  ASSERT_TRUE(root().shell("ln -sf /etc/passwd " + place + " && chown -h 501 " + place).succeeded());
  expectNextRunKeeps("of the user");
}

TEST_F(InterruptedCrossGrade, ThatPutALinkInThePlaceOfAFileStillOwesTheFile) {
  makeConfigurationALink();
  failWhileFilesArePutInPlace();
  ASSERT_TRUE(root().shell(std::string("test -L ") + kConfiguration).succeeded());
  expectNextRunKeeps("of the user");
}

}  // namespace
}  // namespace tests
