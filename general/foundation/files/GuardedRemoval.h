#pragma once

#include <optional>
#include <string>
#include <vector>

#include "general/foundation/Descriptor.h"
#include "general/foundation/Result.h"
#include "general/foundation/files/ItemStatus.h"

namespace foundation {

/// Removes items one by one where others may change folders meanwhile: no symlink race leads it elsewhere. Paths are
/// absolute and standardized; anything else is an error.
///
/// The folder that holds an item is reached through links of the effective user only (as /var and its kin are root's):
/// a link of somebody else on the way is an error. The item itself is never followed when it is a link. Items of one
/// folder that follow each other cost one look-up of that folder; it is held open until the next one is needed.
/// Used by one thread at a time.
class GuardedRemoval {
 public:
  /// What lies at the path, a link itself; nothing when there is nothing. An error when that cannot be told.
  [[nodiscard]] Result<std::optional<FileType>> typeOf(const std::string& path);
  /// Names in the directory, without "." and "..". A link of the effective user stands for the directory that it leads
  /// to; one of somebody else holds nothing.
  [[nodiscard]] Result<std::vector<std::string>> contentsOfDirectory(const std::string& path);
  /// Removes anything but a directory.
  [[nodiscard]] Status removeFile(const std::string& path);
  /// Removes a directory, and before it those items in it that are files or empty directories.
  /// @return false, and the directory stays, when it holds more than that.
  [[nodiscard]] Result<bool> removeDirectory(const std::string& path, const std::vector<std::string>& items);
  /// Removes anything; a directory goes with all its content. What is mounted on it or below it is not entered: that
  /// is an error, and what was removed before stays removed.
  [[nodiscard]] Status removeItem(const std::string& path);

 private:
  [[nodiscard]] Status reach(const std::string& path);
  [[nodiscard]] const char* name() const { return name_.c_str(); }
  template <class Call>
  [[nodiscard]] Status perform(const std::string& path, Access access, Call call);
  int list(std::vector<std::string>& names) const;
  int empty(const std::vector<std::string>& items) const;

  Descriptor folder_;
  std::string folderPath_;
  std::string name_;  // of the item, in the folder
};

}  // namespace foundation
