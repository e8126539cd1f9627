#pragma once

#include <optional>
#include <string>
#include <string_view>

#include "general/foundation/Descriptor.h"
#include "general/foundation/Result.h"
#include "general/foundation/files/ItemStatus.h"

namespace foundation {

/// Looks at many items, one after the other. Items of one folder that follow each other cost one look-up of that folder
/// and one of each name, however deep the folder lies. Used by one thread at a time.
class ItemFinder {
 public:
  /// What lies at an absolute path, a link itself and not what it leads to; nothing when nothing lies there, which is
  /// so of a path that no item can have, too. Links on the way there are followed. An error when nobody can tell.
  [[nodiscard]] Result<std::optional<ItemStatus>> find(const std::string& path);

 private:
  [[nodiscard]] Status enterFolder(std::string_view folder);

  Descriptor folder_;
  std::string folderPath_;
};

}  // namespace foundation
