#include <fcntl.h>
#include <sys/stat.h>
#include <sys/sysmacros.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

#include "tests/support/RootDirectory.h"

namespace support {
namespace {

constexpr mode_t kOrdinary = 0755;
constexpr mode_t kSticky = 01777;
constexpr uid_t kConsoleUser = 501;
constexpr uid_t kSecondUser = 502;

struct Device {
  const char* name;
  unsigned minor;
};
constexpr unsigned kMemoryMajor = 1;
constexpr Device kDevices[] = {{"null", 3}, {"zero", 5}, {"full", 7}, {"random", 8}, {"urandom", 9}};

void makeUsers(const std::string& root) {
  writeFile(root + "/etc/passwd",
            "root:x:0:0:root:/root:/bin/sh\n"
            "daemon:x:1:1:daemon:/:/bin/sh\n"
            "console:x:501:20:Console User:/Users/console:/bin/sh\n"
            "second:x:502:20:Second User:/Users/second:/bin/sh\n"
            "nobody:x:65534:65534:nobody:/:/bin/sh\n",
            0644);
  writeFile(root + "/etc/group",
            "root:x:0:\n"
            "daemon:x:1:\n"
            "tty:x:5:\n"
            "staff:x:20:\n"
            "admin:x:80:root,console\n"
            "nogroup:x:65534:\n",
            0644);
  writeFile(root + "/etc/nsswitch.conf", "passwd: files\ngroup: files\nshadow: files\nhosts: files\n", 0644);
  writeFile(root + "/etc/hosts", "127.0.0.1 localhost\n", 0644);
}

}  // namespace

void throwErrno(const std::string& action) {
  const int reason = errno;
  throw PrivateRootError(action + ": " + std::strerror(reason));
}

void makeDirectory(const std::string& path, mode_t mode) {
  if (mkdir(path.c_str(), mode) != 0 && errno != EEXIST) {
    throwErrno("making the directory " + path);
  }
  if (chmod(path.c_str(), mode) != 0) {
    throwErrno("setting the mode of " + path);
  }
}

void makeLink(const std::string& path, const std::string& target) {
  if (symlink(target.c_str(), path.c_str()) != 0 && errno != EEXIST) {
    throwErrno("making the link " + path);
  }
}

void writeFile(const std::string& path, const std::string& content, mode_t mode) {
  const int file = open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_NOFOLLOW | O_CLOEXEC, mode);
  if (file < 0) {
    throwErrno("writing " + path);
  }
  const ssize_t written = write(file, content.data(), content.size());
  const bool good = written == static_cast<ssize_t>(content.size()) && fchmod(file, mode) == 0;
  const int reason = written >= 0 && !good && errno == 0 ? ENOSPC : errno;
  close(file);
  if (!good) {
    errno = reason;
    throwErrno("writing " + path);
  }
}

void furnish(const std::string& root) {
  for (const char* name : {"/bin", "/dev", "/etc", "/proc", "/run", "/run/systemd", "/run/systemd/seats",
                           "/run/systemd/sessions", "/usr", "/var", "/var/log", "/var/cache", "/Library", "/System",
                           "/Users", "/Users/console", "/Users/second", "/Applications", "/Volumes"}) {
    makeDirectory(root + name, kOrdinary);
  }
  makeDirectory(root + "/root", 0700);
  makeDirectory(root + "/tmp", kSticky);
  makeDirectory(root + "/var/tmp", kSticky);
  makeLink(root + "/var/run", "/run");
  makeUsers(root);
  if (chown((root + "/Users/console").c_str(), kConsoleUser, 20) != 0 ||
      chown((root + "/Users/second").c_str(), kSecondUser, 20) != 0) {
    throwErrno("giving the users their folders");
  }
}

bool makeDevices(const std::string& root) {
  makeLink(root + "/dev/fd", "/proc/self/fd");
  makeLink(root + "/dev/stdin", "/proc/self/fd/0");
  makeLink(root + "/dev/stdout", "/proc/self/fd/1");
  makeLink(root + "/dev/stderr", "/proc/self/fd/2");
  for (const Device& device : kDevices) {
    const std::string path = root + "/dev/" + device.name;
    if (mknod(path.c_str(), S_IFCHR | 0666, makedev(kMemoryMajor, device.minor)) != 0 ||
        chmod(path.c_str(), 0666) != 0) {
      return false;
    }
    const int opened = open(path.c_str(), O_RDWR | O_CLOEXEC);
    const int readable = opened >= 0 ? opened : open(path.c_str(), O_RDONLY | O_CLOEXEC);
    if (readable < 0) {
      return false;
    }
    close(readable);
  }
  return true;
}

}  // namespace support
