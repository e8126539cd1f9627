#include "general/foundation/files/GuardedReading.h"

#include <algorithm>
#include <cerrno>

#include "general/foundation/Paths.h"
#include "general/foundation/files/GuardedFolder.h"
#include "general/foundation/files/internal/DirectoryListing.h"
#include "general/foundation/files/internal/FileReader.h"
#include "general/foundation/files/internal/StatConversion.h"

namespace foundation::files {

Result<GuardedContent> readGuarded(const std::string& path, FileBuffer& buffer, const PieceVisitor& visitor,
                                   std::uint64_t mostBytes) {
  const auto opened = openGuardedItem(path);
  if (!opened) {
    return opened.error();
  }
  if (S_ISDIR(opened->target.st_mode)) {
    return fileError(EISDIR, Access::Read, path);
  }
  if (static_cast<std::uint64_t>(opened->target.st_size) > mostBytes) {
    return fileError(kReadTooLarge, "The item \"" + paths::lastComponent(path) + "\" is too large.", path);
  }
  FileReader reader(opened->item.number(), buffer, visitor);
  if (reader.readAll(static_cast<std::size_t>(opened->target.st_size)) != 0) {
    return fileError(errno, Access::Read, path);
  }
  return GuardedContent{reader.content(), statusFrom(opened->itself), statusFrom(opened->target)};
}

Result<std::vector<std::string>> contentsOfGuardedDirectory(const std::string& path) {
  const auto opened = openGuardedItem(path);
  if (!opened) {
    return opened.error();
  }
  std::vector<std::string> names;
  if (!S_ISDIR(opened->target.st_mode)) {
    return fileError(ENOTDIR, Access::Read, path);
  }
  if (listDirectory(opened->item.number(), names) != 0) {
    return fileError(errno, Access::Read, path);
  }
  std::ranges::sort(names);
  return names;
}

}  // namespace foundation::files
