#include "general/foundation/execution/Task.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/ioctl.h>
#include <sys/wait.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <system_error>
#include <utility>

#include "general/foundation/execution/ChildProcess.h"
#include "general/foundation/execution/Deadline.h"
#include "general/foundation/execution/Pipe.h"
#include "general/foundation/execution/ProcessPrimitives.h"

namespace foundation {

namespace {

// How often to look for the exit where the system cannot announce it.
constexpr int kExitPollMilliseconds = 20;
// The exit status reported when the system kept none, because the engine was started with SIGCHLD ignored.
constexpr int kUnknownStatus = 255;
using Clock = std::chrono::steady_clock;

constexpr std::size_t kReadSize = 16384;

bool holdsNul(const std::string& text) { return text.find('\0') != std::string::npos; }

std::string reason(int errnoValue) { return std::system_category().message(errnoValue); }

using Cause = TaskLaunchException::Cause;

[[noreturn]] void refuse(const std::string& program, const std::string& why, Cause cause = Cause::Program) {
  throw TaskLaunchException("cannot launch " + program + ": " + why, cause);
}

Cause causeOf(const ChildStart& start) {
  switch (start.errnoValue) {
    case ENOENT:
    case ENOTDIR:
    case EACCES:
    case ENOEXEC:
    case ELOOP:
    case ENAMETOOLONG:
      return start.failure == ChildStart::Failure::Resources ? Cause::System : Cause::Program;
    default:
      return Cause::System;
  }
}

void refuseTextWithNul(const std::string& program, const std::vector<std::string>& arguments,
                       const std::optional<std::string>& directory) {
  if (holdsNul(program)) {
    refuse(program.substr(0, program.find('\0')), "the path holds a NUL");
  }
  if (std::any_of(arguments.begin(), arguments.end(), holdsNul)) {
    refuse(program, "an argument holds a NUL");
  }
  if (directory && holdsNul(*directory)) {
    refuse(program, "the working directory's path holds a NUL");
  }
}

std::string failureText(const ChildStart& start, const std::optional<std::string>& directory) {
  switch (start.failure) {
    case ChildStart::Failure::WorkingDirectory:
      return "working directory " + directory.value_or("") + ": " + reason(start.errnoValue);
    case ChildStart::Failure::None:
    case ChildStart::Failure::Resources:
    case ChildStart::Failure::Program:
      break;
  }
  return reason(start.errnoValue);
}

Pipe outputPipe(const std::string& program) {
  auto pipe = makePipe();
  if (!pipe || !setNonBlocking(pipe->readEnd)) {
    refuse(program, reason(errno), Cause::System);
  }
  return std::move(*pipe);
}

/// Bytes that wait in a pipe.
std::size_t waitingBytes(const Descriptor& end) {
  int count = 0;
  return ioctl(end.number(), FIONREAD, &count) == 0 && count > 0 ? static_cast<std::size_t>(count) : 0;
}

ssize_t readSome(const Descriptor& end, std::array<char, kReadSize>& buffer) {
  ssize_t count = 0;
  do {
    count = read(end.number(), buffer.data(), buffer.size());
  } while (count < 0 && errno == EINTR);
  return count;
}

}  // namespace

Task::Task(std::string launchPath, std::vector<std::string> arguments)
    : launchPath_(std::move(launchPath)), arguments_(std::move(arguments)) {}

Task::Task(Task&& other) noexcept
    : launchPath_(std::move(other.launchPath_)),
      arguments_(std::move(other.arguments_)),
      currentDirectory_(std::move(other.currentDirectory_)),
      keptBytes_(other.keptBytes_),
      outputFile_(std::move(other.outputFile_)),
      ownSession_(other.ownSession_),
      endsWithParent_(other.endsWithParent_),
      processIdentifier_(std::exchange(other.processIdentifier_, 0)),
      exit_(std::move(other.exit_)),
      output_(std::move(other.output_)),
      error_(std::move(other.error_)),
      terminationStatus_(other.terminationStatus_),
      signalled_(other.signalled_),
      exited_(other.exited_),
      standardError_(std::move(other.standardError_)) {}

Task::~Task() {
  if (processIdentifier_ > 0 && !exited_) {
    waitpid(processIdentifier_, nullptr, WNOHANG);
  }
}

void Task::setCurrentDirectory(std::string path) { currentDirectory_ = std::move(path); }

void Task::captureOutput(std::size_t bytes) { keptBytes_ = bytes; }

void Task::launch() {
  if (processIdentifier_ > 0) {
    refuse(launchPath_, "it was launched before");
  }
  refuseTextWithNul(launchPath_, arguments_, currentDirectory_);

  ChildPlan plan;
  plan.program = launchPath_;
  plan.arguments = arguments_;
  plan.variables = variables_;
  plan.workingDirectory = currentDirectory_ ? currentDirectory_->c_str() : nullptr;
  plan.ownSession = ownSession_;
  plan.endsWithParent = endsWithParent_;
  Pipe output;
  Pipe error;
  if (keptBytes_) {
    output = outputPipe(launchPath_);
    error = outputPipe(launchPath_);
    plan.standardOutput = output.writeEnd.number();
    plan.standardError = error.writeEnd.number();
  }

  Descriptor nothing;
  if (outputFile_.isOpen()) {
    nothing = Descriptor(open("/dev/null", O_RDONLY | O_CLOEXEC));
    plan.standardInput = nothing.number();
    plan.standardOutput = outputFile_.number();
    plan.standardError = outputFile_.number();
  }

  const ChildStart start = startChild(plan);
  if (start.failure != ChildStart::Failure::None) {
    refuse(launchPath_, failureText(start, currentDirectory_), causeOf(start));
  }
  outputFile_.reset();
  processIdentifier_ = start.processIdentifier;
  exit_ = primitives::childExitDescriptor(processIdentifier_);
  output_ = std::move(output.readEnd);
  error_ = std::move(error.readEnd);
}

void Task::waitUntilExit() {
  while (isRunning()) {
    waitForNews(-1);
  }
}

bool Task::waitUntilExit(Clock::time_point deadline) {
  while (isRunning()) {
    const int left = millisecondsUntil(deadline);
    if (left == 0) {
      return false;
    }
    waitForNews(left);
  }
  return true;
}

void Task::waitForNews(int milliseconds) const {
  std::array<pollfd, 3> watched{pollfd{exit_.number(), POLLIN, 0}, pollfd{output_.number(), POLLIN, 0},
                                pollfd{error_.number(), POLLIN, 0}};
  const bool announced = exit_.isOpen();
  const int unannounced = milliseconds < 0 ? kExitPollMilliseconds : std::min(milliseconds, kExitPollMilliseconds);
  poll(watched.data(), watched.size(), announced ? milliseconds : unannounced);
}

bool Task::isRunning() {
  if (processIdentifier_ == 0 || exited_) {
    return false;
  }
  int status = 0;
  pid_t found = 0;
  do {
    found = waitpid(processIdentifier_, &status, WNOHANG);
  } while (found < 0 && errno == EINTR);
  // Reading after the look at the child: what it wrote before its exit is then in the pipes.
  drain(output_, nullptr);
  drain(error_, &standardError_);
  if (found == 0) {
    return true;
  }
  rememberExit(found > 0 ? status : kUnknownStatus << 8);
  return false;
}

void Task::rememberExit(int waitStatus) {
  exited_ = true;
  signalled_ = WIFSIGNALED(waitStatus);
  terminationStatus_ = signalled_ ? WTERMSIG(waitStatus) : WEXITSTATUS(waitStatus);
  output_.reset();
  error_.reset();
}

std::string Task::endDescription() const {
  return (signalled_ ? "signal " : "exit status ") + std::to_string(terminationStatus_);
}

void Task::drain(Descriptor& end, std::string* kept) {
  std::array<char, kReadSize> buffer;
  // No more than waits now: a writer that never stops, such as a child's child, cannot hold this up.
  for (std::size_t left = end.isOpen() ? std::max<std::size_t>(waitingBytes(end), 1) : 0; left > 0;) {
    const ssize_t count = readSome(end, buffer);
    if (count <= 0) {
      if (count == 0) {
        end.reset();
      }
      return;
    }
    const auto read = static_cast<std::size_t>(count);
    if (kept != nullptr) {
      const std::size_t limit = std::max(keptBytes_.value_or(0), kept->size());
      kept->append(buffer.data(), std::min(read, limit - kept->size()));
    }
    left -= std::min(left, read);
  }
}

}  // namespace foundation
