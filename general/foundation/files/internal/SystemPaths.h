#pragma once

#include <string>

/// What a path needs before the system gets it; for the sources of this folder.
namespace foundation::system_paths {

/// The system would take such a path for the shorter one in front of the NUL.
[[nodiscard]] bool holdsNul(const std::string& path);
/// A slash at the end would make the system follow a link that stands there.
[[nodiscard]] std::string withoutTrailingSlashes(const std::string& path);
/// The folder of an item, by a path that can be opened: "." where there is no other.
[[nodiscard]] std::string folderOf(const std::string& path);
/// Whether the path leads to a directory. Links are followed.
[[nodiscard]] bool isDirectory(const std::string& path);

}  // namespace foundation::system_paths
