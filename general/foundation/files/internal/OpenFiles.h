#pragma once

#include <sys/types.h>
#include <time.h>

#include <array>
#include <cstdint>

#include "general/foundation/files/FileAttributes.h"

/// What is done to open files, for the sources of this folder. Every function gives -1 and sets errno when it fails.
namespace foundation::open_files {

/// An owner or group of this value means "leave it alone" to the system, so no item can be given it.
inline constexpr std::uint32_t kNobodyAtAll = 0xffffffff;
[[nodiscard]] bool givesToNobody(const FileAttributes& attributes);

/// Copies the whole content of one file to the other, from their starts.
int copyAll(int from, int to);
/// The times to set for this time of modification; the time of access is left alone.
std::array<timespec, 2> timesFor(std::int64_t modificationNanoseconds);
/// Owner and group first, for a change of owner clears set-id bits; then permissions and date. Absent ones are left as
/// they are.
int setAttributes(int file, const FileAttributes& attributes);

}  // namespace foundation::open_files
