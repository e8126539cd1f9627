#include "general/foundation/files/internal/ExclusiveRename.h"

#include <fcntl.h>
#include <stdio.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>

#include "general/foundation/files/internal/FilePrimitives.h"

namespace foundation {

namespace {

// For file systems that cannot rename without replacing: a second name keeps the promise for everything but
// directories, which can only be looked for first.
int renameAfterCheck(const std::string& from, const std::string& to) {
  if (linkat(AT_FDCWD, from.c_str(), AT_FDCWD, to.c_str(), 0) == 0) {
    return unlink(from.c_str());
  }
  if (errno == EEXIST) {
    return -1;
  }
  struct stat item {};
  if (lstat(to.c_str(), &item) == 0) {
    errno = EEXIST;
    return -1;
  }
  return rename(from.c_str(), to.c_str());
}

}  // namespace

int renameWithoutReplacing(const std::string& from, const std::string& to) {
  const int result = file_primitives::renameExclusively(from.c_str(), to.c_str());
  return result != 0 && (errno == EINVAL || errno == ENOSYS) ? renameAfterCheck(from, to) : result;
}

}  // namespace foundation
