#pragma once

#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "InstallationDeployer/ManifestKeys.h"
#include "general/foundation/files/FileAttributes.h"
#include "general/foundation/propertylist/PropertyList.h"

namespace tests {

/// Makes the property lists of bundles, from the index down to the entry of a file; for tests to inherit.
struct PropertyLists {
  using PropertyList = foundation::PropertyList;
  using Entries = PropertyList::Array;
  using Keys = std::vector<std::pair<std::string, PropertyList>>;

  [[nodiscard]] static PropertyList dictionary(Keys keys) { return PropertyList::dictionary(std::move(keys)); }
  [[nodiscard]] static PropertyList array(Entries elements) { return {std::move(elements)}; }

  // The index.
  [[nodiscard]] static PropertyList localPayload(const std::vector<std::string>& components) {
    return dictionary({{std::string(deployer::kQVNInstallPhaseType), deployer::kQVNInstallPhaseLocalPayload},
                       {std::string(deployer::kManifestIndexListOfComponents), PropertyList(components)}});
  }
  [[nodiscard]] static PropertyList product(Entries phases, PropertyList crossGrades = {}) {
    return dictionary({{std::string(deployer::kManifestIndexListOfPhases), array(std::move(phases))},
                       {std::string(deployer::kManifestIndexCrossGrades), std::move(crossGrades)}});
  }
  /// The index of a bundle with one product.
  [[nodiscard]] static PropertyList indexOf(const std::string& name, PropertyList product) {
    return dictionary(
        {{std::string(deployer::kManifestIndexDictionaryOfProducts), dictionary({{name, std::move(product)}})}});
  }
  /// The index of a bundle with one product that installs these components.
  [[nodiscard]] static PropertyList indexOfComponents(const std::string& name,
                                                      const std::vector<std::string>& components) {
    return indexOf(name, product({localPayload(components)}));
  }

  // What a receipt says is installed.
  [[nodiscard]] static PropertyList records(const std::vector<std::pair<std::string, std::string>>& installed) {
    Entries list;
    for (const auto& [name, version] : installed) {
      list.push_back(dictionary({{std::string(deployer::kManifestComponentName), name},
                                 {std::string(deployer::kManifestComponentVersion), version}}));
    }
    return array(std::move(list));
  }

  // The manifest of a component.
  [[nodiscard]] static PropertyList entry(std::string_view path, Keys keys) {
    keys.emplace_back(deployer::kManifestFilePath, path);
    return dictionary(std::move(keys));
  }
  [[nodiscard]] static Keys attributes(int permissions, int owner = 0, int group = 0) {
    return {{std::string(deployer::kFileOwnerAccountID), owner},
            {std::string(deployer::kFileGroupOwnerAccountID), group},
            {std::string(deployer::kFilePosixPermissions), permissions}};
  }
  [[nodiscard]] static Keys joined(Keys first, Keys second) {
    first.insert(first.end(), second.begin(), second.end());
    return first;
  }
  [[nodiscard]] static PropertyList directory(std::string_view path, Keys keys = attributes(0755)) {
    return entry(path, joined(std::move(keys), {{std::string(deployer::kManifestIsDirectory), true}}));
  }
  [[nodiscard]] static PropertyList external(std::string_view path, std::string_view source,
                                             Keys keys = attributes(0644)) {
    return entry(path, joined(std::move(keys), {{std::string(deployer::kManifestExternalSourcePath), source}}));
  }
  [[nodiscard]] static PropertyList externalDirectory(std::string_view path, std::string_view source,
                                                      Keys keys = attributes(0755)) {
    return directory(path, joined(std::move(keys), {{std::string(deployer::kManifestExternalSourcePath), source}}));
  }
  [[nodiscard]] static PropertyList link(std::string_view path, std::string_view linkTarget,
                                         Keys keys = attributes(0755)) {
    return entry(path, joined(std::move(keys), {{std::string(deployer::kManifestIsSymbolicLink), true},
                                                {std::string(deployer::kManifestSymbolicLinkTarget), linkTarget}}));
  }

  [[nodiscard]] static PropertyList manifestOf(Entries entries) {
    return dictionary({{std::string(deployer::kManifestListOfFiles), array(std::move(entries))}});
  }
};

}  // namespace tests
