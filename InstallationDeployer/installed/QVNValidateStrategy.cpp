#include "InstallationDeployer/installed/QVNValidateStrategy.h"

#include <optional>
#include <string>

#include "InstallationDeployer/FileEntry.h"
#include "general/foundation/files/FileManager.h"
#include "general/foundation/files/ItemFinder.h"
#include "general/logging/SystemLog.h"
#include "general/system/NSProcessInfoExtensions.h"

namespace deployer {

using foundation::FileAttributes;
using foundation::ItemStatus;

namespace {

// Deliberately lenient: one attribute that is as it should be is enough.
bool hasOneEqualAttribute(const ItemStatus& item, const FileAttributes& wanted) {
  return wanted.owner == item.owner || wanted.group == item.group || wanted.permissions == item.permissions;
}

// Checks the entries of the manifests one by one.
class Inspection {
 public:
  bool passes(const std::string& component, const FileEntry& entry) {
    if (skipsSystemPaths_ && liesInSystemFolder(entry.listedPath().text())) {
      return true;
    }
    const auto item = find(entry);
    if (!item) {
      return entry.externalSource().has_value() || isMissing(entry, component);
    }
    if (entry.isModifiable() || hasOneEqualAttribute(*item, entry.attributes())) {
      return true;
    }
    logging::info(
        "Adding %@ component to fixPlan because file attributes different for %@\n\tfile attributes: %@\n\tmanifest "
        "attributes: %@",
        component, entry.listedPath(), dictionaryOf(*item), entry.dictionary());
    return false;
  }

 private:
  std::optional<ItemStatus> find(const FileEntry& entry) {
    const auto path = entry.installedPath();
    auto item = path ? finder_.find(*path) : std::nullopt;
    if (item && item->isSymbolicLink() && !entry.isSymbolicLink() && !foundation::files::exists(*path)) {
      return std::nullopt;
    }
    return item;
  }

  static bool isMissing(const FileEntry& entry, const std::string& component) {
    logging::info("File %@ is missing. adding %@ component to fixPlan", entry.listedPath(), component);
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
        *plan(), false, false, [&](const std::string& component, const PropertyList&, const FileEntry& entry) {
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
