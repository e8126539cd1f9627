#include "InstallationDeployer/installed/QVNValidateStrategy.h"

#include <optional>
#include <string>
#include <utility>

#include "InstallationDeployer/EntryAttributes.h"
#include "InstallationDeployer/EntryPath.h"
#include "InstallationDeployer/ManifestKeys.h"
#include "general/foundation/extensions/NSDictionaryExtensions.h"
#include "general/foundation/files/FileManager.h"
#include "general/foundation/files/ItemFinder.h"
#include "general/logging/SystemLog.h"
#include "general/system/NSProcessInfoExtensions.h"

namespace deployer {

using foundation::FileAttributes;
using foundation::ItemStatus;
using foundation::PropertyList;
using foundation::NSDictionaryExtensions::boolForKey;

namespace {

constexpr std::string_view kSystemFolder = "/System/";

// Deliberately lenient: one attribute that is as it should be is enough.
bool hasOneEqualAttribute(const ItemStatus& item, const FileAttributes& wanted) {
  return wanted.owner == item.owner || wanted.group == item.group || wanted.permissions == item.permissions;
}

// Checks the entries of the manifests one by one.
class Inspection {
 public:
  bool passes(const std::string& component, const PropertyList& entry) {
    const PropertyList& path = entry[kManifestFilePath];
    if (skipsSystemPaths_ && path.text().starts_with(kSystemFolder)) {
      return true;
    }
    const auto item = find(entry);
    if (!item) {
      return isSuppliedFromOutside(entry) || isMissing(path, component);
    }
    if (boolForKey(entry, kManifestIsModifiableFile) || hasOneEqualAttribute(*item, attributesFromEntry(entry))) {
      return true;
    }
    logging::info(
        "Adding %@ component to fixPlan because file attributes different for %@\n\tfile attributes: %@\n\tmanifest "
        "attributes: %@",
        component, path, dictionaryOf(*item), entry);
    return false;
  }

 private:
  std::optional<ItemStatus> find(const PropertyList& entry) {
    const auto path = installedPathOf(entry);
    auto item = path ? finder_.find(*path) : std::nullopt;
    if (item && item->isSymbolicLink() && !boolForKey(entry, kManifestIsSymbolicLink) &&
        !foundation::files::exists(*path)) {
      return std::nullopt;
    }
    return item;
  }

  static bool isSuppliedFromOutside(const PropertyList& entry) { return entry[kManifestExternalSourcePath].isString(); }

  static bool isMissing(const PropertyList& path, const std::string& component) {
    logging::info("File %@ is missing. adding %@ component to fixPlan", path, component);
    return false;
  }

  const bool skipsSystemPaths_ = !platform::NSProcessInfoExtensions::isMacOSX8AndBelow();
  foundation::ItemFinder finder_;
};

}  // namespace

bool QVNValidateStrategy::work() {
  setInstallerState(QVNInstallerStateValidating);
  Plan componentsToFix;
  if (plan()) {
    Inspection inspection;
    // An entry that fails is kept here and not told to the walk, which would skip the rest of the component.
    static_cast<void>(manifest().walkManifestFileListForComponents(
        *plan(), false, false, [&](const std::string& component, const PropertyList&, const PropertyList& entry) {
          if (!inspection.passes(component, entry)) {
            componentsToFix.push_back(component);
          }
          return true;
        }));
    *plan() = componentsToFix;
  }
  return componentsToFix.empty();
}

}  // namespace deployer
