#pragma once

#include <string>
#include <vector>

#include "InstallationDeployer/BundleLayout.h"
#include "InstallationDeployer/ManifestKeys.h"
#include "general/foundation/propertylist/PropertyListFile.h"
#include "tests/integration/InPrivateRoot.h"

namespace tests {

/// A single step that runs as root in a private root, on a small bundle of the product "Guard".
class StepInRoot : public InPrivateRoot {
 protected:
  static constexpr const char* kDriver = "/run/step-driver";

  void prepare() override { root().copyIn(CORVANE_STEP_DRIVER, kDriver); }

  void writePropertyList(const std::string& path, const PropertyList& value) {
    const auto document = foundation::plist::serialize(value, foundation::plist::Format::Xml);
    ASSERT_TRUE(document.ok());
    root().writeFile(path, *document);
  }
  void writeIndex(const std::vector<std::string>& components, const PropertyList& receiptHasPayload = {}) {
    writePropertyList(inBundle("Contents/Install/Manifests/Index.plist"),
                      indexOfComponents(kProduct, components)
                          .with(deployer::kManifestIndexReceiptHasPayloadContents, receiptHasPayload));
  }
  void writeComponent(const std::string& name, const PropertyList& manifest) {
    writePropertyList(inBundle("Contents/Install/Manifests/" + name + ".plist"), manifest);
  }

  static std::vector<std::string> command(const std::string& step, const std::vector<std::string>& more = {"Core"}) {
    std::vector<std::string> arguments{kDriver, step, kBundle, kProduct};
    arguments.insert(arguments.end(), more.begin(), more.end());
    return arguments;
  }
};

}  // namespace tests
