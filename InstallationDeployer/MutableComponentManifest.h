#pragma once

#include <cstdint>

#include "general/foundation/propertylist/PropertyList.h"

namespace deployer {

/// A component manifest in the making. Property lists do not change, so what grows entry by entry is kept in lists of
/// its own and becomes a property list once, at the end. Not for use by two threads at once.
class MutableComponentManifest {
 public:
  /// Starts with the entries of an existing manifest, or with none.
  explicit MutableComponentManifest(const foundation::PropertyList& existing = {});

  /// The manifest as it stands: every list is there, empty or not.
  [[nodiscard]] foundation::PropertyList dictionary() const;

  foundation::PropertyList::Array files;
  foundation::PropertyList::Array executables;
  foundation::PropertyList::Array launchDaemons;
  foundation::PropertyList::Array launchAgents;
  std::int64_t size = 0;  ///< bytes of everything that is no folder
  foundation::PropertyList rebuildKextCache;
  foundation::PropertyList version;

 private:
  foundation::PropertyList others_;  // what an existing manifest holds beyond the above
};

}  // namespace deployer
