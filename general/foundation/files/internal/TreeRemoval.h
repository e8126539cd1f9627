#pragma once

#include <sys/types.h>

#include <string>
#include <vector>

#include "general/foundation/Descriptor.h"

namespace foundation {

/// Removes one entry of an open folder, a directory with all its content. No link is ever followed, no other file
/// system entered, and neither the depth of a tree nor the length of its paths matters: at most two directories are
/// open at a time. For the sources of this folder.
class TreeRemoval {
 public:
  /// Takes the folder over.
  explicit TreeRemoval(Descriptor folder) : folder_(std::move(folder)) {}

  /// @return 0, or -1 with errno set; what is not yet removed stays then.
  int remove(const std::string& name);

 private:
  // A directory on the way from the top to where the removal is working.
  struct Level {
    std::string name;
    dev_t device;
    ino_t inode;  // of the directory above it
    std::vector<std::string> subdirectories;
  };

  int descend(const std::string& name);
  int ascend();
  int removeFiles(std::vector<std::string>& subdirectories);

  Descriptor folder_;
  std::vector<Level> levels_;
};

}  // namespace foundation
