#pragma once

#include <string>
#include <string_view>
#include <utility>

#include "InstallationDeployer/QVNInstallerChecksum.h"
#include "tests/unit/InstallationDeployer/BundleFixture.h"

namespace tests {

/// A bundle with payload, made by hand.
class CheckedBundle : public BundleFixture {
 public:
  static std::string checksumOf(std::string_view content) {
    return deployer::QVNInstallerChecksum::generateSHA256(std::as_bytes(std::span(content)));
  }
  static PropertyList file(std::string_view path, std::string_view content, Keys keys = {}) {
    return entry(path, joined(std::move(keys), {{std::string(deployer::kManifestSHAChecksum), checksumOf(content)}}));
  }
  /// The manifest of a component with these entries, and with a version.
  static PropertyList component(Entries entries, const PropertyList& executables = {}) {
    return manifestOf(std::move(entries))
        .with(deployer::kManifestComponentVersion, "1")
        .with(deployer::kManifestListOfExecutables, executables);
  }
  /// Lays content into the payload under its checksum; its path.
  [[nodiscard]] std::string store(const std::string& component, std::string_view content) const {
    return directory().write("Installer.app/Contents/Install/Root/" + component + "/" + checksumOf(content), content);
  }
};

}  // namespace tests
