#include "tools/building/StagedFolder.h"

#include "InstallationDeployer/QVNInstallerManifest.h"
#include "general/foundation/Paths.h"
#include "general/foundation/Unicode.h"
#include "general/foundation/files/FileManager.h"
#include "general/foundation/propertylist/TextFormat.h"
#include "tools/building/DescriptionKeys.h"
#include "tools/rules/PathRules.h"

namespace bundletool {

using foundation::FileType;
using foundation::ItemStatus;
namespace files = foundation::files;
namespace paths = foundation::paths;

namespace {

class Examination {
 public:
  Examination(StagedFolder& result, Problems& problems) : result_(result), problems_(problems) {}

  void folder(const std::string& path, const std::string& installPath, const ItemStatus& attributes) {
    // Nothing below a path that is too long can be installed; this also bounds how deep the walk goes.
    if (const auto fault = faultOfInstallPath(installPath)) {
      problems_.error({path, "", *fault, "shorten the names, or stage it elsewhere"});
      return;
    }
    if (!deployer::QVNInstallerManifest::restrictedPaths().contains(installPath)) {
      add(InstallItem::Kind::Directory, path, installPath, attributes);
    }
    const auto names = files::contentsOfDirectory(path);
    if (!names) {
      problems_.error({path, "", "the folder cannot be listed: " + names.error().text, "make it readable"});
      return;
    }
    for (const std::string& name : *names) {
      item(paths::append(path, name), paths::append(installPath, name));
    }
  }

 private:
  void item(const std::string& path, const std::string& installPath) {
    if (!foundation::unicode::isValidUtf8(paths::lastComponent(path))) {
      problems_.error({path, "", "the name is not valid UTF-8", "rename it: a manifest holds Unicode text only"});
      return;
    }
    const auto attributes = files::attributesOfItem(path);
    if (!attributes) {
      problems_.error({path, "", "the item cannot be examined: " + attributes.error().text, "make it readable"});
    } else if (attributes->isDirectory()) {
      folder(path, installPath, *attributes);
    } else if (deployer::QVNInstallerManifest::restrictedPaths().contains(installPath)) {
      problems_.error({path, "", "the item stands in place of a folder that belongs to the system",
                       "remove it from the staged folder"});
    } else if (const auto fault = faultOfInstallPath(installPath)) {
      problems_.error({path, "", *fault, "shorten the names, or stage it elsewhere"});
    } else if (attributes->isSymbolicLink()) {
      link(path, installPath, *attributes);
    } else if (attributes->type == FileType::Regular) {
      ++result_.files;
      result_.bytes += attributes->size;
      add(InstallItem::Kind::File, path, installPath, *attributes);
    } else {
      problems_.error({path, "",
                       foundation::format("the item is neither a file, a folder nor a link (%@)",
                                          foundation::fileTypeName(attributes->type)),
                       "remove it from the staged folder"});
    }
  }

  void link(const std::string& path, const std::string& installPath, const ItemStatus& attributes) {
    const auto target = files::destinationOfSymbolicLink(path);
    if (!target || target->empty()) {
      problems_.error({path, "", "the link has no target", "make the link again"});
      return;
    }
    if (!foundation::unicode::isValidUtf8(*target)) {
      problems_.error({path, "", "the target of the link is not valid UTF-8",
                       "make the link again: a manifest holds Unicode text only"});
      return;
    }
    add(InstallItem::Kind::Link, path, installPath, attributes);
  }

  void add(InstallItem::Kind kind, const std::string& path, const std::string& installPath,
           const ItemStatus& attributes) {
    result_.items.push_back(
        {installPath, kind, {attributes.owner, attributes.group, attributes.permissions}, path, "", false});
  }

  StagedFolder& result_;
  Problems& problems_;
};

}  // namespace

StagedFolder examineStagedFolder(const BundleDescription& description, const ComponentDescription& component,
                                 Problems& problems) {
  StagedFolder result;
  const std::string key = component.key + "." + std::string(kDescriptionStagedFolder);
  const auto attributes = files::attributesOfItem(component.stagedFolder);
  if (!attributes) {
    const bool missing = attributes.error().isNoSuchFile();
    problems.error(
        {description.file, key,
         foundation::format(missing ? "the staged folder %@ is missing" : "the staged folder %@ cannot be read",
                            component.stagedFolder),
         missing ? "create it or correct the path" : attributes.error().text});
  } else if (!attributes->isDirectory()) {
    problems.error({description.file, key, foundation::format("%@ is not a folder", component.stagedFolder),
                    "name the folder that holds the component's files"});
  } else {
    Examination(result, problems).folder(component.stagedFolder, component.rootPrefix, *attributes);
  }
  return result;
}

}  // namespace bundletool
