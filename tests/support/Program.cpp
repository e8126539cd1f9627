#include "tests/support/Program.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <thread>

#include "tests/support/ProgramStart.h"

namespace support {
namespace {

/// Between two looks at something that sends no message when it changes.
constexpr std::chrono::milliseconds kLookAgain{2};

int memoryFile(const char* name, const std::string& content) {
  const int file = memfd_create(name, MFD_CLOEXEC);
  if (file < 0 || write(file, content.data(), content.size()) != static_cast<ssize_t>(content.size()) ||
      lseek(file, 0, SEEK_SET) != 0) {
    throwErrno("making a file in memory");
  }
  return file;
}

int appendedMemoryFile(const char* name) {
  const int file = memoryFile(name, "");
  if (fcntl(file, F_SETFL, O_APPEND) != 0) {
    throwErrno("making a file in memory");
  }
  return file;
}

std::string contentOf(int file) {
  struct stat attributes {};
  if (file < 0 || fstat(file, &attributes) != 0) {
    return {};
  }
  std::string content(static_cast<std::size_t>(attributes.st_size), '\0');
  const ssize_t count = pread(file, content.data(), content.size(), 0);
  content.resize(count < 0 ? 0 : static_cast<std::size_t>(count));
  return content;
}

void closeIfOpen(int& descriptor) {
  if (descriptor >= 0) {
    close(descriptor);
  }
  descriptor = -1;
}

/// A root that is the host's own.
class HostDirectory : public RootDirectory {
 public:
  [[nodiscard]] std::string outsidePath() const override { return ""; }
  [[nodiscard]] int enter() const override { return 0; }
  void provideLibrariesFor(const std::string& /*hostProgram*/) override {}
  void putInPlaceOf(const std::string& /*existing*/, const std::string& /*replacement*/) override {
    throw PrivateRootError("the host's files are not replaced");
  }
};

}  // namespace

std::string Outcome::description() const {
  constexpr std::size_t kShown = 4000;
  std::string how = signal != 0 ? "signal " + std::to_string(signal) : "exit code " + std::to_string(exitCode);
  if (timedOut) {
    how += " (killed at its time limit)";
  }
  const std::size_t start = standardError.size() > kShown ? standardError.size() - kShown : 0;
  return how + "\n" + standardError.substr(start);
}

std::vector<std::string> defaultEnvironment() {
  std::vector<std::string> environment = {"PATH=/usr/local/sbin:/usr/local/bin:/usr/sbin:/usr/bin:/sbin:/bin",
                                          "HOME=/root", "LC_ALL=C"};
  for (const char* name : {"ASAN_OPTIONS", "UBSAN_OPTIONS", "TSAN_OPTIONS", "LSAN_OPTIONS"}) {
    if (const char* value = std::getenv(name); value != nullptr) {
      environment.push_back(std::string(name) + "=" + value);
    }
  }
  return environment;
}

RunningProgram::RunningProgram(const RootDirectory& root, const std::vector<std::string>& arguments,
                               const RunOptions& options, const std::function<void(pid_t)>& whileHeld)
    : program_(arguments.at(0)), limit_(options.limit) {
  std::vector<std::string> vector = arguments;
  vector.front() = options.argumentZero.value_or(program_);
  ProgramStart start;
  start.root = &root;
  start.options = &options;
  start.arguments = pointers(vector);
  start.environment = pointers(options.environment);
  start.program = program_.c_str();
  std::array<int, 2> gate{-1, -1};
  std::array<int, 2> launch{-1, -1};
  if (pipe2(gate.data(), O_CLOEXEC) != 0 || pipe2(launch.data(), O_CLOEXEC) != 0) {
    throwErrno("making pipes");
  }
  start.standard[0] = memoryFile("standard-input", options.standardInput);
  if (!options.inheritOutput) {
    start.standard[1] = output_ = appendedMemoryFile("standard-output");
    start.standard[2] = error_ = appendedMemoryFile("standard-error");
  }
  start.gate = gate[0];
  start.launchStatus = launch[1];
  process_ = forkInto(root);
  if (process_ == 0) {
    close(gate[1]);
    becomeProgram(start);
  }
  close(gate[0]);
  close(launch[1]);
  close(start.standard[0]);
  launchDescriptor_ = launch[0];
  if (process_ < 0) {
    close(gate[1]);
    throwErrno("making a process for " + program_);
  }
  exitDescriptor_ = static_cast<int>(syscall(SYS_pidfd_open, process_, 0));
  readInsideProcess();
  if (whileHeld) {
    whileHeld(process_);
  }
  close(gate[1]);
}

RunningProgram::~RunningProgram() { release(); }

RunningProgram::RunningProgram(RunningProgram&& other) noexcept { *this = std::move(other); }

RunningProgram& RunningProgram::operator=(RunningProgram&& other) noexcept {
  if (this != &other) {
    release();
    process_ = std::exchange(other.process_, -1);
    insideProcess_ = other.insideProcess_;
    exitDescriptor_ = std::exchange(other.exitDescriptor_, -1);
    launchDescriptor_ = std::exchange(other.launchDescriptor_, -1);
    output_ = std::exchange(other.output_, -1);
    error_ = std::exchange(other.error_, -1);
    program_ = std::move(other.program_);
    limit_ = other.limit_;
    status_ = other.status_;
  }
  return *this;
}

void RunningProgram::release() noexcept {
  if (process_ > 0 && !status_) {
    ::kill(process_, SIGKILL);
    reap(0);
  }
  process_ = -1;
  closeIfOpen(exitDescriptor_);
  closeIfOpen(launchDescriptor_);
  closeIfOpen(output_);
  closeIfOpen(error_);
}

void RunningProgram::readInsideProcess() {
  insideProcess_ = process_;
  std::ifstream status("/proc/" + std::to_string(process_) + "/status");
  std::string line;
  while (std::getline(status, line)) {
    if (line.starts_with("NSpid:")) {
      insideProcess_ = static_cast<pid_t>(std::stol(line.substr(line.find_last_of(" \t") + 1)));
    }
  }
}

void RunningProgram::requireLaunch() {
  int reason = 0;
  ssize_t count = 0;
  while ((count = read(launchDescriptor_, &reason, sizeof reason)) < 0 && errno == EINTR) {
  }
  if (count == sizeof reason) {
    reap(0);
    throw PrivateRootError("starting " + program_ + ": " + std::strerror(reason));
  }
}

bool RunningProgram::reap(int flags) {
  int status = 0;
  pid_t reaped = 0;
  while ((reaped = waitpid(process_, &status, flags)) < 0 && errno == EINTR) {
  }
  if (reaped == process_) {
    status_ = status;
  }
  return status_.has_value();
}

bool RunningProgram::isRunning() { return !status_ && !reap(WNOHANG); }

void RunningProgram::kill(int signal) const {
  if (process_ > 0 && !status_) {
    ::kill(process_, signal);
  }
}

void RunningProgram::noteEnd(int status) { status_ = status; }

Outcome RunningProgram::wait() {
  Outcome outcome;
  const auto deadline = std::chrono::steady_clock::now() + limit_;
  while (isRunning()) {
    const auto left =
        std::chrono::duration_cast<std::chrono::milliseconds>(deadline - std::chrono::steady_clock::now());
    if (left.count() <= 0) {
      outcome.timedOut = true;
      kill(SIGKILL);
      reap(0);
    } else if (exitDescriptor_ >= 0) {
      pollfd ended{exitDescriptor_, POLLIN, 0};
      poll(&ended, 1, static_cast<int>(left.count()));
    } else {
      std::this_thread::sleep_for(kLookAgain);
    }
  }
  const int status = status_.value_or(0);
  outcome.exitCode = WIFEXITED(status) ? WEXITSTATUS(status) : -1;
  outcome.signal = WIFSIGNALED(status) ? WTERMSIG(status) : 0;
  outcome.standardOutput = standardOutputSoFar();
  outcome.standardError = standardErrorSoFar();
  return outcome;
}

std::string RunningProgram::standardOutputSoFar() const { return contentOf(output_); }

std::string RunningProgram::standardErrorSoFar() const { return contentOf(error_); }

bool RunningProgram::waitForText(int descriptor, std::string_view text) {
  const auto deadline = std::chrono::steady_clock::now() + limit_;
  while (std::chrono::steady_clock::now() < deadline) {
    const bool running = isRunning();
    if (contentOf(descriptor).find(text) != std::string::npos) {
      return true;
    }
    if (!running) {
      return false;
    }
    std::this_thread::sleep_for(kLookAgain);
  }
  return false;
}

bool RunningProgram::waitForStandardError(std::string_view text) { return waitForText(error_, text); }

bool RunningProgram::waitForStandardOutput(std::string_view text) { return waitForText(output_, text); }

Outcome runIn(const RootDirectory& root, const std::vector<std::string>& arguments, const RunOptions& options) {
  RunningProgram program(root, arguments, options);
  program.requireLaunch();
  return program.wait();
}

Outcome runOnHost(const std::vector<std::string>& arguments) { return runIn(HostDirectory(), arguments, {}); }

}  // namespace support
