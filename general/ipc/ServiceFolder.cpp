#include "general/ipc/ServiceFolder.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

#include "general/foundation/Descriptor.h"
#include "general/foundation/Paths.h"
#include "general/foundation/files/FileAttributes.h"
#include "general/foundation/files/TrustedFolder.h"
#include "general/logging/SystemLog.h"

namespace ipc {

namespace paths = foundation::paths;
namespace trusted_folder = foundation::trusted_folder;
using foundation::Descriptor;

namespace {

constexpr mode_t kFolderMode = 0755;

void complain(std::string_view what, std::string_view path) {
  const int number = errno;
  logging::error("%@ %@. %s", what, path, std::strerror(number));
}

/// Root's own folder, in which nobody else can put or replace anything.
bool makeFolder(std::string_view path) {
  const std::string folder(path);
  if (mkdir(folder.c_str(), kFolderMode) != 0 && errno != EEXIST) {
    complain("Unable to make the folder for connections", path);
    return false;
  }
  const Descriptor opened(open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC));
  struct stat status {};
  if (!opened.isOpen() || fstat(opened.number(), &status) != 0) {
    complain("Unable to open the folder for connections", path);
    return false;
  }
  if (!trusted_folder::isRootsAlone(status.st_uid, status.st_mode)) {
    logging::error("The folder for connections %@ is not used: others than root can write in it.", path);
    return false;
  }
  // Whatever the umask of who made it was, others have to find what is in it.
  if ((status.st_mode & foundation::kPermissionBits) != kFolderMode && fchmod(opened.number(), kFolderMode) != 0) {
    complain("Unable to open the folder for connections to others", path);
    return false;
  }
  return true;
}

}  // namespace

bool makeServiceFolders() {
  if (geteuid() != 0) {
    return false;
  }
  // The folder for what runs is made at every start of the system; a system that has none yet gets one.
  const std::string parent = paths::deleteLastComponent(std::string(kServiceFolder));
  for (const std::string& folder : {paths::deleteLastComponent(parent), parent}) {
    mkdir(folder.c_str(), kFolderMode);
  }
  return makeFolder(kServiceFolder) && makeFolder(kObserverFolder);
}

}  // namespace ipc
