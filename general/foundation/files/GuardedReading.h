#pragma once

#include <cstdint>
#include <span>
#include <string>
#include <vector>

#include "general/foundation/Result.h"
#include "general/foundation/files/FileBuffer.h"
#include "general/foundation/files/ItemStatus.h"
#include "general/foundation/files/PieceVisitor.h"

/// Reading where others may change folders meanwhile, without being led to what they must not read: links are followed
/// when they belong to the effective user and are an error otherwise, on the whole way and at its end. So is a regular
/// file of several names in a folder that others can write to: one of the names may be theirs. What is judged is what
/// was opened.
namespace foundation::files {

struct GuardedContent {
  std::span<const std::byte> bytes;  ///< in the buffer, until its next use
  ItemStatus item;                   ///< of what lies at the path, a link itself
  ItemStatus file;                   ///< of the file that was read
};

/// Reads a regular file whole. Anything else is an error at once, as for read().
[[nodiscard]] Result<GuardedContent> readGuarded(const std::string& path, FileBuffer& buffer,
                                                 const PieceVisitor& visitor = {},
                                                 std::uint64_t mostBytes = UINT64_MAX);
/// Names in the directory, without "." and "..", sorted by their bytes.
[[nodiscard]] Result<std::vector<std::string>> contentsOfGuardedDirectory(const std::string& path);

}  // namespace foundation::files
