#include "general/foundation/files/FileManager.h"

#include <fcntl.h>
#include <stdio.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <climits>
#include <utility>

#include "general/foundation/Descriptor.h"
#include "general/foundation/Paths.h"
#include "general/foundation/files/PreparedFile.h"
#include "general/foundation/files/TemporaryNames.h"
#include "general/foundation/files/internal/DirectoryListing.h"
#include "general/foundation/files/internal/FilePrimitives.h"
#include "general/foundation/files/internal/OpenFiles.h"
#include "general/foundation/files/internal/StatConversion.h"
#include "general/foundation/files/internal/TreeRemoval.h"

namespace foundation::files {

namespace {

constexpr std::uint32_t kSetIdBits = 06000;
constexpr std::uint32_t kDefaultDirectoryPermissions = 0755;
// Small enough to be in the processor's cache still when the visitor gets it.
constexpr std::size_t kPieceBytes = std::size_t{128} * 1024;
constexpr std::size_t kLongestPath = std::size_t{1024} * 1024;

// The system would take such a path for the shorter one in front of the NUL.
bool holdsNul(const std::string& path) { return path.find('\0') != std::string::npos; }

// Runs a call that gives -1 and sets errno, and says what went wrong.
template <class Call>
Status perform(const std::string& path, Access access, Call call) {
  if (holdsNul(path)) {
    return fileError(EINVAL, access, path);
  }
  return call() == 0 ? Status() : Status(fileError(errno, access, path));
}

// A slash at the end would make the system follow a link that stands there.
std::string withoutTrailingSlashes(const std::string& path) {
  const std::size_t last = path.find_last_not_of('/');
  return last == std::string::npos ? path.substr(0, 1) : path.substr(0, last + 1);
}

std::string folderOf(const std::string& path) {
  std::string folder = paths::deleteLastComponent(path);
  return folder.empty() ? "." : folder;
}

bool isDirectory(const std::string& path) {
  struct stat item {};
  return stat(path.c_str(), &item) == 0 && S_ISDIR(item.st_mode);
}

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

int renameWithoutReplacing(const std::string& from, const std::string& to) {
  const int result = file_primitives::renameExclusively(from.c_str(), to.c_str());
  return result != 0 && (errno == EINVAL || errno == ENOSYS) ? renameAfterCheck(from, to) : result;
}

// Runs a clean-up without losing the errno that made it necessary.
template <class CleanUp>
int failAfter(CleanUp cleanUp) {
  const int reason = errno;
  cleanUp();
  errno = reason;
  return -1;
}

int setNewDirectoryAttributes(const std::string& path, FileAttributes attributes) {
  if (!attributes.permissions) {
    attributes.permissions = kDefaultDirectoryPermissions;
  }
  const Descriptor directory(open(path.c_str(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC));
  struct stat item {};
  if (!directory.isOpen() || fstat(directory.number(), &item) != 0) {
    return -1;
  }
  // Whoever may write to the folder could have put another directory in place of ours.
  if (item.st_uid != geteuid()) {
    errno = EPERM;
    return -1;
  }
  return open_files::setAttributes(directory.number(), attributes);
}

int makeDirectory(const std::string& path, const FileAttributes& attributes) {
  const std::string temporaryPath = temporary_names::make(folderOf(path));
  if (mkdir(temporaryPath.c_str(), S_IRWXU) != 0) {
    return -1;
  }
  if (setNewDirectoryAttributes(temporaryPath, attributes) != 0 || renameWithoutReplacing(temporaryPath, path) != 0) {
    return failAfter([&] { rmdir(temporaryPath.c_str()); });
  }
  return 0;
}

int makeDirectoryUnlessThere(const std::string& path, const FileAttributes& attributes) {
  if (isDirectory(path) || makeDirectory(path, attributes) == 0) {
    return 0;
  }
  const int reason = errno;
  if (reason == EEXIST && isDirectory(path)) {
    // Another process was faster.
    return 0;
  }
  errno = reason;
  return -1;
}

int makeDirectories(const std::string& path, const FileAttributes& attributes) {
  std::vector<std::string> missing{path};
  struct stat item {};
  while (stat(missing.back().c_str(), &item) != 0) {
    std::string parent = folderOf(missing.back());
    if (errno != ENOENT) {
      return -1;
    }
    if (parent == missing.back()) {
      break;
    }
    missing.push_back(std::move(parent));
  }
  for (auto directory = missing.rbegin(); directory != missing.rend(); ++directory) {
    if (makeDirectoryUnlessThere(*directory, attributes) != 0) {
      return -1;
    }
  }
  return 0;
}

int makeLink(const std::string& path, const std::string& target, const FileAttributes& attributes) {
  const std::string temporaryPath = temporary_names::make(folderOf(path));
  if (symlink(target.c_str(), temporaryPath.c_str()) != 0) {
    return -1;
  }
  if (!setLinkAttributes(attributes, temporaryPath) || renameWithoutReplacing(temporaryPath, path) != 0) {
    return failAfter([&] { unlink(temporaryPath.c_str()); });
  }
  return 0;
}

int removeEntry(const std::string& path) {
  const std::string name = paths::lastComponent(path);
  if (!path.empty() && !paths::isSingleComponent(name)) {
    errno = name.size() > NAME_MAX ? ENAMETOOLONG : EINVAL;
    return -1;
  }
  Descriptor folder(open(folderOf(path).c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
  return folder.isOpen() ? TreeRemoval(std::move(folder)).remove(name) : -1;
}

int changeOwner(const std::string& path, const FileAttributes& attributes) {
  if (attributes.owner == open_files::kNobodyAtAll || attributes.group == open_files::kNobodyAtAll) {
    errno = EINVAL;
    return -1;
  }
  return chown(path.c_str(), attributes.owner.value_or(open_files::kNobodyAtAll),
               attributes.group.value_or(open_files::kNobodyAtAll));
}

// A change of owner takes the set-id bits away; attributes that are not to change have to be put back.
int changeOwnerOnly(const std::string& path, const FileAttributes& attributes) {
  struct stat item {};
  if (stat(path.c_str(), &item) != 0 || changeOwner(path, attributes) != 0) {
    return -1;
  }
  return (item.st_mode & kSetIdBits) == 0 ? 0 : chmod(path.c_str(), item.st_mode & kPermissionBits);
}

int changeOwnerAndPermissions(const std::string& path, const FileAttributes& attributes) {
  const bool changesOwner = attributes.owner || attributes.group;
  if (!attributes.permissions) {
    return changesOwner ? changeOwnerOnly(path, attributes) : 0;
  }
  if (changesOwner && changeOwner(path, attributes) != 0) {
    return -1;
  }
  return chmod(path.c_str(), static_cast<mode_t>(*attributes.permissions));
}

bool isLinkOfOthers(const std::string& path) {
  struct stat item {};
  return lstat(path.c_str(), &item) == 0 && S_ISLNK(item.st_mode) && item.st_uid != geteuid();
}

bool isLink(const std::string& path) {
  struct stat item {};
  return lstat(path.c_str(), &item) == 0 && S_ISLNK(item.st_mode);
}

// The folder is held while its attributes change: who may write to its parent could put a link in its place meanwhile.
int changeDirectoryAttributes(const std::string& path, const FileAttributes& attributes) {
  const int following = isLink(path) ? 0 : O_NOFOLLOW;
  const Descriptor directory(open(path.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC | following));
  return directory.isOpen() ? open_files::setAttributes(directory.number(), attributes) : -1;
}

int changeAttributes(const std::string& path, const FileAttributes& attributes) {
  if (isLinkOfOthers(path)) {
    errno = EPERM;
    return -1;
  }
  if (attributes.permissions && isDirectory(path)) {
    return changeDirectoryAttributes(path, attributes);
  }
  if (changeOwnerAndPermissions(path, attributes) != 0) {
    return -1;
  }
  return attributes.modificationNanoseconds
             ? utimensat(AT_FDCWD, path.c_str(), open_files::timesFor(*attributes.modificationNanoseconds).data(), 0)
             : 0;
}

// Reading a file to its end, whatever its length was said to be.
class FileReader {
 public:
  FileReader(int file, FileBuffer& buffer, const PieceVisitor& visitor)
      : file_(file), buffer_(buffer), visitor_(visitor) {}

  int readAll(std::size_t expected) {
    expected_ = expected;
    if (!makeRoom(expected)) {
      return -1;
    }
    while (true) {
      if (used_ == buffer_.memory().size() && !makeRoom(used_)) {
        return -1;
      }
      const int progress = readPiece();
      if (progress <= 0) {
        return progress;
      }
    }
  }
  [[nodiscard]] std::span<const std::byte> content() const { return buffer_.memory().first(used_); }

 private:
  // One byte more than the content is what shows the end without another call.
  bool makeRoom(std::size_t content) {
    if (used_ == 0 && buffer_.memory().size() <= content) {
      buffer_.shrinkTo(0);
    }
    if (content > SIZE_MAX - kPieceBytes || !buffer_.reserve(content / kPieceBytes * kPieceBytes + kPieceBytes)) {
      errno = ENOMEM;
      return false;
    }
    return true;
  }

  // 1 when there may be more, 0 at the end, -1 for an error.
  int readPiece() {
    const auto room = buffer_.memory().subspan(used_);
    const auto wanted = room.first(std::min(room.size(), kPieceBytes));
    const ssize_t count = ::read(file_, wanted.data(), wanted.size());
    if (count < 0) {
      return errno == EINTR ? 1 : -1;
    }
    const auto piece = wanted.first(static_cast<std::size_t>(count));
    used_ += piece.size();
    if (visitor_ && !piece.empty()) {
      visitor_(piece);
    }
    const bool complete = used_ == expected_ && piece.size() < wanted.size();
    return piece.empty() || complete ? 0 : 1;
  }

  int file_;
  FileBuffer& buffer_;
  const PieceVisitor& visitor_;
  std::size_t used_ = 0;
  std::size_t expected_ = 0;
};

}  // namespace

bool exists(const std::string& path) {
  struct stat item {};
  return !holdsNul(path) && stat(path.c_str(), &item) == 0;
}

Result<ItemStatus> attributesOfItem(const std::string& path) {
  struct stat item {};
  const Status status = perform(path, Access::Read, [&] { return lstat(withoutTrailingSlashes(path).c_str(), &item); });
  if (!status) {
    return status.error();
  }
  return statusFrom(item);
}

Result<ItemStatus> attributesOfTarget(const std::string& path) {
  struct stat item {};
  const Status status = perform(path, Access::Read, [&] { return stat(path.c_str(), &item); });
  if (!status) {
    return status.error();
  }
  return statusFrom(item);
}

Result<std::vector<std::string>> contentsOfDirectory(const std::string& path) {
  std::vector<std::string> names;
  const Status status = perform(path, Access::Read, [&] {
    const Descriptor directory(open(path.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    return directory.isOpen() ? listDirectory(directory.number(), names) : -1;
  });
  if (!status) {
    return status.error();
  }
  std::sort(names.begin(), names.end());
  return names;
}

Result<std::string> destinationOfSymbolicLink(const std::string& path) {
  std::string target(256, '\0');
  ssize_t length = 0;
  const Status status = perform(path, Access::Read, [&] {
    while (true) {
      length = readlink(withoutTrailingSlashes(path).c_str(), target.data(), target.size());
      if (length < 0 || static_cast<std::size_t>(length) < target.size()) {
        return length < 0 ? -1 : 0;
      }
      target.resize(2 * target.size());
    }
  });
  if (!status) {
    return status.error();
  }
  target.resize(static_cast<std::size_t>(length));
  return target;
}

Result<std::string> currentDirectory() {
  std::string path(PATH_MAX, '\0');
  while (getcwd(path.data(), path.size()) == nullptr) {
    if (errno != ERANGE || path.size() >= kLongestPath) {
      return fileError(errno, Access::Read, ".");
    }
    path.resize(2 * path.size());
  }
  path.resize(path.find('\0'));
  return path;
}

Status createDirectory(const std::string& path, bool withParents, const FileAttributes& attributes) {
  return perform(path, Access::Write, [&] {
    const std::string name = withoutTrailingSlashes(path);
    if (name.empty()) {
      errno = ENOENT;
      return -1;
    }
    return withParents ? makeDirectories(name, attributes) : makeDirectory(name, attributes);
  });
}

Status createSymbolicLink(const std::string& path, const std::string& target, const FileAttributes& attributes) {
  if (holdsNul(target)) {
    return fileError(kWriteInvalidName, "The target of a link cannot hold a NUL.", path);
  }
  return perform(path, Access::Write, [&] { return makeLink(withoutTrailingSlashes(path), target, attributes); });
}

Status removeItem(const std::string& path) {
  return perform(path, Access::Write, [&] { return removeEntry(withoutTrailingSlashes(path)); });
}

Status removeItemIfPresent(const std::string& path) {
  Status removed = removeItem(path);
  return !removed && removed.error().isNoSuchFile() ? Status() : removed;
}

Status moveItem(const std::string& from, const std::string& to) {
  if (holdsNul(to)) {
    return fileError(EINVAL, Access::Write, to);
  }
  const Status status = perform(from, Access::Write, [&] {
    return renameWithoutReplacing(withoutTrailingSlashes(from), withoutTrailingSlashes(to));
  });
  return !status && status.error().underlyingErrno == EEXIST ? fileError(EEXIST, Access::Write, to) : status;
}

Status exchangeItems(const std::string& one, const std::string& other) {
  if (holdsNul(other)) {
    return fileError(EINVAL, Access::Write, other);
  }
  return perform(one, Access::Write, [&] {
    return file_primitives::exchange(withoutTrailingSlashes(one).c_str(), withoutTrailingSlashes(other).c_str());
  });
}

Status setAttributes(const FileAttributes& attributes, const std::string& path) {
  return perform(path, Access::Write, [&] { return changeAttributes(path, attributes); });
}

bool linksHavePermissions() { return file_primitives::linksHavePermissions(); }

Status setLinkAttributes(const FileAttributes& attributes, const std::string& path) {
  return perform(path, Access::Write, [&] {
    if (attributes.owner == open_files::kNobodyAtAll || attributes.group == open_files::kNobodyAtAll) {
      errno = EINVAL;
      return -1;
    }
    if (lchown(path.c_str(), attributes.owner.value_or(open_files::kNobodyAtAll),
               attributes.group.value_or(open_files::kNobodyAtAll)) != 0) {
      return -1;
    }
    return attributes.permissions ? file_primitives::setLinkPermissions(path.c_str(), *attributes.permissions) : 0;
  });
}

namespace {

Result<std::span<const std::byte>> readWith(int openFlags, const std::string& path, FileBuffer& buffer,
                                            const PieceVisitor& visitor, std::uint64_t mostBytes) {
  if (holdsNul(path)) {
    return fileError(EINVAL, Access::Read, path);
  }
  // Without waiting, for the open itself would wait for the other end of a pipe.
  const Descriptor file(open(path.c_str(), O_RDONLY | O_NONBLOCK | O_NOCTTY | O_CLOEXEC | openFlags));
  struct stat item {};
  if (!file.isOpen() || fstat(file.number(), &item) != 0) {
    return fileError(errno, Access::Read, path);
  }
  if (S_ISDIR(item.st_mode)) {
    return fileError(EISDIR, Access::Read, path);
  }
  if (!S_ISREG(item.st_mode)) {
    return fileError(kReadUnknown, "The item \"" + paths::lastComponent(path) + "\" is not a regular file.", path);
  }
  if (static_cast<std::uint64_t>(item.st_size) > mostBytes) {
    return fileError(kReadTooLarge, "The item \"" + paths::lastComponent(path) + "\" is too large.", path);
  }
  FileReader reader(file.number(), buffer, visitor);
  if (reader.readAll(static_cast<std::size_t>(item.st_size)) != 0) {
    return fileError(errno, Access::Read, path);
  }
  return reader.content();
}

}  // namespace

Result<std::span<const std::byte>> read(const std::string& path, FileBuffer& buffer, const PieceVisitor& visitor,
                                        std::uint64_t mostBytes) {
  return readWith(0, path, buffer, visitor, mostBytes);
}

Result<std::span<const std::byte>> readItself(const std::string& path, FileBuffer& buffer) {
  return readWith(O_NOFOLLOW, path, buffer, {}, UINT64_MAX);
}

Result<std::string> readText(const std::string& path) {
  FileBuffer buffer;
  const auto content = read(path, buffer);
  if (!content) {
    return content.error();
  }
  return std::string(reinterpret_cast<const char*>(content->data()), content->size());
}

Status writeAtomically(std::span<const std::byte> content, const std::string& path, const FileAttributes& attributes) {
  auto prepared = PreparedFile::prepare(path, content, attributes);
  if (!prepared) {
    return prepared.error();
  }
  return std::move(prepared).value().publish();
}

Result<FileSystemAttributes> attributesOfFileSystem(const std::string& path) {
  FileSystemAttributes attributes;
  const Status status =
      perform(path, Access::Read, [&] { return file_primitives::attributesOfFileSystem(path.c_str(), attributes); });
  if (!status) {
    return status.error();
  }
  return attributes;
}

Status flushFileSystem(const std::string& path) {
  return perform(path, Access::Write, [&] { return file_primitives::flushFileSystem(path.c_str()); });
}

}  // namespace foundation::files
