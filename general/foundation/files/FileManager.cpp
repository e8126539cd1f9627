#include "general/foundation/files/FileManager.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <climits>
#include <utility>

#include "general/foundation/Descriptor.h"
#include "general/foundation/Paths.h"
#include "general/foundation/files/PreparedFile.h"
#include "general/foundation/files/internal/AttributeChanges.h"
#include "general/foundation/files/internal/DirectoryListing.h"
#include "general/foundation/files/internal/ExclusiveRename.h"
#include "general/foundation/files/internal/FilePrimitives.h"
#include "general/foundation/files/internal/FileReader.h"
#include "general/foundation/files/internal/NewItems.h"
#include "general/foundation/files/internal/StatConversion.h"
#include "general/foundation/files/internal/SystemPaths.h"
#include "general/foundation/files/internal/TreeRemoval.h"

namespace foundation::files {

using system_paths::folderOf;
using system_paths::holdsNul;
using system_paths::withoutTrailingSlashes;

namespace {

// Small enough to be in the processor's cache still when the reader gets it.
constexpr std::size_t kPieceBytes = std::size_t{128} * 1024;
constexpr std::size_t kLongestPath = std::size_t{1024} * 1024;

// Runs a call that gives -1 and sets errno, and says what went wrong.
template <class Call>
Status perform(const std::string& path, Access access, Call call) {
  if (holdsNul(path)) {
    return fileError(EINVAL, access, path);
  }
  return call() == 0 ? Status() : Status(fileError(errno, access, path));
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

}  // namespace

bool exists(const std::string& path) {
  struct stat item {};
  return !holdsNul(path) && stat(path.c_str(), &item) == 0;
}

Result<bool> presence(const std::string& path) {
  const auto found = attributesOfTarget(path);
  if (found || found.error().meansNothingThere()) {
    return found.ok();
  }
  return found.error();
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
    return withParents ? new_items::makeDirectories(name, attributes) : new_items::makeDirectory(name, attributes);
  });
}

Status createSymbolicLink(const std::string& path, const std::string& target, const FileAttributes& attributes) {
  if (holdsNul(target)) {
    return fileError(kWriteInvalidName, "The target of a link cannot hold a NUL.", path);
  }
  return perform(path, Access::Write,
                 [&] { return new_items::makeLink(withoutTrailingSlashes(path), target, attributes); });
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
  return perform(path, Access::Write, [&] { return attribute_changes::change(path, attributes); });
}

bool linksHavePermissions() { return file_primitives::linksHavePermissions(); }

Status setLinkAttributes(const FileAttributes& attributes, const std::string& path) {
  return perform(path, Access::Write, [&] { return attribute_changes::changeLink(path, attributes); });
}

namespace {

struct ReadableFile {
  Descriptor file;
  std::uint64_t length = 0;
};

Result<ReadableFile> openRegular(int openFlags, const std::string& path) {
  if (holdsNul(path)) {
    return fileError(EINVAL, Access::Read, path);
  }
  // Without waiting, for the open itself would wait for the other end of a pipe.
  Descriptor file(open(path.c_str(), O_RDONLY | O_NONBLOCK | O_NOCTTY | O_CLOEXEC | openFlags));
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
  return ReadableFile{std::move(file), static_cast<std::uint64_t>(item.st_size)};
}

Result<std::span<const std::byte>> readWith(int openFlags, const std::string& path, FileBuffer& buffer,
                                            const PieceVisitor& visitor, std::uint64_t mostBytes) {
  const auto opened = openRegular(openFlags, path);
  if (!opened) {
    return opened.error();
  }
  if (opened->length > mostBytes) {
    return fileError(kReadTooLarge, "The item \"" + paths::lastComponent(path) + "\" is too large.", path);
  }
  FileReader reader(opened->file.number(), buffer, visitor);
  if (reader.readAll(static_cast<std::size_t>(opened->length)) != 0) {
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

Status readInPieces(const std::string& path, FileBuffer& buffer, const PieceReader& reader) {
  const auto opened = openRegular(0, path);
  if (!opened) {
    return opened.error();
  }
  if (!buffer.reserve(kPieceBytes)) {
    return fileError(ENOMEM, Access::Read, path);
  }
  const auto room = buffer.memory().first(kPieceBytes);
  while (true) {
    const ssize_t count = ::read(opened->file.number(), room.data(), room.size());
    if (count < 0 && errno != EINTR) {
      return fileError(errno, Access::Read, path);
    }
    if (count == 0 || (count > 0 && !reader(room.first(static_cast<std::size_t>(count))))) {
      return {};
    }
  }
}

Result<std::uint64_t> lengthOfReadableFile(const std::string& path) {
  const auto opened = openRegular(0, path);
  if (!opened) {
    return opened.error();
  }
  return opened->length;
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

Status writeDurably(std::span<const std::byte> content, const std::string& path, const FileAttributes& attributes) {
  auto prepared = PreparedFile::prepare(path, content, attributes);
  if (!prepared) {
    return prepared.error();
  }
  if (Status flushed = prepared->flush(); !flushed) {
    return flushed;
  }
  Status published = std::move(prepared).value().publish();
  return published ? flushItem(folderOf(path)) : published;
}

Status append(std::span<const std::byte> content, const std::string& path) {
  return perform(path, Access::Write, [&] {
    const Descriptor file(open(path.c_str(), O_WRONLY | O_APPEND | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC));
    return file.isOpen() ? writeAll(file.number(), content) : -1;
  });
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

Status flushItem(const std::string& path) {
  return perform(path, Access::Write, [&] {
    const Descriptor item(open(path.c_str(), O_RDONLY | O_NONBLOCK | O_NOCTTY | O_CLOEXEC));
    return item.isOpen() ? file_primitives::flushFile(item.number()) : -1;
  });
}

}  // namespace foundation::files
