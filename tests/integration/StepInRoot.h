#pragma once

#include <gtest/gtest.h>

#include <algorithm>
#include <memory>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "InstallationDeployer/BundleLayout.h"
#include "InstallationDeployer/ManifestKeys.h"
#include "general/foundation/PropertyListFile.h"
#include "tests/support/CapturedLog.h"
#include "tests/support/PrivateRoot.h"

namespace tests {

/// A single step that runs as root in a private root, on a small bundle of the product "Guard".
class StepInRoot : public ::testing::Test {
 protected:
  using PropertyList = foundation::PropertyList;

  static constexpr const char* kBundle = "/Volumes/Disk Image/Installer.app";
  static constexpr const char* kDriver = "/run/step-driver";
  static constexpr const char* kProduct = "Guard";

  void SetUp() override {
    if (const auto reason = support::PrivateRoot::whyImpossible()) {
      GTEST_SKIP() << *reason;
    }
    root_ = std::make_unique<support::PrivateRoot>();
    if (!root_->hasProcesses() && std::string_view(CORVANE_SANITIZERS) != "") {
      GTEST_SKIP() << "a program with sanitizers needs a /proc: " << root_->whyNoMounts();
    }
    root_->copyIn(CORVANE_STEP_DRIVER, kDriver);
  }

  support::PrivateRoot& root() { return *root_; }

  static std::string inBundle(std::string_view relative) { return std::string(kBundle) + "/" + std::string(relative); }

  void writePropertyList(const std::string& path, const PropertyList& value) {
    const auto document = foundation::plist::serialize(value, foundation::plist::Format::Xml);
    ASSERT_TRUE(document.ok());
    root().writeFile(path, *document);
  }
  void writeIndex(const std::vector<std::string>& components, const PropertyList& receiptHasPayload = {}) {
    const auto phase =
        PropertyList::dictionary({{std::string(deployer::kQVNInstallPhaseType), deployer::kQVNInstallPhaseLocalPayload},
                                  {std::string(deployer::kManifestIndexListOfComponents), PropertyList(components)}});
    const auto product = PropertyList::dictionary(
        {{std::string(deployer::kManifestIndexListOfPhases), PropertyList(PropertyList::Array{phase})}});
    writePropertyList(inBundle("Contents/Install/Manifests/Index.plist"),
                      PropertyList::dictionary(
                          {{std::string(deployer::kManifestIndexDictionaryOfProducts),
                            PropertyList::dictionary({{kProduct, product}})},
                           {std::string(deployer::kManifestIndexReceiptHasPayloadContents), receiptHasPayload}}));
  }
  void writeComponent(const std::string& name, const PropertyList& manifest) {
    writePropertyList(inBundle("Contents/Install/Manifests/" + name + ".plist"), manifest);
  }

  static std::vector<std::string> command(const std::string& step, const std::vector<std::string>& more = {"Core"}) {
    std::vector<std::string> arguments{kDriver, step, kBundle, kProduct};
    arguments.insert(arguments.end(), more.begin(), more.end());
    return arguments;
  }

  /// How often exactly this message was logged.
  static std::ptrdiff_t logged(const support::Outcome& outcome, std::string_view level, std::string_view text) {
    const auto messages = parseLog(outcome.standardError);
    return std::ranges::count(messages, LoggedMessage{std::string(level), std::string(text)});
  }
  /// Whether a message of this level begins so; for messages that go on with an error of the system.
  static bool loggedBeginning(const support::Outcome& outcome, std::string_view level, std::string_view beginning) {
    return std::ranges::any_of(parseLog(outcome.standardError), [&](const LoggedMessage& message) {
      return message.level == level && message.text.starts_with(beginning);
    });
  }
  static bool loggedAnything(const support::Outcome& outcome, std::string_view level) {
    return loggedBeginning(outcome, level, "");
  }

 private:
  std::unique_ptr<support::PrivateRoot> root_;
};

}  // namespace tests
