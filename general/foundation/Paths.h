#pragma once

#include <string>
#include <string_view>
#include <vector>

/// Paths as text, with the platform's rules for them. Nothing here touches the disk.
namespace foundation::paths {

/// The path with a component appended, one slash between them: ("/a/", "b") and ("/a", "/b") both give "/a/b".
/// Trailing slashes of the result are dropped; appending nothing gives the path itself.
[[nodiscard]] std::string append(std::string_view path, std::string_view component);
/// The path with "." and the extension appended, trailing slashes dropped first. The root and the empty
/// path have no name that could take one and stay as they are.
[[nodiscard]] std::string appendExtension(std::string_view path, std::string_view extension);
/// Everything before the last component: "/a/b" gives "/a", "/a" gives "/", "a" gives "".
[[nodiscard]] std::string deleteLastComponent(std::string_view path);
/// The last component, without slashes; "/" for the root.
[[nodiscard]] std::string lastComponent(std::string_view path);
/// The path without the extension of its last component. A name that begins with its only dot has none.
/// Trailing slashes are dropped.
[[nodiscard]] std::string deleteExtension(std::string_view path);
/// "/" for an absolute path, then each component; empty components are left out.
[[nodiscard]] std::vector<std::string> components(std::string_view path);
/// The path with empty components and "." taken out, and, for an absolute path only, ".." folded with what precedes it.
/// A relative path keeps its "..". A trailing slash is dropped, and of "." alone stays ".".
[[nodiscard]] std::string standardize(std::string_view path);
[[nodiscard]] bool isAbsolute(std::string_view path);
/// An absolute path as it stands; a relative one appended to the base and standardized.
[[nodiscard]] std::string resolve(std::string_view base, std::string_view path);
/// True when the text can be the name of one item of a directory: not empty, not "." or "..", no slash, no NUL, and no
/// longer than the system takes.
[[nodiscard]] bool isSingleComponent(std::string_view name);
/// Whether the system takes a path of this length, and each of its components.
[[nodiscard]] bool isWithinLimits(std::string_view path);
/// True when one of the components is "..".
[[nodiscard]] bool climbs(std::string_view path);

}  // namespace foundation::paths
