#pragma once

#include <functional>
#include <map>
#include <string>
#include <vector>

#include "InstallationDeployer/FileEntry.h"
#include "general/foundation/Result.h"
#include "general/foundation/files/ItemStatus.h"
#include "general/foundation/propertylist/PropertyList.h"

namespace foundation {
class GuardedRemoval;
}

namespace deployer {

/// Takes away what an interrupted run may have left: everything that the manifests of the components list, of the old
/// version and of the new one, in whatever state it is. Unlike an ordinary removal it expects any of both in the place
/// of the other: a file where a directory was, a link where a file was. What is made under temporary names by a process
/// that no longer lives goes, too.
///
/// As in an ordinary removal, system folders, directories that hold something else and other users' links stay. A
/// modifiable file stays unless its content is what the interrupted run wrote, or the product is removed for good.
/// Used on the thread that runs the steps.
class InterruptedFilesRemoval {
 public:
  /// The manifest of a component that was being removed.
  void addRemoved(const foundation::PropertyList& manifest);
  /// The manifest of a component that was being installed.
  void addPlaced(const foundation::PropertyList& manifest, bool withModifiableFiles);

  /// Removes everything. Stops at the first item that cannot be removed.
  [[nodiscard]] foundation::Status remove(bool forGood) const;

 private:
  /// What all manifests together say of one path.
  struct Place {
    bool isModifiable = false;
    bool isOnlyDirectory = true;  ///< nobody lists anything else there
    bool isLink = false;
    bool isPlacedLink = false;
    bool removesContents = false;
    std::vector<std::string> written;  ///< checksums of what the run may have written there
  };

  Place* placeOf(const FileEntry& entry);
  void sweepFolders() const;
  [[nodiscard]] foundation::Status removeLinks(bool forGood, foundation::GuardedRemoval& removal) const;
  [[nodiscard]] static foundation::Status removeFrom(const std::string& path, const Place& place, bool forGood,
                                                     foundation::GuardedRemoval& removal);
  [[nodiscard]] static foundation::Status removeDirectory(const std::string& path, const Place& place,
                                                          foundation::GuardedRemoval& removal);
  [[nodiscard]] static foundation::Result<bool> staysWithItsUser(const std::string& path, const Place& place,
                                                                 foundation::FileType type);

  // What a directory holds comes before the directory.
  std::map<std::string, Place, std::greater<>> places_;
};

}  // namespace deployer
