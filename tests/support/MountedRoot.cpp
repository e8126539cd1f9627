#include <fcntl.h>
#include <sched.h>
#include <sys/mount.h>
#include <sys/prctl.h>
#include <sys/stat.h>
#include <sys/statvfs.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <csignal>
#include <cstring>
#include <filesystem>

#include "tests/support/RootDirectory.h"

namespace support {
namespace {

namespace fs = std::filesystem;

/// Bound here on a host whose /bin is no link into /usr, so that the names in the private /bin can lead to it.
constexpr const char* kHostBin = "/.host-bin";
constexpr const char* kReady = "ready";

void mountOrThrow(const char* source, const std::string& target, const char* type, unsigned long flags,
                  const char* data = nullptr) {
  if (mount(source, target.c_str(), type, flags, data) != 0) {
    throwErrno(std::string("mounting ") + source + " on " + target);
  }
}

void bindReadOnly(const std::string& source, const std::string& target) {
  makeDirectory(target, 0755);
  mountOrThrow(source.c_str(), target, nullptr, MS_BIND);
  struct statvfs host {};
  // What the host's mount forbids already cannot be allowed again, so it has to be named once more.
  const unsigned long kept = statvfs(source.c_str(), &host) == 0 ? host.f_flag & (ST_NOSUID | ST_NODEV | ST_NOEXEC) : 0;
  mountOrThrow("none", target, nullptr, MS_REMOUNT | MS_BIND | MS_RDONLY | kept);
}

/// /bin is a directory of the private root, so that commands can be put into it; its names lead to the host's programs.
void fillBin(const std::string& root) {
  const bool merged = fs::equivalent("/bin", "/usr/bin");
  if (!merged) {
    bindReadOnly("/bin", root + kHostBin);
  }
  const fs::path programs = merged ? "/usr/bin" : kHostBin;
  const fs::path bin = root + "/bin";
  for (const auto& program : fs::directory_iterator("/bin")) {
    makeLink(bin / program.path().filename(), programs / program.path().filename());
  }
}

void bindSystem(const std::string& root) {
  bindReadOnly("/usr", root + "/usr");
  fillBin(root);
  for (const char* name : {"sbin", "lib", "lib32", "lib64", "libx32"}) {
    const fs::path host = fs::path("/") / name;
    const fs::path inside = fs::path(root) / name;
    if (fs::is_symlink(host)) {
      makeLink(inside, fs::read_symlink(host));
    } else if (fs::is_directory(host)) {
      bindReadOnly(host, inside);
    }
  }
  if (fs::is_directory("/etc/alternatives")) {
    bindReadOnly("/etc/alternatives", root + "/etc/alternatives");
  }
  std::error_code ignored;
  fs::copy_file("/etc/ld.so.cache", root + "/etc/ld.so.cache", ignored);
}

void provideDevices(const std::string& root) {
  if (makeDevices(root)) {
    return;
  }
  for (const char* name : {"null", "zero", "full", "random", "urandom"}) {
    const fs::path host = fs::path("/dev") / name;
    const std::string inside = root + host.string();
    fs::remove(inside);
    writeFile(inside, "", 0666);
    mountOrThrow(host.c_str(), inside, nullptr, MS_BIND);
  }
}

void makeItTheRoot(const std::string& root) {
  if (chdir(root.c_str()) != 0 || syscall(SYS_pivot_root, ".", ".") != 0) {
    throwErrno("changing the root");
  }
  if (umount2(".", MNT_DETACH) != 0 || chdir("/") != 0) {
    throwErrno("leaving the host's root");
  }
}

void mountVolume(const RootVolume& volume, const std::string& root) {
  if (volume.device.empty()) {
    const std::string size = volume.sizeBytes == 0 ? "" : ",size=" + std::to_string(volume.sizeBytes);
    mountOrThrow("private-root", root, "tmpfs", 0, ("mode=0755" + size).c_str());
    return;
  }
  mountOrThrow(volume.device.c_str(), root, volume.type.c_str(), 0);
  makeDirectory(root + "/run", 0755);
  mountOrThrow("private-root", root + "/run", "tmpfs", 0, "mode=0755");
}

/// The whole root, built in the calling process, which is the first of its process namespace.
void build(const RootVolume& volume) {
  if (unshare(CLONE_NEWNS) != 0) {
    throwErrno("making a mount namespace");
  }
  mountOrThrow("none", "/", nullptr, MS_REC | MS_PRIVATE);
  // Any directory will do as a place to build on: the mount is seen by this process alone and moves to "/" at the end.
  const std::string root = fs::temp_directory_path();
  mountVolume(volume, root);
  furnish(root);
  bindSystem(root);
  provideDevices(root);
  mountOrThrow("proc", root + "/proc", "proc", MS_NOSUID | MS_NODEV | MS_NOEXEC);
  makeItTheRoot(root);
}

void report(int descriptor, const std::string& text) {
  if (write(descriptor, text.data(), text.size()) < 0) {
    _exit(1);
  }
}

void keepOnly(int first, int second) {
  const int null = open("/dev/null", O_RDWR | O_CLOEXEC);
  for (int standard = 0; null >= 0 && standard <= 2; ++standard) {
    dup2(null, standard);
  }
  const long limit = sysconf(_SC_OPEN_MAX);
  for (int descriptor = 3; descriptor < limit && descriptor < 4096; ++descriptor) {
    if (descriptor != first && descriptor != second) {
      close(descriptor);
    }
  }
}

/// Life of the first process: builds, says so, and lives until its maker closes the other end of `life`. With it ends
/// every process of the namespace.
[[noreturn]] void liveAsFirstProcess(int life, int status, const RootVolume& volume) {
  keepOnly(life, status);
  // Processes that lost their parent become children of the first; nobody asks how they ended.
  signal(SIGCHLD, SIG_IGN);
  signal(SIGINT, SIG_IGN);
  prctl(PR_SET_NAME, "private-root");
  umask(022);
  try {
    build(volume);
  } catch (const std::exception& error) {
    report(status, error.what());
    _exit(1);
  }
  report(status, kReady);
  close(status);
  char nothing = 0;
  while (read(life, &nothing, 1) < 0 && errno == EINTR) {
  }
  _exit(0);
}

std::string readAll(int descriptor) {
  std::string text;
  std::array<char, 512> piece{};
  ssize_t count = 0;
  while ((count = read(descriptor, piece.data(), piece.size())) > 0 || (count < 0 && errno == EINTR)) {
    text.append(piece.data(), count > 0 ? static_cast<std::size_t>(count) : 0);
  }
  return text;
}

class MountedRoot : public RootDirectory {
 public:
  MountedRoot(pid_t first, int life) : first_(first), life_(life) {
    const std::string namespaces = "/proc/" + std::to_string(first) + "/ns/";
    mounts_ = open((namespaces + "mnt").c_str(), O_RDONLY | O_CLOEXEC);
    processes_ = open((namespaces + "pid").c_str(), O_RDONLY | O_CLOEXEC);
  }

  ~MountedRoot() override {
    kill(first_, SIGKILL);
    while (waitpid(first_, nullptr, 0) < 0 && errno == EINTR) {
    }
    close(life_);
    close(mounts_);
    close(processes_);
  }

  [[nodiscard]] bool opened() const { return mounts_ >= 0 && processes_ >= 0; }
  [[nodiscard]] std::string outsidePath() const override { return "/proc/" + std::to_string(first_) + "/root"; }
  // A thread of a sanitizer shares its root and working directory with this one; only who has them alone may change.
  [[nodiscard]] int enter() const override {
    return unshare(CLONE_FS) == 0 && setns(mounts_, CLONE_NEWNS) == 0 ? 0 : errno;
  }
  [[nodiscard]] int processNamespace() const override { return processes_; }
  void provideLibrariesFor(const std::string& /*hostProgram*/) override {}

  void putInPlaceOf(const std::string& existing, const std::string& replacement) override {
    const pid_t child = fork();
    if (child == 0) {
      const int entered = enter();
      const int result =
          entered != 0 ? entered
                       : (mount(replacement.c_str(), existing.c_str(), nullptr, MS_BIND, nullptr) == 0 ? 0 : errno);
      _exit(result);
    }
    int status = 0;
    if (child < 0 || waitpid(child, &status, 0) != child) {
      throwErrno("replacing " + existing);
    }
    if (status != 0) {
      errno = WIFEXITED(status) ? WEXITSTATUS(status) : EINTR;
      throwErrno("replacing " + existing);
    }
  }

 private:
  pid_t first_;
  int life_;
  int mounts_ = -1;
  int processes_ = -1;
};

/// Forks the first process of a new process namespace; the caller's later children stay in its own.
pid_t forkFirstProcess() {
  const int own = open("/proc/self/ns/pid", O_RDONLY | O_CLOEXEC);
  if (own < 0 || unshare(CLONE_NEWPID) != 0) {
    const int reason = errno;
    close(own);
    errno = reason;
    return -1;
  }
  const pid_t first = fork();
  if (first != 0) {
    const int reason = errno;
    if (setns(own, CLONE_NEWPID) != 0) {
      throwErrno("returning to the own process namespace");
    }
    close(own);
    errno = reason;
  }
  return first;
}

}  // namespace

std::unique_ptr<RootDirectory> makeMountedRoot(const RootVolume& volume, std::string& whyNot) {
  std::array<int, 2> life{};
  std::array<int, 2> status{};
  if (pipe2(life.data(), O_CLOEXEC) != 0 || pipe2(status.data(), O_CLOEXEC) != 0) {
    throwErrno("making pipes");
  }
  const pid_t first = forkFirstProcess();
  if (first < 0) {
    whyNot = std::string("making a process namespace: ") + std::strerror(errno);
    for (const int descriptor : {life[0], life[1], status[0], status[1]}) {
      close(descriptor);
    }
    return nullptr;
  }
  if (first == 0) {
    close(life[1]);
    close(status[0]);
    liveAsFirstProcess(life[0], status[1], volume);
  }
  close(life[0]);
  close(status[1]);
  const std::string said = readAll(status[0]);
  close(status[0]);
  auto root = std::make_unique<MountedRoot>(first, life[1]);
  if (said != kReady || !root->opened()) {
    whyNot = said == kReady || said.empty() ? "the namespaces of the first process cannot be opened" : said;
    return nullptr;
  }
  return root;
}

}  // namespace support
