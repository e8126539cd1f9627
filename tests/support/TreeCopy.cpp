#include "tests/support/TreeCopy.h"

#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>
#include <system_error>

#include "tests/support/RootDirectory.h"

namespace support {
namespace {

namespace fs = std::filesystem;

constexpr off_t kProgramSize = off_t{1} << 20;
constexpr mode_t kPermissionBits = 07777;

struct stat attributesOf(const std::string& path) {
  struct stat attributes {};
  if (lstat(path.c_str(), &attributes) != 0) {
    throwErrno("looking at " + path);
  }
  return attributes;
}

// The mode comes last: a change of owner clears set-id bits.
void setAttributes(const std::string& path, const struct stat& like) {
  if (lchown(path.c_str(), like.st_uid, like.st_gid) != 0 ||
      (!S_ISLNK(like.st_mode) && chmod(path.c_str(), like.st_mode & kPermissionBits) != 0)) {
    throwErrno("giving attributes to " + path);
  }
}

void copyFile(const std::string& from, const std::string& to, off_t size) {
  std::error_code error;
  if (size > kProgramSize) {
    fs::create_hard_link(from, to, error);
  } else {
    fs::copy_file(from, to, error);
  }
  if (error) {
    throw PrivateRootError("copying " + from + " to " + to + ": " + error.message());
  }
}

}  // namespace

void copyTree(const std::string& from, const std::string& to) {
  const struct stat attributes = attributesOf(from);
  if (S_ISDIR(attributes.st_mode)) {
    makeDirectory(to, 0700);
    for (const auto& item : fs::directory_iterator(from)) {
      copyTree(item.path(), to + "/" + item.path().filename().string());
    }
  } else if (S_ISLNK(attributes.st_mode)) {
    makeLink(to, fs::read_symlink(from));
  } else if (S_ISREG(attributes.st_mode)) {
    copyFile(from, to, attributes.st_size);
  } else {
    return;
  }
  setAttributes(to, attributes);
}

void removeTree(const std::string& path) {
  std::error_code error;
  fs::remove_all(path, error);
  if (error) {
    throw PrivateRootError("removing " + path + ": " + error.message());
  }
}

}  // namespace support
