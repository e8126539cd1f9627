#include <algorithm>
#include <charconv>
#include <cstdint>
#include <functional>
#include <map>
#include <stdexcept>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "general/foundation/propertylist/PropertyListFile.h"
#include "general/foundation/propertylist/TextFormat.h"
#include "tests/integration/EngineInRoot.h"

namespace tests {
namespace {

/// Manifests in which one value is of a type that its key does not have. Each key is given a value that a run obeys,
/// none, and wrong ones: a run must not tell a wrong one from none, but the value that it obeys from both.
class WrongType : public EngineInRoot {
 protected:
  struct Case {
    std::string manifest;
    std::string path;  ///< keys and indices, with a "/" between them
    PropertyList obeyed;
    std::vector<PropertyList> wrong;
  };
  /// What an administrator would see of a run. What the receipt keeps of the bundle's manifests is left out.
  struct Seen {
    int exitCode = -1;
    std::vector<std::string> messages;  ///< Notice and above, their first lines
    std::vector<std::string> commands;
    support::Snapshot machine;
    bool operator==(const Seen&) const = default;
  };
  using Options = std::vector<std::string>;

  static constexpr const char* kOldProduct = "Old";
  static constexpr const char* kReceiptEngine =
      "/Library/Application Support/Corvane/Guard/Installer.app/Contents/MacOS/InstallationDeployer";

  // Values that no product would have, so that they are found in messages that print them.
  static PropertyList wrongNumber() { return {7777}; }
  static PropertyList wrongText() { return {"wrong type"}; }
  static PropertyList wrongList() { return array({wrongNumber()}); }
  static PropertyList wrongDictionary() { return dictionary({{"wrong", 7777}}); }

  static Case text(std::string manifest, std::string path, PropertyList obeyed) {
    return {std::move(manifest), std::move(path), std::move(obeyed), {wrongNumber(), wrongList(), wrongDictionary()}};
  }
  static Case number(std::string manifest, std::string path, PropertyList obeyed) {
    return {std::move(manifest), std::move(path), std::move(obeyed), {wrongText(), wrongList(), wrongDictionary()}};
  }
  /// A text or a number is a truth value, too.
  static Case truth(std::string manifest, std::string path) {
    return {std::move(manifest), std::move(path), true, {wrongList(), wrongDictionary()}};
  }
  static Case list(std::string manifest, std::string path, PropertyList obeyed) {
    return {std::move(manifest), std::move(path), std::move(obeyed), {wrongNumber(), wrongText(), wrongDictionary()}};
  }
  static Case table(std::string manifest, std::string path, PropertyList obeyed) {
    return {std::move(manifest), std::move(path), std::move(obeyed), {wrongNumber(), wrongText(), wrongList()}};
  }

  void prepare() override {
    makeComponents();
    manifests_["Index"] = dictionary(
        {{"Products", dictionary({{kProduct, product({"Core"})}, {"Other", product({"Second"})}})},
         {"ProductDetectionList", array({detected("Other", "/nowhere"), detected(kProduct, "/opt/old")})},
         {"ProductRemovals", array({detected(kOldProduct, "/opt/old").with("ListOfComponents", array({"OldCore"}))})}});
    for (const char* component : {"Core", "Second", "OldCore"}) {
      manifests_[component] = bundle().readManifest(component);
    }
  }

  /// Where the entry of a file stands in the manifest of "Core".
  std::string entry(const std::string& installPath) {
    const PropertyList files = manifests_["Core"]["ListOfFiles"];
    for (std::size_t index = 0; index < files.count(); ++index) {
      if (files.at(index)["Path"].text() == installPath) {
        return "ListOfFiles/" + std::to_string(index) + "/";
      }
    }
    throw std::runtime_error("no entry for " + installPath);
  }
  PropertyList& manifest(const std::string& name) { return manifests_[name]; }

  /// What is done with a bundle that holds a value, on a machine that has an older product.
  struct Scene {
    std::function<void()> before;  ///< with the bundle as it was made
    std::function<support::Outcome()> run;
  };
  Scene freshInstall(const Options& options = {"--install", "--product_name", kProduct}) {
    return {[] {}, [this, options] { return runEngine(options); }};
  }
  void expectAbsent(const std::vector<Case>& cases) { expectAbsent(cases, freshInstall()); }
  void expectAbsent(const std::vector<Case>& cases, const Scene& scene) {
    ASSERT_FALSE(cases.empty());
    for (const Case& tried : cases) {
      SCOPED_TRACE(tried.manifest + ": " + tried.path);
      const Seen absent = seenWith({}, tried, scene);
      EXPECT_FALSE(seenWith(tried.obeyed, tried, scene) == absent) << "the value makes no difference";
      ASSERT_FALSE(tried.wrong.empty());
      for (const PropertyList& wrong : tried.wrong) {
        SCOPED_TRACE(foundation::format("%@", wrong));
        expectEqual(seenWith(wrong, tried, scene), absent);
      }
    }
  }
  static void expectEqual(const Seen& found, const Seen& wanted) {
    EXPECT_EQ(found.exitCode, wanted.exitCode);
    EXPECT_EQ(found.messages, wanted.messages);
    EXPECT_EQ(found.commands, wanted.commands);
    EXPECT_EQ(support::difference(found.machine, wanted.machine), "");
  }

  void furnish() {
    root().writeFile("/etc/licence", "licensed");
    root().writeFile("/opt/old/file", "of the older product");
    root().writeFile("/opt/old/stranger", "of somebody else");
  }

 private:
  static PropertyList product(const std::vector<std::string>& components) {
    const PropertyList crossGrade =
        dictionary({{"ProductName", kOldProduct}, {"AllowCrossGrades", true}, {"TreatAsUpdate", true}});
    return PropertyLists::product({localPayload(components)}, array({crossGrade}));
  }
  static PropertyList detected(const std::string& name, const std::string& path) {
    return dictionary({{"ProductName", name}, {"ProductDetectionPaths", array({PropertyList(path)})}});
  }
  void makeComponents() {
    bundle().stageDirectory("Core", "/opt/guard", 0751, 501, 20);
    bundle().stageFile("Core", "/opt/guard/file", "content", 0640, 501, 20);
    bundle().stageFile("Core", "/opt/guard/run", "#!/bin/sh\necho ran >>/opt/guard/evidence\n", 0755);
    bundle().stageLink("Core", "/opt/guard/link", "file");
    bundle().stageFile("Core", "/Library/LaunchDaemons/com.corvane.guard.plist", "<plist/>");
    bundle().addComponent(
        "Core", "1", kProduct,
        dictionary(
            {{"ListOfFiles", array({dictionary({{"Path", "/opt/guard/licence"},
                                                {"ExternalSourcePath", "/etc/licence"},
                                                {"NSFileOwnerAccountID", 0},
                                                {"NSFileGroupOwnerAccountID", 0},
                                                {"NSFilePosixPermissions", 0644}})})},
             {"ListOfExecutables", array({dictionary({{"Path", "/opt/guard/run"}, {"ExecuteOnInstall", true}})})}}));
    bundle().stageFile("Second", "/opt/second", "second");
    bundle().addComponent("Second", "1", "Other");
    bundle().stageFile("OldCore", "/opt/old/file", "of the older product");
    bundle().addComponent("OldCore", "1", kOldProduct);
  }
  void write(const std::string& name, const PropertyList& content) {
    const auto document = foundation::plist::serialize(content, foundation::plist::Format::Xml);
    ASSERT_TRUE(document.ok());
    root().writeFile(inBundle("Contents/Install/Manifests/" + name + ".plist"), *document);
  }
  Seen seenWith(const PropertyList& value, const Case& tried, const Scene& scene) {
    makeRoot();
    furnish();
    deliverBundle();
    scene.before();
    root().forgetRecordedCalls();
    for (const auto& [name, content] : manifests_) {
      write(name, name == tried.manifest ? replaced(content, tried.path, value) : content);
    }
    Seen result = seen(scene.run());
    printWrongAsAbsent(result, value);
    return result;
  }
  Seen seen(const support::Outcome& outcome) {
    Seen result;
    EXPECT_FALSE(outcome.timedOut);
    EXPECT_EQ(outcome.signal, 0) << outcome.description();
    result.exitCode = outcome.exitCode;
    for (const LoggedMessage& message : parseLog(outcome.standardError)) {
      if (message.level != "Debug" && message.level != "Info") {
        result.messages.push_back(message.level + ": " + message.text);
      }
    }
    for (const auto& call : root().recordedCalls()) {
      std::string command;
      for (const std::string& argument : call.arguments) {
        command += argument + " ";
      }
      result.commands.push_back(command);
    }
    for (const char* folder : {"/Library", "/opt"}) {
      for (support::SnapshotEntry& item : root().snapshot(folder)) {
        if (item.path.find("/Contents/Install/Manifests/") == std::string::npos) {
          result.machine.push_back(std::move(item));
        }
      }
    }
    return result;
  }
  /// The value with another one at a place inside; nil leaves that place out.
  static PropertyList replaced(const PropertyList& whole, std::string_view path, const PropertyList& value) {
    const std::size_t end = path.find('/');
    const std::string_view step = path.substr(0, end);
    const std::string_view rest = end == std::string_view::npos ? std::string_view() : path.substr(end + 1);
    if (!whole.isArray()) {
      return whole.with(step, rest.empty() ? value : replaced(whole[step], rest, value));
    }
    std::size_t index = 0;
    std::from_chars(step.data(), step.data() + step.size(), index);
    PropertyList::Array elements(whole.elements().begin(), whole.elements().end());
    elements.at(index) = replaced(elements.at(index), rest, value);
    return {std::move(elements)};
  }
  /// A message may print the value that it found; what it then goes on with is the same. A dictionary that holds the
  /// value is printed in several lines, of which only the first is compared.
  static void printWrongAsAbsent(Seen& seen, const PropertyList& value) {
    const std::string printed = foundation::format("%@", value);
    const std::string absent = "(null)";
    for (std::string& message : seen.messages) {
      for (auto at = message.find(printed); at != std::string::npos; at = message.find(printed, at + absent.size())) {
        message.replace(at, printed.size(), absent);
      }
      message.resize(std::min(message.find('\n'), message.size()));
    }
  }

  std::map<std::string, PropertyList> manifests_;
};

constexpr std::int64_t kMoreThanAnyVolumeHas = std::int64_t{1} << 60;

TEST_F(WrongType, CountsAsAbsentInTheIndex) {
  PropertyList& index = manifest("Index");
  index = index.with("ReceiptHasPayloadContents", true);
  expectAbsent({
      table("Index", "Products", index["Products"]),
      list("Index", "ProductRemovals", index["ProductRemovals"]),
      number("Index", "PayloadSize", kMoreThanAnyVolumeHas),
      number("Index", "ReceiptSize", kMoreThanAnyVolumeHas),
      truth("Index", "ReceiptHasPayloadContents"),
  });
}

TEST_F(WrongType, CountsAsAbsentInAProductAndItsPhases) {
  const PropertyList product = manifest("Index")["Products"][kProduct];
  const std::string path = "Products/" + std::string(kProduct) + "/";
  expectAbsent({
      list("Index", path + "ListOfInstallPhases", product["ListOfInstallPhases"]),
      text("Index", path + "ListOfInstallPhases/0/InstallPhaseType", "LocalPayload"),
      list("Index", path + "ListOfInstallPhases/0/ListOfComponents", array({"Core"})),
      list("Index", path + "CrossGrades", product["CrossGrades"]),
      text("Index", path + "CrossGrades/0/ProductName", kOldProduct),
      truth("Index", path + "CrossGrades/0/AllowCrossGrades"),
      truth("Index", path + "CrossGrades/0/TreatAsUpdate"),
  });
}

TEST_F(WrongType, CountsAsAbsentInWhatIsDetected) {
  expectAbsent(
      {
          list("Index", "ProductDetectionList", manifest("Index")["ProductDetectionList"]),
          text("Index", "ProductDetectionList/1/ProductName", kProduct),
      },
      freshInstall({"--install"}));
  expectAbsent({
      text("Index", "ProductRemovals/0/ProductName", kOldProduct),
      list("Index", "ProductRemovals/0/ListOfComponents", array({"OldCore"})),
  });
}

TEST_F(WrongType, CountsAsAbsentInAComponent) {
  expectAbsent({
      number("Core", "ComponentSize", kMoreThanAnyVolumeHas),
      list("Core", "ListOfFiles", manifest("Core")["ListOfFiles"]),
      list("Core", "ListOfExecutables", manifest("Core")["ListOfExecutables"]),
      list("Core", "ListOfLaunchDaemons", array({"com.corvane.guard"})),
      list("Core", "ListOfLaunchAgents", array({"com.corvane.agent"})),
      truth("Core", "RebuildKextCache"),
      text("Core", "ListOfExecutables/0/Path", "/opt/guard/run"),
      truth("Core", "ListOfExecutables/0/ExecuteOnInstall"),
      truth("Core", "ListOfExecutables/0/IsApplication"),
      truth("Core", "ListOfExecutables/0/RunOnce"),
  });
}

TEST_F(WrongType, CountsAsAbsentInTheEntryOfAFile) {
  const std::string checksum =
      bundle().payloadPath("Core", "/opt/guard/file").substr(bundle().path("Contents/Install/Root/Core/").size());
  expectAbsent({
      text("Core", entry("/opt/guard/file") + "Path", "/opt/guard/file"),
      text("Core", entry("/opt/guard/file") + "SHAChecksum", checksum),
      number("Core", entry("/opt/guard/file") + "NSFileOwnerAccountID", 501),
      number("Core", entry("/opt/guard/file") + "NSFileGroupOwnerAccountID", 20),
      number("Core", entry("/opt/guard/file") + "NSFilePosixPermissions", 0640),
      text("Core", entry("/opt/guard/licence") + "ExternalSourcePath", "/etc/licence"),
      truth("Core", entry("/opt/guard") + "IsDirectory"),
      truth("Core", entry("/opt/guard/link") + "IsSymbolicLink"),
      text("Core", entry("/opt/guard/link") + "SymbolicLinkTarget", "file"),
  });
}

TEST_F(WrongType, CountsAsAbsentInWhatIsRemoved) {
  manifest("OldCore") = dictionary({{"ListOfFiles", array({dictionary({{"Path", "/opt/old"}, {"IsDirectory", true}}),
                                                           dictionary({{"Path", "/opt/old/file"}})})}});
  expectAbsent({
      text("OldCore", "ListOfFiles/0/Path", "/opt/old"),
      truth("OldCore", "ListOfFiles/0/RemoveDirectoryAndContents"),
      truth("OldCore", "ListOfFiles/1/IsModifiableFile"),
  });
}

class WrongTypeBesideAReceipt : public WrongType {
 protected:
  [[nodiscard]] bool needsProc() const override { return true; }

  static constexpr const char* kInstalled = "/opt/guard/file";

  /// The product is installed from the bundle as it was made; what counts is the install over it.
  Scene upgrade() {
    return {[this] {
              const auto first = runEngine({"--install", "--product_name", kProduct});
              EXPECT_EQ(first.exitCode, 0) << first.description();
              root().writeFile("/etc/licence", "another licence");
            },
            [this] {
              return runEngine({"--install", "--product_name", kProduct});
            }};
  }
  /// The product is installed from the bundle that holds the value, and removed by its receipt.
  Scene removal() {
    return {[] {},
            [this] {
              const auto first = runEngine({"--install", "--product_name", kProduct});
              EXPECT_EQ(first.exitCode, 0) << first.description();
              furnish();
              return root().run({kReceiptEngine, "--remove"});
            }};
  }
};

TEST_F(WrongTypeBesideAReceipt, CountsAsAbsentInAnUpgrade) {
  expectAbsent({text("Core", "ComponentVersion", "1"),
                truth("Core", entry("/opt/guard/licence") + "CheckForExternalFileChanges")},
               upgrade());
  manifest("Core") = manifest("Core").with("ComponentVersion", "2");
  expectAbsent({truth("Core", entry(kInstalled) + "IsModifiableFile")}, upgrade());
}

TEST_F(WrongTypeBesideAReceipt, CountsAsAbsentInWhatARemovalCleansUp) {
  const PropertyList cleanup = dictionary({{"ListOfComponents", array({"OldCore"})}});
  expectAbsent({table("Index", "ProductCleanup", cleanup)}, removal());
  manifest("Index") = manifest("Index").with("ProductCleanup", cleanup);
  expectAbsent({list("Index", "ProductCleanup/ListOfComponents", array({"OldCore"}))}, removal());
}

}  // namespace
}  // namespace tests
