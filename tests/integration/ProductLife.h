#pragma once

#include <string>
#include <vector>

#include "tests/integration/EngineInRoot.h"

namespace tests {

/// A product in two versions, installed, upgraded and removed by the real engine in a private root, with its receipt's
/// engine as a process of its own. Needs a root with processes.
///
///   1.0  Core 1.0    /Library/Guard with core, guard.conf (modifiable) and licence (external); a launch daemon
///        Tools 1.0   /opt/tools/one
///        Legacy 1.0  /opt/legacy/old
///   1.1  Core 1.1    core changed, more added
///        Tools 1.0
///        Extra 1.0   /opt/extra/new
class ProductLife : public EngineInRoot {
 protected:
  static constexpr const char* kReceiptEngine =
      "/Library/Application Support/Corvane/Guard/Installer.app/Contents/MacOS/InstallationDeployer";
  static constexpr const char* kConfiguration = "/Library/Guard/guard.conf";
  static constexpr const char* kLicence = "/etc/licence";

  [[nodiscard]] bool needsProc() const override { return true; }

  void prepare() override {
    makeCore(bundle(), "1.0", "core 1");
    makeTools(bundle());
    bundle().stageFile("Legacy", "/opt/legacy/old", "old");
    bundle().addComponent("Legacy", "1.0", kProduct);
    bundle().setOptions(dictionary({{"ReceiptHasPayloadContents", false}}));

    newBundle_.stageFile("Core", "/Library/Guard/more", "more");
    makeCore(newBundle_, "1.1", "core, second edition");
    makeTools(newBundle_);
    newBundle_.stageFile("Extra", "/opt/extra/new", "new");
    newBundle_.addComponent("Extra", "1.0", kProduct);
    newBundle_.setOptions(dictionary({{"ReceiptHasPayloadContents", false}}));
    furnish();
  }

  /// Things that are on the machine before the product is.
  void furnish() {
    root().makeDirectory("/Library/Application Support");
    root().makeDirectory("/Library/LaunchDaemons");
    root().makeDirectory("/opt");
    root().writeFile(kLicence, "licensed");
    static_cast<void>(root().shell("mkdir -p /var/run"));
  }
  void beginAgain() {
    makeRoot();
    furnish();
  }

  BundleMaker& newBundle() { return newBundle_; }
  void deliverNewBundle() { deliver(newBundle_); }
  void deliver(const BundleMaker& made) {
    static_cast<void>(root().run({"/bin/rm", "-rf", kBundle}));
    root().copyIn(made.path(), kBundle);
  }
  void installFirstVersion() {
    deliverBundle();
    const auto outcome = install();
    ASSERT_EQ(outcome.exitCode, 0) << outcome.description();
    root().writeFile(kConfiguration, "edited by the user");
  }
  support::Outcome removeProduct() { return root().run({kReceiptEngine, "--remove"}); }

  /// Everything that an install changes.
  support::Snapshot machine() {
    support::Snapshot all = root().snapshot("/Library");
    const support::Snapshot more = root().snapshot("/opt");
    all.insert(all.end(), more.begin(), more.end());
    return all;
  }
  ino_t inodeOf(const std::string& inside) {
    struct stat item {};
    return stat(root().path(inside).c_str(), &item) == 0 ? item.st_ino : 0;
  }

 private:
  static void makeCore(BundleMaker& made, const std::string& version, const std::string& content) {
    made.stageDirectory("Core", "/Library/Guard", 0751, 501, 20);
    made.stageFile("Core", "/Library/Guard/core", content, 0755);
    made.stageFile("Core", kConfiguration, "default of " + version, 0640);
    made.stageFile("Core", "/Library/LaunchDaemons/com.corvane.guard.plist", "<plist/>");
    made.addComponent("Core", version, kProduct,
                      dictionary({{"ListOfModifiableFiles", array({PropertyList(kConfiguration)})},
                                  {"ListOfFiles", array({dictionary({{"Path", "/Library/Guard/licence"},
                                                                     {"ExternalSourcePath", kLicence},
                                                                     {"CheckForExternalFileChanges", true},
                                                                     {"NSFileOwnerAccountID", 0},
                                                                     {"NSFileGroupOwnerAccountID", 80},
                                                                     {"NSFilePosixPermissions", 0640}})})}}));
  }
  static void makeTools(BundleMaker& made) {
    made.stageFile("Tools", "/opt/tools/one", "one", 0755);
    made.addComponent("Tools", "1.0", kProduct);
  }

  BundleMaker newBundle_{CORVANE_ENGINE};
};

}  // namespace tests
