#pragma once

#include <optional>
#include <string>

#include "general/foundation/Descriptor.h"
#include "general/foundation/files/ItemStatus.h"

namespace foundation {

/// Looks at many items, one after the other. Items of one folder that follow each other cost one look-up of that folder
/// and one of each name, however deep the folder lies. Used by one thread at a time.
class ItemFinder {
 public:
  /// What lies at an absolute path, a link itself and not what it leads to; nothing when that cannot be said, for
  /// whatever reason. Links on the way there are followed.
  [[nodiscard]] std::optional<ItemStatus> find(const std::string& path);

 private:
  Descriptor folder_;
  std::string folderPath_;
};

}  // namespace foundation
