#pragma once

#include <cstdint>
#include <map>
#include <optional>
#include <string>

#include "general/foundation/Result.h"
#include "general/foundation/propertylist/PropertyList.h"

namespace deployer {

/// Property lists by the files they were read from. A file that did not change is not parsed again: an install asks for
/// the same manifests many times, and a large one takes longer to parse than to look at. For one thread.
class ManifestCache {
 public:
  /// The file's dictionary as it is on disk now. Errors: those of foundation::plist::readDictionary().
  [[nodiscard]] foundation::Result<foundation::PropertyList> read(const std::string& path);
  /// Whether the next read will give what the last one gave, without parsing.
  [[nodiscard]] bool isCurrent(const std::string& path) { return current(path) != nullptr; }

 private:
  /// Tells whether a file is still the one that was parsed.
  struct Stamp {
    std::uint64_t device = 0;
    std::uint64_t inode = 0;
    std::uint64_t size = 0;
    std::int64_t modified = 0;
    std::int64_t changed = 0;
    friend bool operator==(const Stamp&, const Stamp&) = default;
  };
  struct Parsed {
    Stamp stamp;
    foundation::PropertyList content;
  };

  [[nodiscard]] static std::optional<Stamp> stampOf(const std::string& path);
  [[nodiscard]] const foundation::PropertyList* current(const std::string& path);

  std::map<std::string, Parsed> parsed_;
};

}  // namespace deployer
