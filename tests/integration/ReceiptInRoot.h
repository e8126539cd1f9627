#pragma once

#include <string>
#include <vector>

#include "tests/integration/StepInRoot.h"

namespace tests {

/// The step that writes the receipt of "Guard", and the places that it uses.
class ReceiptInRoot : public StepInRoot {
 protected:
  static inline const std::string kLocation = "/Library/Application Support/Corvane";
  static inline const std::string kFolder = kLocation + "/Guard";
  static inline const std::string kReceipt = kFolder + "/Installer.app";
  static inline const std::string kTemporary = kFolder + "/temp";
  static inline const std::string kStaging = kTemporary + "/Installer.app";
  static inline const std::string kSucceeded = "success=1 state=0 published=\n";
  static inline const std::string kFailed = "success=0 state=1 published=\n";

  void prepare() override {
    StepInRoot::prepare();
    makeBundle({});
  }

  void makeBundle(const PropertyList& hasPayload) {
    writeIndex({"Core"}, hasPayload);
    writeComponent("Core", PropertyList::dictionary());
    root().writeFile(inBundle("Contents/Info.plist"), "info", 0600, 501, 20);
    root().writeFile(inBundle("Contents/MacOS/Installer"), "front end", 0700, 501, 20);
    root().writeFile(inBundle("Contents/MacOS/InstallationDeployer"), "engine", 04711);
    root().writeFile(inBundle("Contents/Install/Root/Core/abc"), "payload", 0640);
    root().makeDirectory(inBundle("Contents/Resources"), 0777, 501, 20);
  }
  void makeOldReceipt() {
    root().writeFile(kReceipt + "/Contents/MacOS/InstallationDeployer", "old engine", 0755, 0, 80);
    root().writeFile(kReceipt + "/Contents/Install/Manifests/Old.plist", "old", 0644, 0, 80);
  }

  support::Outcome writeReceipt(const std::vector<std::string>& more = {"Core"}) {
    return root().run(command("write-receipt", more));
  }
  /// As a root that has to obey the permissions of folders, so that something can go wrong for it.
  support::Outcome writeReceiptWithoutOverride(const std::vector<std::string>& more) {
    const std::string setpriv = "/usr/bin/setpriv";
    if (!root().exists(setpriv)) {
      root().copyIn(setpriv, setpriv);
    }
    EXPECT_TRUE(root().shell("chmod -R a+rX '" + std::string(kBundle) + "'").succeeded());
    std::vector<std::string> arguments{setpriv, "--bounding-set=-dac_override,-dac_read_search", "--"};
    const auto driver = command("write-receipt", more);
    arguments.insert(arguments.end(), driver.begin(), driver.end());
    return root().run(arguments);
  }
  support::Outcome writeReceiptWithoutOverride(const std::string& beforePublishing = "true") {
    return writeReceiptWithoutOverride(std::vector<std::string>{"--before-publishing", beforePublishing, "Core"});
  }

  support::Snapshot receipt() { return root().snapshot(kReceipt); }
  std::vector<std::string> pathsInReceipt() {
    std::vector<std::string> paths;
    for (const support::SnapshotEntry& entry : receipt()) {
      paths.push_back(entry.path.substr(kReceipt.size()));
    }
    return paths;
  }
};

}  // namespace tests
