#pragma once

#include <optional>
#include <string>
#include <vector>

#include "general/foundation/propertylist/PropertyList.h"
#include "tools/rules/Problem.h"

namespace bundletool {

/// A component, in the products that are listed with it. One component may be listed several times.
struct ComponentDescription {
  std::string key;  ///< where it stands in the description, for messages
  std::string name;
  std::string version;
  std::string stagedFolder;  ///< the folder on this machine that holds what is installed
  std::string rootPrefix;    ///< where that folder will lie on the machine installed on
  std::vector<std::string> products;
  std::optional<std::string> authoringPlist;  ///< the part of its manifest that is written by hand
};

/// Another bundle that installs a product of its own after a product of this one.
struct ExternalToolDescription {
  std::string key;              ///< where it stands in the description, for messages
  std::string bundlePath;       ///< where the bundle will be found on the machine installed on
  std::string externalProduct;  ///< what is installed from it
  std::string product;          ///< after which product of this bundle
};

/// What a bundle is to be made of. Paths of sources are ready to be opened: they were put behind the folder of the
/// description where they are relative.
struct BundleDescription {
  std::string file;  ///< the description itself, for messages
  std::vector<ComponentDescription> components;
  std::vector<ExternalToolDescription> externalTools;
  foundation::PropertyList options;  ///< the part of the options that goes into the index
  std::optional<std::string> optionsPlist;
  std::optional<std::string> frontEnd;
  std::optional<std::string> engine;
  bool rootOwnerGroup = false;                ///< whatever is staged is recorded with owner and group 0
  std::vector<std::string> silencedWarnings;  ///< names of warnings that are not told
};

/// Reads a description and holds it against the rules of its own; what it names is not looked at. The result is whole
/// only if no problem was added.
[[nodiscard]] BundleDescription readDescription(const std::string& file, Problems& problems);

}  // namespace bundletool
