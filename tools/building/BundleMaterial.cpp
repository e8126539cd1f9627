#include "tools/building/BundleMaterial.h"

#include <algorithm>
#include <filesystem>
#include <iterator>
#include <map>
#include <string_view>
#include <system_error>
#include <utility>

#include "InstallationDeployer/BundleLayout.h"
#include "InstallationDeployer/ManifestKeys.h"
#include "general/foundation/Paths.h"
#include "general/foundation/files/FileManager.h"
#include "general/foundation/propertylist/TextFormat.h"
#include "tools/building/DescriptionKeys.h"
#include "tools/building/Lint.h"
#include "tools/building/OptionsPlist.h"
#include "tools/building/PathConflicts.h"
#include "tools/building/StagedFolder.h"
#include "tools/building/UnkeptExtras.h"
#include "tools/rules/WarningNames.h"

namespace bundletool {

namespace fs = std::filesystem;

namespace {

/// Each component once, in all of its products.
std::vector<ComponentDescription> distinctComponents(const BundleDescription& description) {
  std::vector<ComponentDescription> components;
  std::map<std::string_view, std::size_t> known;
  for (const ComponentDescription& component : description.components) {
    const auto [found, isNew] = known.emplace(component.name, components.size());
    if (isNew) {
      components.push_back(component);
    } else {
      auto& products = components[found->second].products;
      products.insert(products.end(), component.products.begin(), component.products.end());
    }
  }
  return components;
}

// A bundle in the making would be scanned into itself.
bool liesBelow(const std::string& path, const std::string& folder) {
  std::error_code error;
  const fs::path inner = fs::canonical(path, error);
  const fs::path outer = error ? fs::path() : fs::canonical(folder, error);
  return !error && std::mismatch(outer.begin(), outer.end(), inner.begin(), inner.end()).first == outer.end();
}

class Examination {
 public:
  Examination(const BundleDescription& description, const BundleSettings& settings, Problems& problems)
      : description_(description), settings_(settings), problems_(problems) {
    material_.destination = foundation::paths::append(settings.output, deployer::kQVNInstallerApplicationName);
    material_.rootOwnerGroup = settings.rootOwnerGroup || description.rootOwnerGroup;
    material_.engine = description.engine.value_or(settings.defaultEngine);
    material_.frontEnd = description.frontEnd.value_or(settings.defaultFrontEnd);
  }

  BundleMaterial run() {
    examineOutput();
    examineExecutable(material_.frontEnd, std::string(kDescriptionFrontEnd));
    examineExecutable(material_.engine, std::string(kDescriptionEngine));
    if (description_.optionsPlist) {
      examineOptionsPlist(description_, problems_);
    }
    examineComponents();
    return std::move(material_);
  }

 private:
  void examineOutput() {
    std::error_code error;
    if (!fs::is_directory(settings_.output, error)) {
      problems_.error({settings_.output, "", "the output folder is missing or is no folder", "create it first"});
    } else if (!settings_.force && foundation::files::attributesOfItem(material_.destination)) {
      problems_.error(
          {material_.destination, "", "the bundle is there already", "remove it, or replace it with --force"});
    }
  }

  void examineExecutable(const std::string& path, const std::string& key) {
    using fs::perms;
    constexpr perms kExecute = perms::owner_exec | perms::group_exec | perms::others_exec;
    std::error_code error;
    const fs::file_status status = fs::status(path, error);
    if (!fs::exists(status)) {
      refuse(key, foundation::format("the executable %@ is missing", path), "build it or correct the path");
    } else if (!fs::is_regular_file(status)) {
      refuse(key, foundation::format("%@ is no regular file", path), "name the executable file itself");
    } else if ((status.permissions() & kExecute) == perms::none) {
      refuse(key, foundation::format("%@ is not executable", path), "make it executable (chmod +x)");
    }
  }

  void examineComponents() {
    const std::vector<ComponentDescription> components = distinctComponents(description_);
    std::vector<ComponentItems> all;
    all.reserve(components.size());
    for (const ComponentDescription& component : components) {
      all.push_back({&component, itemsOf(component)});
    }
    findPathConflicts(all, problems_);
    warnOfUnkeptExtras(all, problems_);
    lint(all, problems_);
    warnOfOwners(all);
    if (receiptsKeepThePayload()) {
      for (const ComponentItems& component : all) {
        warnOfSecrets(component.items);
      }
    }
  }

  // What an ordinary user stages cannot belong to anybody else.
  void warnOfOwners(const std::vector<ComponentItems>& components) {
    bool isAnythingStaged = false;
    for (const ComponentItems& component : components) {
      for (const InstallItem& item : component.items) {
        if (item.isHandWritten()) {
          continue;
        }
        isAnythingStaged = true;
        if (item.attributes.owner != settings_.builder) {
          return;
        }
      }
    }
    if (isAnythingStaged && settings_.builder != 0) {
      problems_.warning(
          kWarnBuilderOwnsEverything,
          {description_.file, "",
           foundation::format("everything staged belongs to the user who builds (%u), and will where it is installed",
                              settings_.builder),
           "build with --root-owner-group, or set RootOwnerGroup to YES, if it is to belong to root"});
    }
  }

  [[nodiscard]] bool receiptsKeepThePayload() const {
    return description_.options[deployer::kManifestIndexReceiptHasPayloadContents].boolean().value_or(true);
  }

  // What the receipt keeps of a file has the mode 0644, whatever the mode it is installed with.
  void warnOfSecrets(const std::vector<InstallItem>& items) {
    constexpr std::uint32_t kReadableByAll = 0004;
    for (const InstallItem& item : items) {
      const auto permissions = item.attributes.permissions;
      if (item.kind == InstallItem::Kind::File && permissions && (*permissions & kReadableByAll) == 0) {
        problems_.warning(kWarnSecretsInReceipts,
                          {item.file, item.key,
                           foundation::format("not everybody may read %@, but everybody can read its copy in the "
                                              "installed product's receipt",
                                              item.path),
                           "let the product make its secrets itself, or set ReceiptHasPayloadContents to NO"});
      }
    }
  }

  std::vector<InstallItem> itemsOf(const ComponentDescription& component) {
    StagedFolder staged = examineStagedFolder(description_, component, problems_);
    if (liesBelow(settings_.output, component.stagedFolder)) {
      problems_.error(
          {settings_.output, "",
           foundation::format("the output folder lies in the staged folder of component %@", component.name),
           "choose a folder outside"});
    }
    material_.files += staged.files * component.products.size();
    material_.bytes += staged.bytes * component.products.size();
    if (material_.rootOwnerGroup) {
      for (InstallItem& item : staged.items) {
        item.attributes.owner = item.attributes.group = 0;
      }
    }
    if (component.authoringPlist) {
      AuthoringPlist byHand = examineAuthoringPlist(component, staged.items, problems_);
      std::ranges::move(byHand.items, std::back_inserter(staged.items));
      std::ranges::move(byHand.references, std::back_inserter(material_.references));
    }
    return std::move(staged.items);
  }

  void refuse(const std::string& key, std::string what, std::string advice) {
    problems_.error({description_.file, key, std::move(what), std::move(advice)});
  }

  const BundleDescription& description_;
  const BundleSettings& settings_;
  Problems& problems_;
  BundleMaterial material_;
};

}  // namespace

BundleMaterial examineMaterial(const BundleDescription& description, const BundleSettings& settings,
                               Problems& problems) {
  return Examination(description, settings, problems).run();
}

}  // namespace bundletool
