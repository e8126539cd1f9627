#pragma once

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstddef>
#include <span>
#include <string>
#include <string_view>

#include "general/foundation/files/FileManager.h"
#include "tests/support/EndedProcess.h"
#include "tests/support/TemporaryDirectory.h"

namespace tests {

inline std::span<const std::byte> bytesOf(std::string_view text) { return std::as_bytes(std::span(text)); }

/// Sets the umask for the length of a scope.
class Umask {
 public:
  explicit Umask(mode_t mask) : before_(umask(mask)) {}
  ~Umask() { umask(before_); }
  Umask(const Umask&) = delete;
  Umask& operator=(const Umask&) = delete;

 private:
  mode_t before_;
};

/// A test with a folder of its own that gives items to other users, and so needs to be root.
class FileTest : public ::testing::Test {
 protected:
  void SetUp() override {
    if (geteuid() != 0) {
      GTEST_SKIP() << "giving files to other users needs root";
    }
  }

  [[nodiscard]] std::string path(std::string_view below) const { return box_.path(below); }
  [[nodiscard]] const std::string& folder() const { return box_.path(); }
  /// What stands in the folder.
  [[nodiscard]] std::vector<std::string> listing(std::string_view below = "") const {
    return foundation::files::contentsOfDirectory(below.empty() ? folder() : path(below)).value();
  }
  [[nodiscard]] static struct stat statusOf(const std::string& path) {
    struct stat item {};
    EXPECT_EQ(lstat(path.c_str(), &item), 0) << path;
    return item;
  }
  [[nodiscard]] static mode_t modeOf(const std::string& path) { return statusOf(path).st_mode & 07777; }
  static void expectOwner(const std::string& path, uid_t owner, gid_t group) {
    EXPECT_EQ(statusOf(path).st_uid, owner) << path;
    EXPECT_EQ(statusOf(path).st_gid, group) << path;
  }

  TemporaryDirectory box_;
};

/// Runs the body in a child process and gives its exit status, or -1 when it did not exit by itself.
template <class Body>
int exitStatusOf(Body body) {
  const pid_t child = fork();
  if (child == 0) {
    _exit(body());
  }
  int status = 0;
  waitpid(child, &status, 0);
  return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

}  // namespace tests
