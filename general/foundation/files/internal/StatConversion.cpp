#include "general/foundation/files/internal/StatConversion.h"

#include "general/foundation/files/FileAttributes.h"
#include "general/foundation/files/internal/FilePrimitives.h"

namespace foundation {

namespace {

FileType typeOf(mode_t mode) {
  switch (mode & S_IFMT) {
    case S_IFREG:
      return FileType::Regular;
    case S_IFDIR:
      return FileType::Directory;
    case S_IFLNK:
      return FileType::SymbolicLink;
    case S_IFCHR:
      return FileType::CharacterSpecial;
    case S_IFBLK:
      return FileType::BlockSpecial;
    case S_IFSOCK:
      return FileType::Socket;
    case S_IFIFO:
      return FileType::Fifo;
    default:
      return FileType::Unknown;
  }
}

}  // namespace

ItemStatus statusFrom(const struct stat& item) {
  return {.type = typeOf(item.st_mode),
          .size = static_cast<std::uint64_t>(item.st_size),
          .owner = item.st_uid,
          .group = item.st_gid,
          .permissions = static_cast<std::uint32_t>(item.st_mode) & kPermissionBits,
          .modificationNanoseconds = file_primitives::modificationTime(item),
          .changeNanoseconds = file_primitives::changeTime(item),
          .device = static_cast<std::uint64_t>(item.st_dev),
          .inode = static_cast<std::uint64_t>(item.st_ino)};
}

}  // namespace foundation
