#include "general/foundation/files/PreparedFile.h"

#include <fcntl.h>
#include <stdio.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <utility>

#include "general/foundation/files/TemporaryNames.h"
#include "general/foundation/files/internal/FilePrimitives.h"
#include "general/foundation/files/internal/OpenFiles.h"
#include "general/foundation/files/internal/SystemPaths.h"

namespace foundation {

using system_paths::folderOf;

namespace {

constexpr std::uint32_t kDefaultPermissions = 0644;

int openTemporaryFile(const std::string& folder, std::string& temporaryPath) {
  temporaryPath = temporary_names::make(folder);
  const int file = open(temporaryPath.c_str(), O_RDWR | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, S_IRUSR | S_IWUSR);
  if (file < 0) {
    temporaryPath.clear();
  }
  return file;
}

int openNewFile(const std::string& folder, std::string& temporaryPath) {
  const int file = file_primitives::openUnnamedFile(folder.c_str());
  return file < 0 && errno == EOPNOTSUPP ? openTemporaryFile(folder, temporaryPath) : file;
}

// The folder itself may be made only later; any of its parents lies on the same file system as a rule.
int openInNearestFolder(const std::string& destination, PreparedFile::WaitingPlace& place, std::string& temporaryPath) {
  const std::string wanted = folderOf(destination);
  std::string folder = wanted == place.missingFolder ? place.nearestFolder : wanted;
  int file = openNewFile(folder, temporaryPath);
  while (file < 0 && errno == ENOENT && folder != "/" && folder != ".") {
    folder = folderOf(folder);
    file = openNewFile(folder, temporaryPath);
    if (file >= 0) {
      place = {wanted, folder};
    }
  }
  return file;
}

int setAllAttributes(int file, const FileAttributes& attributes) {
  const uid_t owner = attributes.owner ? *attributes.owner : geteuid();
  const gid_t group = attributes.group ? *attributes.group : getegid();
  return open_files::setAttributes(file, {.owner = owner,
                                          .group = group,
                                          .permissions = attributes.permissions.value_or(kDefaultPermissions),
                                          .modificationNanoseconds = attributes.modificationNanoseconds});
}

}  // namespace

PreparedFile::PreparedFile(std::string destination, Descriptor file, std::string temporaryPath)
    : destination_(std::move(destination)), file_(std::move(file)), temporaryPath_(std::move(temporaryPath)) {}

PreparedFile::PreparedFile(PreparedFile&& other) noexcept
    : destination_(std::move(other.destination_)),
      file_(std::move(other.file_)),
      temporaryPath_(std::exchange(other.temporaryPath_, {})) {}

PreparedFile& PreparedFile::operator=(PreparedFile&& other) noexcept {
  if (this != &other) {
    discard();
    destination_ = std::move(other.destination_);
    file_ = std::move(other.file_);
    temporaryPath_ = std::exchange(other.temporaryPath_, {});
  }
  return *this;
}

PreparedFile::~PreparedFile() { discard(); }

void PreparedFile::discard() noexcept {
  file_.reset();
  if (!temporaryPath_.empty()) {
    unlink(temporaryPath_.c_str());
    temporaryPath_.clear();
  }
}

Result<PreparedFile> PreparedFile::prepare(const std::string& destination, std::span<const std::byte> content,
                                           const FileAttributes& attributes) {
  WaitingPlace place;
  return prepare(destination, content, attributes, place);
}

Result<PreparedFile> PreparedFile::prepare(const std::string& destination, std::span<const std::byte> content,
                                           const FileAttributes& attributes, WaitingPlace& place) {
  if (destination.empty() || system_paths::holdsNul(destination)) {
    return fileError(destination.empty() ? ENOENT : EINVAL, Access::Write, destination);
  }
  std::string temporaryPath;
  Descriptor file(openInNearestFolder(destination, place, temporaryPath));
  if (!file.isOpen()) {
    return fileError(errno, Access::Write, destination);
  }
  PreparedFile prepared(destination, std::move(file), std::move(temporaryPath));
  if (writeAll(prepared.file_.number(), content) != 0 || setAllAttributes(prepared.file_.number(), attributes) != 0) {
    return fileError(errno, Access::Write, destination);
  }
  return prepared;
}

Status PreparedFile::flush() {
  return file_primitives::flushFile(file_.number()) == 0 ? Status()
                                                         : Status(fileError(errno, Access::Write, destination_));
}

Status PreparedFile::publish() && {
  const int result = giveName();
  const int errnoValue = errno;
  discard();
  return result == 0 ? Status() : Status(fileError(errnoValue, Access::Write, destination_));
}

int PreparedFile::giveName() {
  if (!temporaryPath_.empty()) {
    return replaceTaken();
  }
  if (file_primitives::nameUnnamedFile(file_.number(), destination_.c_str()) == 0) {
    return 0;
  }
  if (errno == EEXIST) {
    temporaryPath_ = temporary_names::make(folderOf(destination_));
    if (file_primitives::nameUnnamedFile(file_.number(), temporaryPath_.c_str()) == 0) {
      return replaceTaken();
    }
    temporaryPath_.clear();
  }
  return errno == EOPNOTSUPP && copyToTemporaryName() == 0 ? replaceTaken() : -1;
}

int PreparedFile::replaceTaken() {
  if (rename(temporaryPath_.c_str(), destination_.c_str()) != 0) {
    return -1;
  }
  temporaryPath_.clear();
  return 0;
}

int PreparedFile::copyToTemporaryName() {
  struct stat item {};
  const Descriptor copy(openTemporaryFile(folderOf(destination_), temporaryPath_));
  if (!copy.isOpen() || fstat(file_.number(), &item) != 0 || open_files::copyAll(file_.number(), copy.number()) != 0) {
    return -1;
  }
  return open_files::setAttributes(
      copy.number(), {.owner = item.st_uid, .group = item.st_gid, .permissions = item.st_mode & kPermissionBits});
}

}  // namespace foundation
