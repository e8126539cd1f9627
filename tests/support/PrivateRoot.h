#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "tests/support/CallRecord.h"
#include "tests/support/Program.h"
#include "tests/support/Snapshot.h"

namespace support {

/// A root directory of its own in which the real engine runs as root on absolute paths without touching the host: the
/// host's /usr read-only, a small /etc with the group admin (80) and the users 501 and 502, a /dev and /proc of its
/// own, empty /Library, /System, /Users, /Applications and /Volumes, and a recorder in place of /bin/launchctl.
///
/// Where the system allows mounts it is a mount and process namespace on a tmpfs: nothing shows on the host, and all of
/// it ends with the object or the test process, however that ends. Elsewhere it is a directory of copies entered by
/// chroot(2); what is missing then can be asked for, so that a test skips what cannot be shown.
///
/// Failures to set up throw PrivateRootError. Use from one thread.
class PrivateRoot {
 public:
  enum class Way { Best, Mounts, Copies };
  struct Options {
    Way way = Way::Best;  ///< Best: mounts where allowed, else copies
    /// What the root may hold before it is full; 0 for plenty. Needs hasPrivateMounts(). /usr counts for nothing.
    std::uint64_t rootSizeBytes = 0;
    /// A block device with a file system of this type that becomes the root, with what is on it, in place of a tmpfs.
    std::string device = {};
    std::string fileSystem = {};
  };

  PrivateRoot() : PrivateRoot(Options{}) {}
  explicit PrivateRoot(const Options& options);
  ~PrivateRoot();
  PrivateRoot(const PrivateRoot&) = delete;
  PrivateRoot& operator=(const PrivateRoot&) = delete;

  /// Why no private root of this way can be made here; nothing when it can. For GTEST_SKIP.
  [[nodiscard]] static std::optional<std::string> whyImpossible(Way way = Way::Best);

  /// Own mounts: /usr cannot be written, the size can be limited.
  [[nodiscard]] bool hasPrivateMounts() const { return whyNoMounts_.empty(); }
  /// A /proc of its own, with the root's own processes and no others.
  [[nodiscard]] bool hasProcesses() const { return hasPrivateMounts(); }
  /// /dev/null, zero, full, random and urandom are the devices of that name.
  [[nodiscard]] bool hasDevices() const { return hasDevices_; }
  /// Why there are no own mounts; empty when there are.
  [[nodiscard]] const std::string& whyNoMounts() const { return whyNoMounts_; }

  /// The path under which the test process reaches a path of the root. An absolute link inside leads to the host's file
  /// of that name when followed through it.
  [[nodiscard]] std::string path(std::string_view inside) const;

  /// Copies a file, link or tree of the host to a path inside with its permission bits, owned by root; missing parents
  /// are made with mode 0755. In a root of copies, programs bring their libraries with them.
  void copyIn(const std::string& hostPath, const std::string& inside);
  void makeDirectory(const std::string& inside, mode_t mode = 0755, uid_t user = 0, gid_t group = 0);
  void makeLink(const std::string& inside, const std::string& target);
  void writeFile(const std::string& inside, std::string_view content, mode_t mode = 0644, uid_t user = 0,
                 gid_t group = 0);
  /// Throws PrivateRootError when the file cannot be read.
  [[nodiscard]] std::string readFile(const std::string& inside) const;
  /// Anything there, a link that leads nowhere included.
  [[nodiscard]] bool exists(const std::string& inside) const;

  [[nodiscard]] Snapshot snapshot(const std::string& inside) const;

  /// Runs a program to its end. Its path is one seen inside; a program that cannot be started throws PrivateRootError.
  [[nodiscard]] Outcome run(const std::vector<std::string>& arguments, const RunOptions& options = {});
  /// Runs a shell command with the root's /bin/sh.
  [[nodiscard]] Outcome shell(const std::string& command, const RunOptions& options = {});
  /// Starts a program in the background. It must not outlive the root, nor the thread that starts it.
  [[nodiscard]] RunningProgram start(const std::vector<std::string>& arguments, const RunOptions& options = {});

  /// A process of this name and user that exists until the root ends, and its number as seen inside. Needs
  /// hasProcesses(). With `program` the file it runs has that path, with its last component as the process's name.
  pid_t startProcess(const std::string& name, uid_t user, const std::string& program = {});
  /// Ends a process of startProcess(), by its number inside.
  void endProcess(pid_t process);
  /// Waits for the end of a process of startProcess(): the signal that ended it; 0 when it goes on at its limit.
  [[nodiscard]] int signalThatEnds(pid_t process);
  /// Whether a process of startProcess() still runs.
  [[nodiscard]] bool processRuns(pid_t process);

  /// Makes the user the one at the console, as the login manager records it; nothing: nobody is.
  void setConsoleUser(std::optional<uid_t> user);

  /// Puts the recorder in the place of another command. A file of the read-only /usr must exist to be replaced.
  void recordCommand(const std::string& inside);
  /// What recorded commands do from now on; the first rule whose pattern matches counts.
  void setCommandRules(const std::vector<CommandRule>& rules);
  /// Every call of a recorded command so far, in order.
  [[nodiscard]] std::vector<RecordedCall> recordedCalls() const;
  void forgetRecordedCalls();

  /// For other helpers that start programs in it.
  [[nodiscard]] const RootDirectory& directory() const { return *directory_; }

 private:
  void furnishRecorder();

  std::string whyNoMounts_;
  bool hasDevices_ = true;
  std::unique_ptr<RootDirectory> directory_;
  std::vector<RunningProgram> processes_;
};

}  // namespace support
