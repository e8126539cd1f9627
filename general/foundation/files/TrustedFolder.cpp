#include "general/foundation/files/TrustedFolder.h"

#include <fcntl.h>
#include <sys/stat.h>

#include <cerrno>

#include "general/foundation/Descriptor.h"
#include "general/foundation/files/internal/OpenFiles.h"

namespace foundation::trusted_folder {

namespace {

constexpr std::uint32_t kWritableByOthers = S_IWGRP | S_IWOTH;

}  // namespace

bool isItsOwnersAlone(std::uint32_t permissions) { return (permissions & kWritableByOthers) == 0; }

bool isRootsAlone(std::uint32_t owner, std::uint32_t permissions) {
  return owner == 0 && isItsOwnersAlone(permissions);
}

bool isRootsAlone(const std::string& path) {
  const Descriptor folder(open(path.c_str(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC));
  struct stat status {};
  return folder.isOpen() && fstat(folder.number(), &status) == 0 && isRootsAlone(status.st_uid, status.st_mode);
}

Status takeOver(const std::string& path, const FileAttributes& attributes) {
  const Descriptor folder(open(path.c_str(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC));
  return folder.isOpen() && open_files::setAttributes(folder.number(), attributes) == 0
             ? Status()
             : Status(fileError(errno, Access::Write, path));
}

}  // namespace foundation::trusted_folder
