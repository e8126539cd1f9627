#include <fcntl.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/sysmacros.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <functional>
#include <random>

#include "general/foundation/propertylist/PropertyListFile.h"
#include "tests/integration/EngineInRoot.h"

namespace tests {
namespace {

namespace plist = foundation::plist;

/// Bundles that somebody damaged or made to do damage. The engine ends by itself with one of its own exit codes.
class HostileBundle : public EngineInRoot {
 protected:
  using Damage = std::function<void(const std::string&)>;

  void prepare() override {
    bundle().stageFile("Core", "/opt/guard/file", "content");
    bundle().addComponent("Core", "1", kProduct);
    deliverBundle();
  }

  static std::string index() { return inBundle("Contents/Install/Manifests/Index.plist"); }
  static std::string core() { return inBundle("Contents/Install/Manifests/Core.plist"); }
  std::string payload() {
    return inBundle(bundle().payloadPath("Core", "/opt/guard/file").substr(bundle().path().size() + 1));
  }
  static support::RunOptions bounded() {
    support::RunOptions options;
    options.limit = std::chrono::seconds(60);
    return options;
  }
  /// Runs an install over the bundle as it is, and checks that it ended by itself.
  support::Outcome installHostile() {
    auto outcome = install(bounded());
    EXPECT_FALSE(outcome.timedOut);
    EXPECT_EQ(outcome.signal, 0) << outcome.description();
    EXPECT_TRUE(outcome.exitCode == 0 || outcome.exitCode == 1 || outcome.exitCode == 4) << outcome.description();
    return outcome;
  }
  void writeInside(const std::string& inside, const PropertyList& value, plist::Format format = plist::Format::Xml) {
    const auto document = plist::serialize(value, format);
    ASSERT_TRUE(document.ok());
    root().writeFile(inside, *document);
  }
  /// Installs in a new root, over the bundle with one damaged file.
  support::Outcome installDamaged(const std::string& file, const Damage& damage) {
    makeRoot();
    deliverBundle();
    damage(root().path(file));
    return installHostile();
  }
  /// The files that a run reads, each damaged in every way; the bundle is made whole again in between.
  static std::vector<std::pair<std::string, Damage>> damages() {
    return {
        {"missing", [](const std::string& path) { std::filesystem::remove(path); }},
        {"empty", [](const std::string& path) { std::filesystem::resize_file(path, 0); }},
        {"truncated",
         [](const std::string& path) { std::filesystem::resize_file(path, std::filesystem::file_size(path) / 2); }},
        {"garbage", [](const std::string& path) { std::ofstream(path) << "\x01\xff garbage <plist"; }},
        {"folder",
         [](const std::string& path) {
           std::filesystem::remove(path);
           std::filesystem::create_directory(path);
         }},
        {"pipe",
         [](const std::string& path) {
           std::filesystem::remove(path);
           ASSERT_EQ(mkfifo(path.c_str(), 0644), 0);
         }},
        {"device",
         [](const std::string& path) {
           std::filesystem::remove(path);
           ASSERT_EQ(mknod(path.c_str(), S_IFCHR | 0644, makedev(1, 5)), 0);
         }},
        {"link loop",
         [](const std::string& path) {
           std::filesystem::remove(path);
           std::filesystem::create_symlink(std::filesystem::path(path).filename(), path);
         }},
        {"sparse beyond memory",
         [](const std::string& path) { std::filesystem::resize_file(path, std::uintmax_t{1} << 42); }},
    };
  }
  static bool leavesNothingOrWhatDoesNotParse(const std::string& damage) {
    return damage == "missing" || damage == "empty" || damage == "truncated" || damage == "garbage";
  }
  PropertyList coreEntry(std::vector<std::pair<std::string, PropertyList>> entries) {
    return dictionary({{"ComponentVersion", "1"}, {"ListOfFiles", array({dictionary(std::move(entries))})}});
  }
};

TEST_F(HostileBundle, DamagedIndexLeavesNoProductToSelect) {
  for (const auto& [name, damage] : damages()) {
    SCOPED_TRACE(name);
    deliverBundle();
    damage(root().path(index()));
    const auto outcome = installHostile();
    EXPECT_EQ(outcome.exitCode, 1);
    EXPECT_TRUE(loggedBeginning(outcome, "Error", "Unable to select product. Products = ("));
    EXPECT_FALSE(root().exists("/opt/guard"));
  }
}

TEST_F(HostileBundle, ComponentManifestThatIsMissingOrDoesNotParseContributesNothing) {
  bundle().stageFile("More", "/opt/more/file", "more");
  bundle().addComponent("More", "1", kProduct);
  for (const auto& [name, damage] : damages()) {
    if (!leavesNothingOrWhatDoesNotParse(name)) {
      continue;
    }
    SCOPED_TRACE(name);
    const auto outcome = installDamaged(core(), damage);
    EXPECT_EQ(outcome.exitCode, 0) << outcome.description();
    EXPECT_EQ(logged(outcome, "Warning",
                     "The manifest of component Core is missing or damaged: " + core() + ". It contributes nothing."),
              1)
        << outcome.standardError;
    EXPECT_FALSE(loggedAnything(outcome, "Error")) << outcome.standardError;
    EXPECT_FALSE(root().exists("/opt/guard"));
    EXPECT_EQ(root().readFile("/opt/more/file"), "more");
    EXPECT_TRUE(root().exists(kReceipt));
  }
}

TEST_F(HostileBundle, ComponentManifestThatCannotBeReadFailsTheRunBeforeAnythingIsInstalled) {
  for (const auto& [name, damage] : damages()) {
    if (leavesNothingOrWhatDoesNotParse(name)) {
      continue;
    }
    SCOPED_TRACE(name);
    const auto outcome = installDamaged(core(), damage);
    EXPECT_EQ(outcome.exitCode, 1);
    EXPECT_TRUE(loggedBeginning(outcome, "Error", "Failed to read manifest for Core. Error Domain="))
        << outcome.standardError;
    EXPECT_FALSE(root().exists("/opt/guard"));
    EXPECT_FALSE(root().exists(kReceipt));
  }
}

TEST_F(HostileBundle, ComponentsThatAreNoTextsAndThoseThatNoStepReadsGoUnnoticed) {
  const auto phase = [](const char* type, PropertyList components) {
    return dictionary({{"InstallPhaseType", type}, {"ListOfComponents", std::move(components)}});
  };
  const PropertyList phases =
      array({phase("LocalPayload", array({7, "Core", true, array({"Core"})})), phase("Other", array({"Gone"}))});
  const PropertyList products = dictionary({{kProduct, dictionary({{"ListOfInstallPhases", phases}})}});
  writeInside(index(), dictionary({{"Products", products}}));
  const auto outcome = installHostile();
  EXPECT_EQ(outcome.exitCode, 0) << outcome.description();
  EXPECT_FALSE(loggedAnything(outcome, "Warning")) << outcome.standardError;
  EXPECT_EQ(root().readFile("/opt/guard/file"), "content");
}

TEST_F(HostileBundle, DamagedPayloadIsAnErrorAndNothingIsWritten) {
  for (const auto& [name, damage] : damages()) {
    SCOPED_TRACE(name);
    const auto outcome = installDamaged(payload(), damage);
    EXPECT_EQ(outcome.exitCode, 1);
    EXPECT_TRUE(loggedBeginning(outcome, "Error", "path doesn't exist at " + payload()) ||
                loggedBeginning(outcome, "Error", "Checksum mismatch for component Core.") ||
                loggedBeginning(outcome, "Error", "Error: Error Domain="))
        << outcome.standardError;
    EXPECT_FALSE(root().exists("/opt/guard/file"));
    EXPECT_FALSE(root().exists(kReceipt));
  }
}

TEST_F(HostileBundle, DamagedFrontEndFailsTheReceipt) {
  const std::string frontEnd = inBundle("Contents/MacOS/Installer");
  for (const auto& [name, damage] : damages()) {
    if (name == "empty" || name == "truncated" || name == "garbage") {
      continue;
    }
    SCOPED_TRACE(name);
    const auto outcome = installDamaged(frontEnd, damage);
    // A folder of that name is copied as such; everything else leaves no front end for the receipt.
    EXPECT_EQ(outcome.exitCode, name == "folder" ? 0 : 1) << outcome.description();
  }
}

TEST_F(HostileBundle, NestingWithoutEndIsNoIndex) {
  std::string document = "<?xml version=\"1.0\"?><plist version=\"1.0\">";
  for (int level = 0; level < 1000000; ++level) {
    document += "<array>";
  }
  root().writeFile(index(), document);
  EXPECT_EQ(installHostile().exitCode, 1);
}

TEST_F(HostileBundle, LengthThatClaimsMoreThanIsThereIsNoIndex) {
  std::string document = "bplist00";
  document += std::string("\x5f\x13\x7f\xff\xff\xff\xff\xff\xff\xff", 10) + "A";
  document += '\x08';
  document += std::string("\0\0\0\0\0\0\x01\x01", 8) + std::string("\0\0\0\0\0\0\0\x01", 8) + std::string(8, '\0') +
              std::string("\0\0\0\0\0\0\0\x13", 8);
  root().writeFile(index(), document);
  EXPECT_EQ(installHostile().exitCode, 1);
}

TEST_F(HostileBundle, EntryWithoutAPathNeverTouchesTheRoot) {
  const auto before = root().snapshot("/").front();
  for (const bool directory : {true, false}) {
    writeInside(core(), coreEntry({{"IsDirectory", directory},
                                   {"NSFileOwnerAccountID", 501},
                                   {"NSFileGroupOwnerAccountID", 20},
                                   {"NSFilePosixPermissions", 0700},
                                   {"SHAChecksum", "x"}}));
    EXPECT_EQ(installHostile().exitCode, 1);
    EXPECT_EQ(root().snapshot("/").front(), before);
  }
}

TEST_F(HostileBundle, PathsBeyondTheLimitsOrWithANulAreErrors) {
  const std::vector<std::string> badPaths = {"/opt/" + std::string(256, 'n'), "/opt" + std::string(3000, '/') + "x/y",
                                             std::string("/opt/cut\0here", 13), "/opt/../../escape"};
  for (const std::string& path : badPaths) {
    SCOPED_TRACE(path.substr(0, 20));
    makeRoot();
    deliverBundle();
    const PropertyList entry =
        bundle().readManifest("Core")["ListOfFiles"].at(bundle().readManifest("Core")["ListOfFiles"].count() - 1);
    writeInside(core(), dictionary({{"ComponentVersion", "1"}, {"ListOfFiles", array({entry.with("Path", path)})}}),
                plist::Format::Binary);
    const auto outcome = installHostile();
    EXPECT_FALSE(root().exists("/opt/cut"));
    EXPECT_FALSE(root().exists("/escape"));
    EXPECT_EQ(outcome.exitCode, path.find("///") == std::string::npos ? 1 : 0) << outcome.description();
  }
  makeRoot();
  deliverBundle();
  std::string deep;
  for (int level = 0; level < 2500; ++level) {
    deep += "/d";
  }
  const PropertyList entry =
      bundle().readManifest("Core")["ListOfFiles"].at(bundle().readManifest("Core")["ListOfFiles"].count() - 1);
  writeInside(core(), dictionary({{"ComponentVersion", "1"}, {"ListOfFiles", array({entry.with("Path", deep)})}}));
  EXPECT_EQ(installHostile().exitCode, 1);
}

TEST_F(HostileBundle, ChecksumThatIsAPathLeadsNowhere) {
  root().writeFile("/etc/shadow", "root:secret");
  writeInside(core(), coreEntry({{"Path", "/opt/guard/stolen"},
                                 {"SHAChecksum", "../../../../../../../etc/shadow"},
                                 {"NSFileOwnerAccountID", 501}}));
  EXPECT_EQ(installHostile().exitCode, 1);
  EXPECT_FALSE(root().exists("/opt/guard/stolen"));
}

TEST_F(HostileBundle, ComponentNameThatIsAPathReadsNoOtherFile) {
  writeInside("/evil.plist", bundle().readManifest("Core"));
  writeInside(
      index(),
      dictionary(
          {{"Products",
            dictionary(
                {{kProduct,
                  dictionary({{"ListOfInstallPhases",
                               array({dictionary({{"InstallPhaseType", "LocalPayload"},
                                                  {"ListOfComponents", array({"../../../../../../evil"})}})})}})}})}}));
  const auto outcome = installHostile();
  EXPECT_EQ(outcome.exitCode, 1);
  EXPECT_TRUE(loggedBeginning(outcome, "Error", "Failed to read manifest for ../../../../../../evil. "));
  EXPECT_FALSE(root().exists("/opt/guard"));
}

TEST_F(HostileBundle, TextFromTheBundleCannotForgeALogLine) {
  writeInside(
      index(),
      dictionary({{"Products", dictionary({{"A\nNov 21 00:00:00 host Corvane Installer[1] <Notice>: forged\x1b[2J",
                                            dictionary({})}})}}),
      plist::Format::Binary);
  const auto outcome = installHostile();
  EXPECT_NE(outcome.standardError.find("<Notice>: forged"), std::string::npos) << outcome.standardError;
  EXPECT_EQ(outcome.standardError.find("\nNov 21 00:00:00 host"), std::string::npos);
  EXPECT_EQ(outcome.standardError.find('\x1b'), std::string::npos);
}

TEST_F(HostileBundle, RandomlyDamagedManifestsAreSurvived) {
  const auto damaged = [](std::string document, std::mt19937& random) {
    for (int change = 0; change < 4; ++change) {
      document[random() % document.size()] = static_cast<char>(random() % 256);
    }
    return document;
  };
  const auto indexDocument = plist::serialize(bundle().readManifest("Index"), plist::Format::Binary);
  const auto coreDocument = plist::serialize(bundle().readManifest("Core"), plist::Format::Binary);
  ASSERT_TRUE(indexDocument.ok() && coreDocument.ok());
  std::mt19937 random(20260101);
  for (int round = 0; round < 40; ++round) {
    SCOPED_TRACE(round);
    root().writeFile(index(), round % 2 == 0 ? damaged(*indexDocument, random) : *indexDocument);
    root().writeFile(core(), damaged(*coreDocument, random));
    installHostile();
    static_cast<void>(root().run({"/bin/rm", "-rf", "/Library/Application Support"}));
  }
}

}  // namespace
}  // namespace tests
