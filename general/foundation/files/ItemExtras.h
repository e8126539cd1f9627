#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace foundation::files {

/// What an item has beside its content and its ItemStatus.
struct ItemExtras {
  std::uint64_t names = 1;                      ///< links to a file (hard links), this one included
  std::vector<std::string> extendedAttributes;  ///< their names; access control lists may be among them
  bool hasHoles = false;                        ///< parts of a regular file that take no room on the disk
};

/// Does not follow a link. What nobody can tell, or the file system does not know, is answered as not there, so only
/// for callers that merely advise.
[[nodiscard]] ItemExtras extrasOfItem(const std::string& path);

}  // namespace foundation::files
