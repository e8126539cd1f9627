#include "tools/building/BundleDescription.h"

#include <map>
#include <set>
#include <tuple>

#include "InstallationDeployer/ManifestKeys.h"
#include "general/foundation/Paths.h"
#include "general/foundation/propertylist/TextFormat.h"
#include "tools/building/DescriptionKeys.h"
#include "tools/rules/CheckedDictionary.h"
#include "tools/rules/PathRules.h"
#include "tools/rules/WarningNames.h"

namespace bundletool {

namespace paths = foundation::paths;
using Need = CheckedDictionary::Need;

namespace {

/// Reads one description; the members are what its rules need to look back on.
class DescriptionReader {
 public:
  explicit DescriptionReader(const CheckedDictionary& top) : top_(top) {}

  BundleDescription read() {
    top_.allowOnly({kDescriptionComponents, kDescriptionFrontEnd, kDescriptionEngine, kDescriptionExternalTools,
                    kDescriptionOptions, kDescriptionRootOwnerGroup, kDescriptionSilencedWarnings});
    description_.file = top_.file();
    description_.frontEnd = source(top_, kDescriptionFrontEnd, Need::Optional);
    description_.engine = source(top_, kDescriptionEngine, Need::Optional);
    readComponents();
    readExternalTools();
    readOptions();
    description_.rootOwnerGroup = top_.boolean(kDescriptionRootOwnerGroup).value_or(false);
    readSilencedWarnings();
    return std::move(description_);
  }

 private:
  static std::optional<std::string> text(const CheckedDictionary& from, std::string_view key, Need need,
                                         std::optional<std::string> (*faultOf)(std::string_view),
                                         const std::string& advice) {
    auto value = from.string(key, need);
    if (value && from.refuseIf(faultOf(*value), key, advice)) {
      return std::nullopt;
    }
    return value;
  }

  [[nodiscard]] std::optional<std::string> source(const CheckedDictionary& from, std::string_view key,
                                                  Need need) const {
    auto path =
        text(from, key, need, faultOfSourcePath, "give a path below the folder of the description, or an absolute one");
    if (!path) {
      return std::nullopt;
    }
    // The scan cuts the staged folder off in front of what lies in it, so both must be written alike.
    path = paths::standardize(*path);
    if (!paths::isAbsolute(*path)) {
      path = paths::append(paths::deleteLastComponent(top_.file()), *path);
    }
    return path;
  }

  void readComponents() {
    const auto list = top_.dictionaries(kDescriptionComponents, Need::Required);
    if (list.empty() && top_.value()[kDescriptionComponents].isArray() &&
        top_.value()[kDescriptionComponents].count() == 0) {
      top_.refuse(kDescriptionComponents, "there are no components", "list at least one");
    }
    for (const CheckedDictionary& entry : list) {
      readComponent(entry);
    }
  }

  void readComponent(const CheckedDictionary& entry) {
    entry.allowOnly({kDescriptionName, kDescriptionVersion, kDescriptionStagedFolder, kDescriptionRootPrefix,
                     kDescriptionProducts, kDescriptionAuthoringPlist});
    ComponentDescription component;
    component.key = entry.keyPath();
    component.name =
        text(entry, kDescriptionName, Need::Required, faultOfComponentName, "choose another name").value_or("");
    component.version = entry.string(kDescriptionVersion, Need::Required).value_or("");
    component.stagedFolder = source(entry, kDescriptionStagedFolder, Need::Required).value_or("");
    component.rootPrefix = text(entry, kDescriptionRootPrefix, Need::Optional, faultOfInstallPath,
                                "give the absolute path at which the staged folder will lie")
                               .value_or("/");
    component.authoringPlist = source(entry, kDescriptionAuthoringPlist, Need::Optional);
    component.products = readProducts(entry);
    checkAgainstEarlier(entry, component);
    description_.components.push_back(std::move(component));
  }

  std::vector<std::string> readProducts(const CheckedDictionary& entry) {
    std::vector<std::string> products = entry.strings(kDescriptionProducts, Need::Required);
    if (entry.value()[kDescriptionProducts].isArray() && entry.value()[kDescriptionProducts].count() == 0) {
      entry.refuse(kDescriptionProducts, "the component belongs to no product", "name at least one product");
    }
    for (std::size_t index = 0; index < products.size(); ++index) {
      const std::string key = elementKey(kDescriptionProducts, index);
      entry.refuseIf(faultOfProductName(products[index]), key, "choose another name");
      const auto [known, isNew] = productNames_.emplace(caseFolded(products[index]), products[index]);
      if (!isNew && known->second != products[index]) {
        entry.refuse(key, foundation::format("product %@ differs from %@ in case only", products[index], known->second),
                     "write the name of the product the same way everywhere");
      }
    }
    return products;
  }

  void checkAgainstEarlier(const CheckedDictionary& entry, const ComponentDescription& component) {
    productsWithComponents_.insert(component.products.begin(), component.products.end());
    if (component.name.empty()) {
      return;
    }
    for (const std::string& product : component.products) {
      if (!registered_.emplace(component.name, product).second) {
        entry.refuse(kDescriptionProducts,
                     foundation::format("component %@ is in product %@ already", component.name, product),
                     "list it once for each product");
      }
    }
    const auto [first, isNew] = componentIndex_.emplace(caseFolded(component.name), description_.components.size());
    if (isNew) {
      return;
    }
    const ComponentDescription& earlier = description_.components[first->second];
    if (earlier.name != component.name) {
      entry.refuse(kDescriptionName,
                   foundation::format("component %@ differs from %@ in case only", component.name, earlier.name),
                   "choose another name");
    } else if (content(earlier) != content(component)) {
      entry.refuse(
          kDescriptionName,
          foundation::format("component %@ is used already, at %@, with other content", component.name, earlier.key),
          "choose another name, or make everything but the products the same");
    }
  }

  static std::tuple<std::string, std::string, std::string, std::string> content(const ComponentDescription& component) {
    return {component.version, component.stagedFolder, component.rootPrefix, component.authoringPlist.value_or("")};
  }

  void readExternalTools() {
    std::set<std::string> productsWithTools;
    for (const CheckedDictionary& entry : top_.dictionaries(kDescriptionExternalTools, Need::Optional)) {
      entry.allowOnly({kDescriptionBundlePath, kDescriptionExternalProduct, kDescriptionProduct});
      ExternalToolDescription tool;
      tool.key = entry.keyPath();
      tool.bundlePath = text(entry, kDescriptionBundlePath, Need::Required, faultOfInstallPath,
                             "give the absolute path at which the bundle will be found")
                            .value_or("");
      tool.externalProduct =
          text(entry, kDescriptionExternalProduct, Need::Required, faultOfProductName, "give the name of a product")
              .value_or("");
      tool.product = entry.string(kDescriptionProduct, Need::Required).value_or("");
      if (!tool.product.empty() && !productsWithComponents_.contains(tool.product)) {
        entry.refuse(kDescriptionProduct, foundation::format("product %@ has no components", tool.product),
                     "give the product a component: an external tool can only follow an install of its own");
      } else if (!tool.product.empty() && !productsWithTools.insert(tool.product).second) {
        entry.refuse(kDescriptionProduct, foundation::format("product %@ has an external tool already", tool.product),
                     "keep one of them: a second one would never be recorded");
      }
      description_.externalTools.push_back(std::move(tool));
    }
  }

  void readOptions() {
    const auto options = top_.dictionary(kDescriptionOptions, Need::Optional);
    if (!options) {
      return;
    }
    options->allowOnly({deployer::kManifestIndexReceiptHasPayloadContents, deployer::kManifestIndexPayloadVersion,
                        deployer::kManifestIndexInstallerVersion, kDescriptionOptionsPlist});
    description_.optionsPlist = source(*options, kDescriptionOptionsPlist, Need::Optional);
    if (const auto keepsPayload = options->boolean(deployer::kManifestIndexReceiptHasPayloadContents)) {
      description_.options =
          description_.options.with(deployer::kManifestIndexReceiptHasPayloadContents, *keepsPayload);
    }
    for (const auto key : {deployer::kManifestIndexPayloadVersion, deployer::kManifestIndexInstallerVersion}) {
      if (const auto version = options->string(key, Need::Optional)) {
        description_.options = description_.options.with(key, *version);
      }
    }
  }

  void readSilencedWarnings() {
    description_.silencedWarnings = top_.strings(kDescriptionSilencedWarnings, Need::Optional);
    for (std::size_t index = 0; index < description_.silencedWarnings.size(); ++index) {
      if (!isWarningName(description_.silencedWarnings[index])) {
        top_.refuse(elementKey(kDescriptionSilencedWarnings, index), "no warning has this name",
                    "give a name as it is printed with the warning");
      }
    }
  }

  const CheckedDictionary& top_;
  BundleDescription description_;
  std::map<std::string, std::string> productNames_;    // case-folded name -> name
  std::map<std::string, std::size_t> componentIndex_;  // case-folded name -> first component of that name
  std::set<std::pair<std::string, std::string>> registered_;
  std::set<std::string> productsWithComponents_;
};

}  // namespace

BundleDescription readDescription(const std::string& file, Problems& problems) {
  const auto top = CheckedDictionary::fromFile(file, "the description", problems);
  return top ? DescriptionReader(*top).read() : BundleDescription{};
}

}  // namespace bundletool
