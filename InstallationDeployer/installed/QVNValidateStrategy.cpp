#include "InstallationDeployer/installed/QVNValidateStrategy.h"

#include <optional>
#include <string>
#include <utility>

#include "InstallationDeployer/FileEntry.h"
#include "general/foundation/Result.h"
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
    const auto found = find(entry);
    if (!found) {
      return isUnknown(entry, found.error());
    }
    const std::optional<ItemStatus>& item = *found;
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

  /// Whether nobody could tell of an item whether it is there: what is to be repaired is not known then.
  [[nodiscard]] bool couldNotLook() const { return couldNotLook_; }

 private:
  using Found = foundation::Result<std::optional<ItemStatus>>;

  Found find(const FileEntry& entry) {
    const auto path = entry.installedPath();
    if (!path) {
      return std::optional<ItemStatus>();
    }
    auto found = finder_.find(*path);
    if (!found || !*found || !(*found)->isSymbolicLink() || entry.isSymbolicLink()) {
      return found;
    }
    const auto leadsSomewhere = foundation::files::presence(*path);
    if (!leadsSomewhere) {
      return leadsSomewhere.error();
    }
    return *leadsSomewhere ? std::move(found) : Found(std::optional<ItemStatus>());
  }

  bool isUnknown(const FileEntry& entry, const foundation::Error& error) {
    logging::error("Unable to look for %@. %@", entry.listedPath(), error);
    couldNotLook_ = true;
    return false;
  }

  static bool isMissing(const FileEntry& entry, const std::string& component) {
    logging::info("File %@ is missing. adding %@ component to fixPlan", entry.listedPath(), component);
    return false;
  }

  const bool skipsSystemPaths_ = !platform::NSProcessInfoExtensions::isMacOSX8AndBelow();
  foundation::ItemFinder finder_;
  bool couldNotLook_ = false;
};

}  // namespace

bool QVNValidateStrategy::work() {
  setInstallerState(QVNInstallerStateValidating);
  if (!plan()) {
    return true;
  }
  Plan componentsToFix;
  Inspection inspection;
  // An entry that fails is kept here and not told to the walk, which would skip the rest of the component.
  static_cast<void>(manifest().walkManifestFileListForComponents(
      *plan(), false, false, [&](const std::string& component, const PropertyList&, const FileEntry& entry) {
        if (!inspection.couldNotLook() && !inspection.passes(component, entry)) {
          componentsToFix.push_back(component);
        }
        return !inspection.couldNotLook();
      }));
  if (inspection.couldNotLook() || manifest().couldNotRead()) {
    plan()->clear();
    return failWith();
  }
  *plan() = componentsToFix;
  return componentsToFix.empty();
}

}  // namespace deployer
