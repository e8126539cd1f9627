#include "tools/building/OptionsPlist.h"

#include <set>
#include <string>

#include "InstallationDeployer/ManifestKeys.h"
#include "general/foundation/propertylist/TextFormat.h"
#include "tools/rules/CheckedDictionary.h"
#include "tools/rules/PathRules.h"

namespace bundletool {

using foundation::PropertyList;
using Need = CheckedDictionary::Need;

namespace {

void checkDetectionPath(const CheckedDictionary& entry, const std::string& key, const PropertyList& path) {
  if (!isUsableText(path)) {
    entry.refuse(key, "the value is of the wrong kind", "give a path, or an array of paths of which one must exist");
  }
}

void checkDetectionPaths(const CheckedDictionary& entry) {
  const auto list = entry.array(deployer::kManifestIndexProductDetectionPaths, Need::Required);
  if (!list) {
    return;
  }
  for (std::size_t index = 0; index < list->count(); ++index) {
    const PropertyList& element = list->at(index);
    const std::string key = elementKey(deployer::kManifestIndexProductDetectionPaths, index);
    if (!element.isArray()) {
      checkDetectionPath(entry, key, element);
      continue;
    }
    for (std::size_t choice = 0; choice < element.count(); ++choice) {
      checkDetectionPath(entry, elementKey(key, choice), element.at(choice));
    }
  }
}

void checkProductName(const CheckedDictionary& entry) {
  if (const auto name = entry.string(deployer::kManifestIndexProductName, Need::Required)) {
    entry.refuseIf(faultOfProductName(*name), deployer::kManifestIndexProductName, "give the name of a product");
  }
}

void checkDetection(const CheckedDictionary& top) {
  using namespace deployer;
  for (const CheckedDictionary& entry : top.dictionaries(kManifestIndexProductDetectionArray, Need::Optional)) {
    entry.allowOnly({kManifestIndexProductName, kManifestIndexProductDetectionPaths});
    checkProductName(entry);
    checkDetectionPaths(entry);
  }
}

void checkRemovals(const CheckedDictionary& top) {
  using namespace deployer;
  for (const CheckedDictionary& entry : top.dictionaries(kManifestIndexProductRemovals, Need::Optional)) {
    entry.allowOnly({kManifestIndexProductName, kManifestIndexProductDetectionPaths, kManifestIndexListOfComponents});
    checkProductName(entry);
    checkDetectionPaths(entry);
    static_cast<void>(entry.strings(kManifestIndexListOfComponents, Need::Required));
  }
}

void checkCleanup(const CheckedDictionary& top) {
  if (const auto cleanup = top.dictionary(deployer::kManifestIndexProductCleanup, Need::Optional)) {
    cleanup->allowOnly({deployer::kManifestIndexListOfComponents});
    static_cast<void>(cleanup->strings(deployer::kManifestIndexListOfComponents, Need::Required));
  }
}

void checkCrossGrades(const CheckedDictionary& top, const std::set<std::string>& products) {
  using namespace deployer;
  const auto listed = top.dictionary(kManifestIndexDictionaryOfProducts, Need::Optional);
  if (!listed) {
    return;
  }
  for (const PropertyList::Entry& entry : listed->value().entries()) {
    const std::string name(entry.key);
    if (!products.contains(name)) {
      listed->refuse(name, "the description has no such product", "correct the name, or remove the product");
    }
    const auto product = listed->dictionary(name, Need::Required);
    if (!product) {
      continue;
    }
    product->allowOnly({kManifestIndexCrossGrades});
    for (const CheckedDictionary& crossGrade : product->dictionaries(kManifestIndexCrossGrades, Need::Required)) {
      crossGrade.allowOnly({kManifestIndexProductName, kManifestIndexAllowCrossGrades, kManifestIndexTreatAsUpdate});
      checkProductName(crossGrade);
      static_cast<void>(crossGrade.boolean(kManifestIndexAllowCrossGrades));
      static_cast<void>(crossGrade.boolean(kManifestIndexTreatAsUpdate));
    }
  }
}

}  // namespace

void examineOptionsPlist(const BundleDescription& description, Problems& problems) {
  using namespace deployer;
  const auto top = CheckedDictionary::fromFile(description.optionsPlist.value_or(""), "the options plist", problems);
  if (!top) {
    return;
  }
  std::set<std::string> products;
  for (const ComponentDescription& component : description.components) {
    products.insert(component.products.begin(), component.products.end());
  }
  top->allowOnly({kManifestIndexProductDetectionArray, kManifestIndexProductRemovals, kManifestIndexProductCleanup,
                  kManifestIndexDictionaryOfProducts});
  checkDetection(*top);
  checkRemovals(*top);
  checkCleanup(*top);
  checkCrossGrades(*top, products);
}

}  // namespace bundletool
