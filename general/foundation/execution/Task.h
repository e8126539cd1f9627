#pragma once

#include <chrono>
#include <cstddef>
#include <optional>
#include <stdexcept>
#include <string>
#include <vector>

#include "general/foundation/Descriptor.h"

namespace foundation {

/// A program that could not be started at all; what() says why.
class TaskLaunchException : public std::runtime_error {
 public:
  /// Program: it is missing or cannot be run as it is. System: the system lacked something that it takes to start any.
  enum class Cause { Program, System };
  explicit TaskLaunchException(const std::string& why, Cause cause = Cause::Program)
      : std::runtime_error(why), cause_(cause) {}
  [[nodiscard]] Cause cause() const { return cause_; }

 private:
  Cause cause_;
};

/// One child process. Nothing of the engine's own descriptors reaches it but the three standard ones; ignored signals
/// and signal masks are back at their defaults. Use from one thread.
class Task {
 public:
  /// @param launchPath started as it stands: no search, no shell.
  Task(std::string launchPath, std::vector<std::string> arguments);
  ~Task();  ///< does not end the child; a child that has exited is reaped, a running one is left to itself
  Task(Task&& other) noexcept;
  Task& operator=(Task&& other) = delete;
  Task(const Task&) = delete;
  Task& operator=(const Task&) = delete;

  void setCurrentDirectory(std::string path);
  /// Connects standard output and standard error to a pipe each. Standard output is dropped. Of standard error the
  /// first `bytes` are kept. Both are drained while waitUntilExit() waits, so that a talkative child cannot block for
  /// ever.
  void captureOutput(std::size_t bytes);
  /// Connects standard output and standard error to an open file that the child may go on writing to when this process
  /// has ended, and standard input to nothing; instead of captureOutput().
  void writeOutputTo(Descriptor file) { outputFile_ = std::move(file); }
  /// Whether the child begins a session of its own: signals that a terminal sends, and its end, do not reach it.
  void setOwnSession(bool own) { ownSession_ = own; }
  /// Whether the system kills the child when this process ends, however it ends. On Linux that is when the thread that
  /// launches the child ends, so launch from one that stays; a child of an engine started by another user than root
  /// must not be launched before the engine is root for good. macOS offers no such thing: there the child is left to
  /// itself.
  void setEndsWithParent(bool ends) { endsWithParent_ = ends; }

  /// Sets one variable of the child's environment, which is this process's own otherwise.
  void setVariable(const std::string& name, const std::string& value) { variables_.push_back(name + "=" + value); }

  /// Starts the child. Throws TaskLaunchException when the program cannot be started: missing, not executable, a path
  /// or arguments that the system does not take, a missing working directory, a task that was launched before.
  void launch();
  /// Waits until the child itself has exited; children that it left behind with its pipes open do not matter.
  void waitUntilExit();
  /// The same until a deadline at most; returns at once when the child exits. False when the child still runs.
  bool waitUntilExit(std::chrono::steady_clock::time_point deadline);
  /// False once the child has exited (and not before it was launched).
  [[nodiscard]] bool isRunning();
  /// Readable from the child's exit on, and open from the launch to the end of this object; -1 where the system cannot
  /// announce an exit, and before the launch. For poll(); see TaskExitSource for run loops.
  [[nodiscard]] int exitDescriptor() const { return exit_.number(); }
  [[nodiscard]] int processIdentifier() const { return processIdentifier_; }
  /// The exit status, or the number of the signal that ended the child. Meaningful after the exit.
  [[nodiscard]] int terminationStatus() const { return terminationStatus_; }
  [[nodiscard]] bool wasSignalled() const { return signalled_; }
  /// For log lines: "exit status 3" or "signal 9". Meaningful after the exit.
  [[nodiscard]] std::string endDescription() const;
  /// The kept part of standard error. Meaningful after waitUntilExit().
  [[nodiscard]] const std::string& standardErrorOutput() const { return standardError_; }

 private:
  void waitForNews(int milliseconds) const;
  void rememberExit(int waitStatus);
  void drain(Descriptor& end, std::string* kept);

  std::string launchPath_;
  std::vector<std::string> arguments_;
  std::vector<std::string> variables_;
  std::optional<std::string> currentDirectory_;
  std::optional<std::size_t> keptBytes_;
  Descriptor outputFile_;
  bool ownSession_ = false;
  bool endsWithParent_ = false;
  int processIdentifier_ = 0;
  Descriptor exit_;
  Descriptor output_;
  Descriptor error_;
  int terminationStatus_ = 0;
  bool signalled_ = false;
  bool exited_ = false;
  std::string standardError_;
};

}  // namespace foundation
