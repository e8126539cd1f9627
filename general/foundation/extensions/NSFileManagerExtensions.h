#pragma once

#include <optional>
#include <string>
#include <string_view>

#include "general/foundation/Error.h"
#include "general/foundation/Result.h"
#include "general/foundation/files/FileAttributes.h"

namespace foundation::NSFileManagerExtensions {

/// Domain of the errors made here.
inline constexpr std::string_view kFileManagerExtensionsErrorDomain = "NSFileManager+Extensions";

/// An error whose message stands as its description, its reason and, as a text, its underlying error.
[[nodiscard]] Error errorWithMessage(std::string_view message, const std::optional<std::string>& path, long code);
/// Creates a directory and all its missing parents with the attributes; an existing directory is success.
[[nodiscard]] Status createDeepDirectoryAtPath(const std::string& path, const FileAttributes& attributes);
/// Copies a regular file over whatever file or link is there, in one step, with the source's owner, group, permissions
/// and date of modification. A link as source gives the content it leads to and its own owner, group and date; where
/// links have no permissions of their own the copy has those of what it leads to, set-id bits left out. The
/// destination's parent must exist.
[[nodiscard]] Status copyAndOverwriteItemAtPath(const std::string& source, const std::string& destination);

/// The same where others may have put links: those of the effective user are followed, any other is an error, on the
/// whole way. Content and attributes are those of one and the same file.
[[nodiscard]] Status copyAndOverwriteGuardedItemAtPath(const std::string& source, const std::string& destination);

}  // namespace foundation::NSFileManagerExtensions
