#include <fcntl.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <set>
#include <sstream>

#include "tests/support/Program.h"
#include "tests/support/RootDirectory.h"

namespace support {
namespace {

namespace fs = std::filesystem;

/// What tests and the demo call inside; a name the host lacks is left out.
constexpr const char* kPrograms[] = {
    "sh",      "bash",     "cat",       "ls",    "mkdir", "rm",       "rmdir",  "cp",    "mv",    "ln",    "touch",
    "chmod",   "chown",    "chgrp",     "id",    "env",   "true",     "false",  "echo",  "sleep", "stat",  "find",
    "sort",    "head",     "tail",      "wc",    "tr",    "cut",      "sed",    "grep",  "tar",   "pwd",   "test",
    "printf",  "date",     "kill",      "uname", "expr",  "dd",       "mkfifo", "seq",   "tee",   "xargs", "basename",
    "dirname", "readlink", "sha256sum", "cmp",   "diff",  "truncate", "ps",     "mktemp"};

void copyFile(const fs::path& from, const fs::path& to) {
  std::error_code error;
  fs::create_directories(to.parent_path(), error);
  if (!fs::copy_file(from, to, fs::copy_options::overwrite_existing, error) || error) {
    throw PrivateRootError("copying " + from.string() + " to " + to.string() + ": " + error.message());
  }
}

/// The paths in what ldd prints: "name => /path (0x…)" and "/path (0x…)".
std::set<std::string> pathsIn(const std::string& text) {
  std::set<std::string> paths;
  std::istringstream lines(text);
  std::string line;
  while (std::getline(lines, line)) {
    const std::size_t end = line.find(" (0x");
    const std::size_t start = line.find('/');
    if (end != std::string::npos && start != std::string::npos && start < end) {
      paths.insert(line.substr(start, end - start));
    }
  }
  return paths;
}

/// A process that outlives neither the root nor the test process and removes the directory when the first of them ends.
class Remover {
 public:
  explicit Remover(const std::string& directory) {
    std::array<int, 2> life{};
    if (pipe2(life.data(), O_CLOEXEC) != 0) {
      throwErrno("making a pipe");
    }
    process_ = fork();
    if (process_ == 0) {
      close(life[1]);
      removeAtEnd(life[0], directory);
    }
    close(life[0]);
    life_ = life[1];
  }

  ~Remover() {
    close(life_);
    while (process_ > 0 && waitpid(process_, nullptr, 0) < 0 && errno == EINTR) {
    }
  }

  Remover(const Remover&) = delete;
  Remover& operator=(const Remover&) = delete;

 private:
  [[noreturn]] static void removeAtEnd(int life, const std::string& directory) {
    // Descriptors of others would keep those waiting who read from them, and other roots alive.
    for (int descriptor = 0; descriptor < 4096; ++descriptor) {
      if (descriptor != life) {
        close(descriptor);
      }
    }
    setsid();
    char nothing = 0;
    while (read(life, &nothing, 1) < 0 && errno == EINTR) {
    }
    killProcessesIn(directory);
    std::error_code ignored;
    fs::remove_all(directory, ignored);
    _exit(0);
  }

  static void killProcessesIn(const std::string& directory) {
    std::error_code error;
    for (const auto& entry : fs::directory_iterator("/proc", error)) {
      const std::string name = entry.path().filename();
      const bool isProcess = name.find_first_not_of("0123456789") == std::string::npos;
      std::error_code unreadable;
      if (isProcess && fs::read_symlink(entry.path() / "root", unreadable) == directory) {
        kill(static_cast<pid_t>(std::stol(name)), SIGKILL);
      }
    }
  }

  pid_t process_ = -1;
  int life_ = -1;
};

class CopiedRoot : public RootDirectory {
 public:
  explicit CopiedRoot(std::string directory) : directory_(std::move(directory)), remover_(directory_) {}

  [[nodiscard]] std::string outsidePath() const override { return directory_; }

  [[nodiscard]] int enter() const override { return chroot(directory_.c_str()) == 0 && chdir("/") == 0 ? 0 : errno; }

  void provideLibrariesFor(const std::string& hostProgram) override { provideLibraries({hostProgram}); }

  void putInPlaceOf(const std::string& existing, const std::string& replacement) override {
    fs::remove(directory_ + existing);
    copyFile(directory_ + replacement, directory_ + existing);
  }

  void provideLibraries(const std::vector<std::string>& hostPrograms) {
    std::vector<std::string> command = {"/usr/bin/ldd"};
    command.insert(command.end(), hostPrograms.begin(), hostPrograms.end());
    for (const std::string& library : pathsIn(runOnHost(command).standardOutput)) {
      if (provided_.insert(library).second) {
        copyFile(library, directory_ + library);
      }
    }
  }

  void providePrograms() {
    std::vector<std::string> found;
    for (const std::string name : kPrograms) {
      for (const std::string folder : {"/usr/bin/", "/bin/"}) {
        if (fs::exists(folder + name)) {
          copyFile(folder + name, directory_ + "/usr/bin/" + name);
          makeLink(directory_ + "/bin/" + name, "/usr/bin/" + name);
          found.push_back(folder + name);
          break;
        }
      }
    }
    provideLibraries(found);
  }

 private:
  std::string directory_;
  Remover remover_;
  std::set<std::string> provided_;
};

/// The runtimes of the sanitizers read their options and the program's name from /proc only. Without these two files
/// they look for leaks, which fails where no /proc shows the threads, and complain on standard error.
void satisfySanitizers(const std::string& root) {
  makeDirectory(root + "/proc/self", 0755);
  writeFile(root + "/proc/self/environ", std::string("ASAN_OPTIONS=detect_leaks=0") + '\0', 0644);
  makeLink(root + "/proc/self/exe", "/proc/self/unknown");
}

std::string newDirectory() {
  std::string pattern = fs::canonical(fs::temp_directory_path()) / "private-root-XXXXXX";
  if (mkdtemp(pattern.data()) == nullptr || chmod(pattern.c_str(), 0755) != 0) {
    throwErrno("making a directory below " + fs::temp_directory_path().string());
  }
  return pattern;
}

}  // namespace

void requireChroot() {
  const pid_t child = fork();
  if (child == 0) {
    _exit(chroot("/") == 0 ? 0 : errno);
  }
  int status = 0;
  if (child < 0 || waitpid(child, &status, 0) != child) {
    throwErrno("trying chroot");
  }
  if (status != 0) {
    errno = WEXITSTATUS(status);
    throwErrno("a private root needs mounts or chroot, and this system allows neither");
  }
}

std::unique_ptr<RootDirectory> makeCopiedRoot(bool& hasDevices) {
  requireChroot();
  auto root = std::make_unique<CopiedRoot>(newDirectory());
  const std::string directory = root->outsidePath();
  const mode_t before = umask(022);
  furnish(directory);
  root->providePrograms();
  satisfySanitizers(directory);
  hasDevices = makeDevices(directory);
  if (!hasDevices) {
    // A file that is empty to readers is all that can be had; it keeps what is written to it.
    fs::remove(directory + "/dev/null");
    writeFile(directory + "/dev/null", "", 0666);
  }
  umask(before);
  return root;
}

}  // namespace support
