#pragma once

#include <optional>
#include <string>
#include <string_view>

#include "general/foundation/propertylist/PropertyList.h"
#include "tests/support/TemporaryDirectory.h"

namespace tests {

/// Makes an Installer.app with the real engine in it, on the host, from files that a test stages one by one. The staged
/// items keep the owners and modes that the test gave them. Failures throw std::runtime_error.
class BundleMaker {
 public:
  using PropertyList = foundation::PropertyList;

  /// @param engine the executable that becomes Contents/MacOS/InstallationDeployer.
  explicit BundleMaker(const std::string& engine);

  /// The bundle's path on the host.
  [[nodiscard]] std::string path() const { return directory_.path("Installer.app"); }
  [[nodiscard]] std::string path(std::string_view below) const { return path() + "/" + std::string(below); }

  /// Stages an item of a component under its install path; parents are made with mode 0755.
  std::string stageFile(const std::string& component, const std::string& installPath, std::string_view content,
                        mode_t mode = 0644, uid_t owner = 0, gid_t group = 0);
  std::string stageDirectory(const std::string& component, const std::string& installPath, mode_t mode = 0755,
                             uid_t owner = 0, gid_t group = 0);
  std::string stageLink(const std::string& component, const std::string& installPath, const std::string& target,
                        uid_t owner = 0, gid_t group = 0);

  /// Writes the manifest of the component from what is staged, stores its payload and adds it to the product.
  /// @param authoring what a scan cannot know, or nil.
  void addComponent(const std::string& component, const std::string& version, const std::string& product,
                    const PropertyList& authoring = {});
  /// Merges options into the index; call it last.
  void setOptions(const PropertyList& options, const PropertyList& optionsPlist = {});

  [[nodiscard]] PropertyList readManifest(const std::string& name) const;
  void writeManifest(const std::string& name, const PropertyList& content) const;
  /// Where a file of the payload lies.
  [[nodiscard]] std::string payloadPath(const std::string& component, const std::string& installPath) const;

 private:
  [[nodiscard]] std::string stagedPath(const std::string& component, const std::string& installPath) const;
  void storePayload(const std::string& component) const;

  TemporaryDirectory directory_;
};

}  // namespace tests
