#pragma once

#include <sys/types.h>

#include <cstdint>
#include <memory>
#include <optional>
#include <stdexcept>
#include <string>

namespace support {

/// The private root cannot be made or a program cannot be started in it; what() says why.
class PrivateRootError : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

/// A directory that programs take for "/": how it is entered and reached. Internal to the private root.
class RootDirectory {
 public:
  RootDirectory() = default;
  virtual ~RootDirectory() = default;
  RootDirectory(const RootDirectory&) = delete;
  RootDirectory& operator=(const RootDirectory&) = delete;

  /// The directory's path for processes outside.
  [[nodiscard]] virtual std::string outsidePath() const = 0;
  /// Makes it the root of the calling process, which has just been forked: 0 or an errno. Async-signal-safe.
  [[nodiscard]] virtual int enter() const = 0;
  /// Descriptor of the process namespace that programs are born into; -1 for the caller's own.
  [[nodiscard]] virtual int processNamespace() const { return -1; }
  /// Sees to it that an executable file of the host finds its loader and libraries inside.
  virtual void provideLibrariesFor(const std::string& hostProgram) = 0;
  /// Lets the file `replacement` be found under the name of another existing file; both are paths seen from inside.
  virtual void putInPlaceOf(const std::string& existing, const std::string& replacement) = 0;
};

/// What a mounted root lies on.
struct RootVolume {
  std::uint64_t sizeBytes = 0;  ///< what the tmpfs may hold; 0 for the system's default
  std::string device;           ///< a block device in place of a tmpfs; /run is a tmpfs then, as after a start
  std::string type;             ///< the device's file system
};

/// Its own mount and process namespace; gone with the processes that use it, nothing of it shows outside.
/// Null, with the reason in `whyNot`, where the system does not allow it.
[[nodiscard]] std::unique_ptr<RootDirectory> makeMountedRoot(const RootVolume& volume, std::string& whyNot);
/// A directory of copies below the temporary directory, entered by chroot(2); removed with the object, or when the
/// process that made it is gone. Throws PrivateRootError when even that is impossible.
[[nodiscard]] std::unique_ptr<RootDirectory> makeCopiedRoot(bool& hasDevices);
/// Throws PrivateRootError where chroot(2) is not allowed.
void requireChroot();

/// Creates the directories, users and groups that every private root has, below `root`.
void furnish(const std::string& root);
/// Creates the device nodes of a private /dev; false when the system does not allow it.
[[nodiscard]] bool makeDevices(const std::string& root);

/// mkdir, symlink and write that throw PrivateRootError; modes as given, whatever the umask.
void makeDirectory(const std::string& path, mode_t mode);
void makeLink(const std::string& path, const std::string& target);
void writeFile(const std::string& path, const std::string& content, mode_t mode);
/// `action: text of errno`, thrown.
[[noreturn]] void throwErrno(const std::string& action);

}  // namespace support
