#pragma once

#include <vector>

#include "tools/building/BundleDescription.h"
#include "tools/building/InstallItem.h"
#include "tools/rules/Problem.h"

namespace bundletool {

/// What one component installs, with the component.
struct ComponentItems {
  const ComponentDescription* component = nullptr;
  std::vector<InstallItem> items;
};

/// Finds paths that are installed twice in one product, and items that lie below what is no folder.
///
/// Components of one product may share folders when they agree about owner, group and mode. Within a component, a
/// folder may be listed again only to have it removed with its content.
void findPathConflicts(const std::vector<ComponentItems>& components, Problems& problems);

}  // namespace bundletool
