#include "InstallationDeployer/ExecutableEntry.h"

#include <algorithm>

#include "InstallationDeployer/ManifestKeys.h"
#include "general/foundation/extensions/NSDictionaryExtensions.h"

namespace deployer {

using foundation::PropertyList;
using foundation::NSDictionaryExtensions::boolForKey;

const PropertyList& ExecutableEntry::listedPath() const { return dictionary_[kManifestFilePath]; }

const PropertyList& ExecutableEntry::listedArguments() const { return dictionary_[kManifestListOfArguments]; }

std::optional<std::vector<std::string>> ExecutableEntry::arguments() const {
  const PropertyList& list = listedArguments();
  const bool readable = (list.isNil() || list.isArray()) &&
                        std::ranges::all_of(list.elements(), [](const auto& element) { return element.isString(); });
  return readable ? std::optional(list.strings()) : std::nullopt;
}

bool ExecutableEntry::isApplication() const { return boolForKey(dictionary_, kManifestIsApplication); }

bool ExecutableEntry::runsOnInstall() const { return boolForKey(dictionary_, kManifestExecuteOnInstall); }

bool ExecutableEntry::runsOnce() const { return boolForKey(dictionary_, kManifestRunOnce); }

std::string_view ExecutableEntry::bundleIdentifier() const { return dictionary_[kManifestBundleIdentifier].text(); }

}  // namespace deployer
