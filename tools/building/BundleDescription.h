#pragma once

#include <optional>
#include <string>
#include <vector>

#include "general/foundation/propertylist/PropertyList.h"
#include "tools/rules/Problem.h"

namespace bundletool {

struct ComponentDescription {
  std::string key;  ///< where it stands in the description, for messages
  std::string name;
  std::string version;
  std::string stagedFolder;
  std::string rootPrefix;
  std::vector<std::string> products;
  std::optional<std::string> authoringPlist;
};

struct ExternalToolDescription {
  std::string key;
  std::string bundlePath;
  std::string externalProduct;
  std::string product;
};

/// What a bundle is to be made of. Paths of sources are ready to be opened: they were put behind the folder of the
/// description where they are relative.
struct BundleDescription {
  std::string file;
  std::vector<ComponentDescription> components;
  std::vector<ExternalToolDescription> externalTools;
  foundation::PropertyList options;  ///< the part of the options that goes into the index
  std::optional<std::string> optionsPlist;
  std::optional<std::string> frontEnd;
  std::optional<std::string> engine;
};

/// Reads a description and holds it against the rules of its own; what it names is not looked at. The result is whole
/// only if no problem was added.
[[nodiscard]] BundleDescription readDescription(const std::string& file, Problems& problems);

}  // namespace bundletool
