#pragma once

#include <sys/stat.h>

#include <cstddef>
#include <cstdint>
#include <string>

#include "general/foundation/files/FileSystemAttributes.h"

/// The few calls on files that differ between the systems; for the sources of this folder. Descriptors, names and
/// results are those of the system: functions that return an int give -1 and set errno when they fail.
namespace foundation::file_primitives {

/// Renames unless the new name is taken (EEXIST), in one step. EINVAL or ENOSYS where the file system cannot do that.
int renameExclusively(const char* from, const char* to);
/// Lets two items change places, in one step. EINVAL or ENOSYS where the file system cannot do that.
int exchange(const char* one, const char* other);

/// Opens a directory by its name in another one for reading: no link is followed, and a directory on which something
/// is mounted is refused (EXDEV).
int openSubdirectory(int folder, const char* name);

/// Opens a directory only to reach what lies in it, which takes no permission to list it. Links are followed.
int openFolder(const char* path);
/// The same, but fails when any part of the path is a link, or where the system cannot tell in one call.
int openFolderWithoutLinks(const char* path);
/// Opens an item only to look at it; a link itself, never what it leads to.
int openItself(int folder, const char* name);
/// The text of a link that openItself() opened, cut to the memory given. The number of bytes, or -1.
ssize_t readOpenLink(int link, char* text, std::size_t size);

/// Opens a new file in this folder that has no name; EOPNOTSUPP where there is no such thing.
int openUnnamedFile(const char* folder);
/// Gives an unnamed file its name. EEXIST when it is taken, EOPNOTSUPP when this process can name none: it then has to
/// be copied to a file with a name, and openUnnamedFile() opens no further ones.
int nameUnnamedFile(int file, const char* path);

/// Whether links have permissions of their own; elsewhere they only report some.
bool linksHavePermissions();
/// Sets the permissions of a link itself, where links have any.
int setLinkPermissions(const char* path, std::uint32_t permissions);

/// Times in nanoseconds since 1970.
std::int64_t modificationTime(const struct stat& item);
std::int64_t changeTime(const struct stat& item);

int attributesOfFileSystem(const char* path, FileSystemAttributes& attributes);
int flushFileSystem(const char* path);
/// Puts one open file or folder on the disk, past the device's own cache.
int flushFile(int file);

/// The names of an item's extended attributes, each ended by a NUL, and how long they are together; with no room, only
/// that. No link is followed.
ssize_t listExtendedAttributes(const char* path, char* names, std::size_t size);

}  // namespace foundation::file_primitives
