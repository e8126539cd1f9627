#include <sys/stat.h>
#include <unistd.h>

#include <csignal>
#include <filesystem>
#include <fstream>
#include <regex>

#include "InstallationDeployer/QVNInstallerChecksum.h"
#include "tests/integration/FrontEndInRoot.h"

namespace tests {
namespace {

using support::Outcome;

/// What the front end finds wrong with a bundle before it starts the engine.
class FrontEndCheck : public FrontEndInRoot {
 protected:
  static constexpr const char* kFile = "/opt/guard/core";
  static constexpr const char* kContent = "content of the core";
  static constexpr const char* kIndex = "/Volumes/Disk Image/Installer.app/Contents/Install/Manifests/Index.plist";
  static constexpr const char* kManifest = "/Volumes/Disk Image/Installer.app/Contents/Install/Manifests/Core.plist";
  static constexpr const char* kNothingChanged = "Nothing was started, and nothing was changed.";

  void prepare() override {
    FrontEndInRoot::prepare();
    bundle().stageFile("Core", kFile, kContent, 0755);
    bundle().stageFile("Core", "/opt/guard/settings", "settings", 0644);
    bundle().addComponent("Core", "1.0", kProduct,
                          dictionary({{"ListOfModifiableFiles", array({"/opt/guard/settings"})}}));
    deliverBundle();
  }

  static std::string checksumOf(std::string_view content) {
    return deployer::QVNInstallerChecksum::generateSHA256(std::as_bytes(std::span(content)));
  }
  /// Where the content of an installed file lies, as seen inside.
  std::string payload(const std::string& installPath = kFile) {
    return inBundle(bundle().payloadPath("Core", installPath).substr(bundle().path().size() + 1));
  }
  void remove(const std::string& inside) { std::filesystem::remove_all(root().path(inside)); }

  /// Runs the front end, which must refuse the bundle and leave the machine as it is.
  Outcome refuse(const std::vector<std::string>& options = {}, int exitCode = 65) {
    const auto before = root().snapshot("/");
    Outcome outcome = runFrontEnd(options);
    EXPECT_EQ(outcome.exitCode, exitCode) << outcome.description();
    EXPECT_EQ(outcome.standardOutput.find("Engine started"), std::string::npos) << outcome.standardOutput;
    EXPECT_EQ(root().snapshot("/"), before);
    return outcome;
  }
  /// The same for a plain install; what it printed about the bundle.
  std::string complaint() {
    const Outcome outcome = refuse();
    EXPECT_NE(outcome.standardError.find(kNothingChanged), std::string::npos) << outcome.standardError;
    EXPECT_NE(outcome.standardError.find(" Exit code 65.\n"), std::string::npos) << outcome.standardError;
    EXPECT_EQ(outcome.standardError.find("Log:"), std::string::npos) << "no engine has logged anything";
    return outcome.standardError;
  }
  void expectInstalled(const Outcome& outcome) {
    EXPECT_EQ(outcome.exitCode, 0) << outcome.description() << root().readFile(kLog);
    EXPECT_TRUE(root().exists(kReceipt));
  }
};

// --- what is refused ---

TEST_F(FrontEndCheck, NamesTheFileAndBothChecksumsOfAFlippedByte) {
  std::string damaged = kContent;
  damaged[3] = static_cast<char>(damaged[3] ^ 1);
  root().writeFile(payload(), damaged);
  EXPECT_EQ(complaint(), payload() + " is damaged: its checksum is another one (it becomes " + kFile + ")\n" +
                             "    expected " + checksumOf(kContent) + "\n    found    " + checksumOf(damaged) +
                             "\nThe bundle cannot be installed as it is (problems: 1). " + kNothingChanged +
                             " Fetch the bundle again. Exit code 65.\n");
}

TEST_F(FrontEndCheck, RefusesATruncatedFile) {
  std::filesystem::resize_file(root().path(payload()), 4);
  EXPECT_NE(complaint().find("found    " + checksumOf("cont")), std::string::npos);
}

TEST_F(FrontEndCheck, TellsAMissingFileFromOneThatCannotBeRead) {
  remove(payload());
  EXPECT_TRUE(complaint().starts_with(payload() + " is missing (it becomes " + kFile + ")\n"));
  ASSERT_EQ(mkfifo(root().path(payload()).c_str(), 0644), 0);
  const std::string pipe = complaint();
  EXPECT_TRUE(pipe.starts_with(payload() + " cannot be read: ")) << pipe;
  EXPECT_NE(pipe.find("Fetch the bundle again, or put right what keeps it from being read."), std::string::npos);
}

TEST_F(FrontEndCheck, TellsThatAccessToAFileIsDenied) {
  const std::string setpriv = "/usr/bin/setpriv";
  if (!root().exists(setpriv)) {
    GTEST_SKIP() << "there is no " << setpriv;
  }
  root().writeFile(payload(), kContent, 0600, 501, 501);
  const Outcome outcome = root().run({setpriv, "--bounding-set", "-dac_override,-dac_read_search", kFrontEnd});
  EXPECT_EQ(outcome.exitCode, 65) << outcome.description();
  EXPECT_TRUE(outcome.standardError.starts_with(payload() + " cannot be read: Permission denied"))
      << outcome.standardError;
  EXPECT_FALSE(root().exists(kReceipt));
}

TEST_F(FrontEndCheck, RefusesAManifestThatIsMissingOrDoesNotParse) {
  remove(kManifest);
  EXPECT_TRUE(complaint().starts_with(std::string(kManifest) + " is missing\n"));
  root().writeFile(kManifest, "<plist><dict>");
  EXPECT_TRUE(complaint().starts_with(std::string(kManifest) + " is damaged: "));
}

TEST_F(FrontEndCheck, RefusesAnIndexThatIsMissingOrDoesNotParse) {
  remove(kIndex);
  EXPECT_TRUE(complaint().starts_with(std::string(kIndex) + " is missing\n"));
  root().writeFile(kIndex, "bplist00");
  EXPECT_TRUE(complaint().starts_with(std::string(kIndex) + " is damaged: "));
}

TEST_F(FrontEndCheck, NeverHangsOrDiesOfWhatLiesInTheBundle) {
  using Damage = std::function<void(const std::string&)>;
  const std::vector<Damage> damages = {
      [](const std::string& path) { ASSERT_EQ(mkfifo(path.c_str(), 0644), 0); },
      [](const std::string& path) { std::filesystem::create_directory(path); },
      [](const std::string& path) { std::filesystem::create_symlink(path, path); },
      [](const std::string& path) { std::filesystem::create_symlink("/dev/zero", path); },
      [](const std::string& path) { std::ofstream(path) << std::string(100000, '\xff'); },
  };
  for (const std::string& place : {std::string(kIndex), std::string(kManifest), payload()}) {
    for (const Damage& damage : damages) {
      deliverBundle();
      remove(place);
      damage(root().path(place));
      EXPECT_TRUE(complaint().starts_with(place));
    }
  }
}

TEST_F(FrontEndCheck, PrintsNamesOfTheBundleSafely) {
  bundle().writeManifest("Index", indexOfComponents(kProduct, {"A\tB\u202e"}));
  deliverBundle();
  const std::string printed = complaint();
  EXPECT_EQ(printed.find('\t'), std::string::npos);
  EXPECT_EQ(printed.find("\u202e"), std::string::npos);
  EXPECT_NE(printed.find("A\\x09B"), std::string::npos) << printed;
}

TEST_F(FrontEndCheck, ListsTheFirstProblemsInOrderAndCountsAll) {
  std::vector<std::string> components{"Core"};
  for (int number = 0; number < 30; ++number) {
    components.push_back("C" + std::to_string(number));
  }
  bundle().writeManifest("Index", indexOfComponents(kProduct, components));
  deliverBundle();
  root().writeFile(payload(), "damaged");
  const std::string printed = complaint();
  EXPECT_TRUE(printed.starts_with(inBundle("Contents/Install/Manifests/C0.plist") + " is missing\n" +
                                  inBundle("Contents/Install/Manifests/C1.plist") + " is missing\n"))
      << printed;
  EXPECT_NE(
      printed.find("C19.plist is missing\n... and 11 more.\nThe bundle cannot be installed as it is (problems: 31)."),
      std::string::npos)
      << printed;
}

TEST_F(FrontEndCheck, TellsProgramsWhatIsWrong) {
  root().writeFile(payload(), "damaged");
  const Outcome outcome = refuse({"--json"});
  EXPECT_EQ(outcome.standardError, "");
  EXPECT_EQ(outcome.standardOutput,
            "{\"event\": \"checking\", \"percent\": 0}\n"
            "{\"event\": \"refused\", \"count\": 1, \"problems\": [{\"kind\": \"checksum\", \"file\": \"" +
                payload() +
                "\", \"component\": \"Core\", \"text\": \"is damaged: its checksum is another one (it "
                "becomes /opt/guard/core)\", \"expected\": \"" +
                checksumOf(kContent) + "\", \"found\": \"" + checksumOf("damaged") +
                "\"}]}\n"
                "{\"event\": \"ended\", \"outcome\": \"refused\", \"state\": null, \"text\": \"The bundle cannot be "
                "installed as it is (problems: 1). Nothing was started, and nothing was changed. Fetch the bundle "
                "again.\", \"exitCode\": 65, \"process\": null, \"log\": null}\n");
}

TEST_F(FrontEndCheck, AsksForTheSpaceThatIsMissingAsTheEngineWould) {
  std::uint64_t bundleBytes = 0;
  for (const auto& item : std::filesystem::recursive_directory_iterator(bundle().path())) {
    bundleBytes += item.is_regular_file() ? item.file_size() : 0;
  }
  makeRoot({.way = support::PrivateRoot::Way::Best, .rootSizeBytes = bundleBytes + (16U << 20U)});
  if (!root().hasPrivateMounts()) {
    GTEST_SKIP() << root().whyNoMounts();
  }
  bundle().writeManifest("Core", bundle().readManifest("Core").with("ComponentSize", 64 << 20U));
  deliverBundle();
  const Outcome outcome = refuse({}, 4);
  EXPECT_TRUE(std::regex_match(
      outcome.standardError, std::regex("/ has too little space: [0-9]+ bytes are required and [0-9]+ free\n"
                                        "Insufficient disk space to install\\. Free [0-9]+ bytes \\([0-9.]+ MB\\) more "
                                        "on the system volume\\. Nothing was started, and nothing was changed\\. "
                                        "Exit code 4\\.\n")))
      << outcome.standardError;
  EXPECT_EQ(install().exitCode, 4) << "the engine says the same";
}

TEST_F(FrontEndCheck, CountsTheSpaceOfAnUpgradeThatItselfMakesRoom) {
  makeRoot();
  deliverBundle();
  expectInstalled(runFrontEnd());
  // The same version again needs no space but that of a receipt, whatever the component takes.
  bundle().writeManifest("Core", bundle().readManifest("Core").with("ComponentSize", std::int64_t{1} << 60U));
  deliverBundle();
  expectInstalled(runFrontEnd());
  bundle().writeManifest("Core", bundle().readManifest("Core").with("ComponentVersion", "1.1"));
  deliverBundle();
  refuse({}, 4);
}

// --- what is not ---

TEST_F(FrontEndCheck, LeavesChecksumsToTheEngineWhenAskedTo) {
  root().writeFile(payload(), "damaged");
  const Outcome outcome = runFrontEnd({"--no-check"});
  EXPECT_EQ(outcome.exitCode, 1) << outcome.description();
  EXPECT_NE(root().readFile(kLog).find("Checksum mismatch for component Core."), std::string::npos);
  remove(payload());
  EXPECT_EQ(runFrontEnd({"--no-check"}).exitCode, 65) << "that is seen without reading a file";
}

TEST_F(FrontEndCheck, LooksOnlyAtTheProductAskedFor) {
  bundle().stageFile("Extras", "/opt/extras", "extras");
  bundle().addComponent("Extras", "1.0", "Extras");
  deliverBundle();
  remove(inBundle("Contents/Install/Root/Extras"));
  expectInstalled(runFrontEnd({"--product", kProduct}));
  remove("/Library/Application Support/Corvane");
  EXPECT_EQ(runFrontEnd().exitCode, 65) << "the engine would choose";
}

TEST_F(FrontEndCheck, RefusesNothingThatTheEngineInstalls) {
  const PropertyList core = bundle().readManifest("Core");
  PropertyList::Array entries(core["ListOfFiles"].elements().begin(), core["ListOfFiles"].elements().end());
  entries.push_back(external("/opt/guard/absent", "../../../../Supplied/absent"));
  entries.push_back(external("/opt/guard/elsewhere", "/nowhere/elsewhere"));
  entries.push_back(externalDirectory("/opt/guard/folder", "../Supplied"));
  entries.push_back(link("/opt/guard/link", "/nowhere"));
  entries.push_back(directory("/opt/guard/empty"));
  entries.push_back(entry("/System/Library/skipped", {{"SHAChecksum", "none"}}));
  bundle().writeManifest("Core", core.with("ListOfFiles", array(entries)));
  bundle().writeManifest("Bare", dictionary({}));
  bundle().writeManifest("Index", indexOf(kProduct, product({localPayload({"Core", "Bare"}), dictionary({})})));
  deliverBundle();
  // A link in the payload's place leads to the content.
  const std::string stored = payload();
  std::filesystem::rename(root().path(stored), root().path("/Volumes/stored"));
  root().makeLink(stored, "/Volumes/stored");
  EXPECT_EQ(install().exitCode, 0);
  remove("/opt/guard");
  remove("/Library/Application Support/Corvane");
  const Outcome outcome = runFrontEnd();
  expectInstalled(outcome);
  EXPECT_EQ(outcome.standardError, "Warning: The component Bare has no version: no later version can follow it.\n");
}

TEST_F(FrontEndCheck, NeedsNoPayloadOfWhatTheUserKeeps) {
  expectInstalled(runFrontEnd());
  bundle().writeManifest("Core", bundle().readManifest("Core").with("ComponentVersion", "1.1"));
  deliverBundle();
  remove(payload("/opt/guard/settings"));
  expectInstalled(runFrontEnd());
  EXPECT_EQ(root().readFile("/opt/guard/settings"), "settings");
  remove("/Library/Application Support/Corvane");
  EXPECT_EQ(runFrontEnd().exitCode, 65) << "a first install needs it";
}

TEST_F(FrontEndCheck, LetsAReceiptInstallWithoutPayload) {
  expectInstalled(runFrontEnd());
  const Outcome outcome = root().run({kReceiptFrontEnd});
  EXPECT_EQ(outcome.exitCode, 0) << outcome.description();
  EXPECT_TRUE(outcome.standardError.starts_with("Warning: The receipt " + std::string(kReceipt) + " has no payload"))
      << outcome.standardError;
}

TEST_F(FrontEndCheck, OfARemovalLooksAtTheReceiptsIndexOnly) {
  expectInstalled(runFrontEnd());
  const std::string index = std::string(kReceipt) + "/Contents/Install/Manifests/Index.plist";
  const std::string whole = root().readFile(index);
  root().writeFile(index, "<plist>");
  const Outcome refused = root().run({kReceiptFrontEnd, "--remove"});
  EXPECT_EQ(refused.exitCode, 65) << refused.description();
  EXPECT_TRUE(refused.standardError.starts_with(index + " is damaged: ")) << refused.standardError;
  EXPECT_NE(refused.standardError.find("The receipt cannot be read. "), std::string::npos);
  EXPECT_TRUE(root().exists(kFile));
  root().writeFile(index, whole);
  const Outcome removed = root().run({kReceiptFrontEnd, "--remove"});
  EXPECT_EQ(removed.exitCode, 0) << removed.description();
  EXPECT_FALSE(root().exists(kFile));
}

TEST_F(FrontEndCheck, IsNotMadeForWhoIsNotRoot) {
  remove(payload());
  const Outcome outcome = runFrontEnd({}, asUser());
  EXPECT_EQ(outcome.exitCode, 1);
  EXPECT_NE(outcome.standardError.find("It has to run as root"), std::string::npos) << outcome.description();
}

// --- leaving ---

TEST_F(FrontEndCheck, IsLeftAtOnceByASignal) {
  // Far more than can be read before the signal comes.
  const PropertyList core = bundle().readManifest("Core");
  PropertyList::Array entries;
  for (int number = 0; number < 24; ++number) {
    const std::string name = "large" + std::to_string(number);
    entries.push_back(entry("/opt/guard/" + name, {{"SHAChecksum", name}}));
  }
  bundle().writeManifest("Core", core.with("ListOfFiles", array(entries)));
  deliverBundle();
  for (const PropertyList& large : entries) {
    const std::string stored = inBundle("Contents/Install/Root/Core/" + std::string(large["SHAChecksum"].text()));
    root().writeFile(stored, "");
    std::filesystem::resize_file(root().path(stored), 1U << 30U);
  }
  for (const int signal : {SIGINT, SIGTERM, SIGHUP}) {
    auto frontEnd = startFrontEnd();
    ASSERT_TRUE(frontEnd.waitForStandardOutput("Checking the bundle\n")) << frontEnd.standardErrorSoFar();
    frontEnd.kill(signal);
    const Outcome outcome = frontEnd.wait();
    EXPECT_EQ(outcome.exitCode, 75) << outcome.description();
    EXPECT_TRUE(outcome.standardOutput.ends_with(std::string(kNothingChanged) + " Exit code 75.\n"))
        << outcome.standardOutput;
    EXPECT_EQ(outcome.standardOutput.find("Engine started"), std::string::npos);
    EXPECT_FALSE(root().exists(kLog));
  }
}

}  // namespace
}  // namespace tests
