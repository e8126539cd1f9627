#pragma once

#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "InstallationDeployer/ManifestKeys.h"
#include "general/foundation/files/FileAttributes.h"
#include "general/foundation/propertylist/PropertyList.h"

namespace tests {

/// Makes the file entries of component manifests; for tests to inherit.
struct FileEntries {
  using PropertyList = foundation::PropertyList;
  using Entries = PropertyList::Array;
  using Keys = std::vector<std::pair<std::string, PropertyList>>;

  [[nodiscard]] static PropertyList entry(std::string_view path, Keys keys) {
    keys.emplace_back(deployer::kManifestFilePath, path);
    return PropertyList::dictionary(std::move(keys));
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
    return PropertyList::dictionary({{std::string(deployer::kManifestListOfFiles), PropertyList(std::move(entries))}});
  }
};

}  // namespace tests
