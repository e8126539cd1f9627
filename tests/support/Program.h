#pragma once

#include <sys/resource.h>
#include <sys/types.h>

#include <chrono>
#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "tests/support/RootDirectory.h"

namespace support {

class CallFilter;

/// How a program ended and what it printed.
struct Outcome {
  int exitCode = -1;      ///< -1 when a signal ended it
  int signal = 0;         ///< the signal that ended it, else 0
  bool timedOut = false;  ///< it was killed because its limit had passed
  std::string standardOutput;
  std::string standardError;

  [[nodiscard]] bool succeeded() const { return exitCode == 0; }
  /// "exit code 1" or "signal 9", and the last lines of standard error; for messages of failed assertions.
  [[nodiscard]] std::string description() const;
};

/// A path, the home of root, the C locale, and the sanitizers' options of the test process.
[[nodiscard]] std::vector<std::string> defaultEnvironment();

/// The surroundings a program is started in. It gets its own session, default signals and no descriptor but the three
/// standard ones.
struct RunOptions {
  std::vector<std::string> environment = defaultEnvironment();  ///< NAME=value, exactly these
  std::string currentDirectory = "/";
  uid_t user = 0;
  gid_t group = 0;
  mode_t fileCreationMask = 022;
  std::string standardInput;                   ///< what it reads; empty for the end at once
  int terminal = -1;                           ///< becomes its three standard descriptors and its controlling terminal
  bool inheritOutput = false;                  ///< print where the test process prints instead of keeping it
  std::vector<int> closedDescriptors;          ///< of 0, 1 and 2: closed when it starts
  std::vector<std::pair<int, rlim_t>> limits;  ///< RLIMIT_… and the value
  std::optional<std::string> argumentZero;     ///< when the first argument is not the program's path
  std::chrono::seconds limit{120};             ///< after so long it is killed
  const CallFilter* callFilter = nullptr;      ///< installed just before it runs; whoever starts it takes the listener
};

/// A program that was started in a private root and may still run. Destroying it kills and reaps it.
class RunningProgram {
 public:
  /// Starts `arguments.front()`, a path as seen inside (relative to the current directory, or absolute; never
  /// searched).
  /// @param whileHeld called with the process's number while the process is held just before it starts the program.
  /// Throws PrivateRootError when no process can be made. Whether the program could be started says requireLaunch().
  RunningProgram(const RootDirectory& root, const std::vector<std::string>& arguments, const RunOptions& options,
                 const std::function<void(pid_t)>& whileHeld = {});
  ~RunningProgram();
  RunningProgram(RunningProgram&& other) noexcept;
  RunningProgram& operator=(RunningProgram&& other) noexcept;
  RunningProgram(const RunningProgram&) = delete;
  RunningProgram& operator=(const RunningProgram&) = delete;

  /// Waits until the program itself runs; throws PrivateRootError with the reason when it cannot be started.
  void requireLaunch();
  /// Its number as processes of the private root see it.
  [[nodiscard]] pid_t process() const { return insideProcess_; }
  /// Its number as the test process sees it.
  [[nodiscard]] pid_t hostProcess() const { return process_; }
  [[nodiscard]] bool isRunning();
  void kill(int signal) const;
  /// Waits for its end. At the limit of its options it is killed.
  Outcome wait();
  [[nodiscard]] std::string standardOutputSoFar() const;
  [[nodiscard]] std::string standardErrorSoFar() const;
  /// Waits until standard error holds the text: true; false when the program ended without it, or at the limit.
  [[nodiscard]] bool waitForStandardError(std::string_view text);
  [[nodiscard]] bool waitForStandardOutput(std::string_view text);

  /// For who reaped the process elsewhere: the wait status it ended with.
  void noteEnd(int status);

 private:
  [[nodiscard]] bool waitForText(int descriptor, std::string_view text);
  void release() noexcept;
  bool reap(int flags);
  void readInsideProcess();

  pid_t process_ = -1;
  pid_t insideProcess_ = -1;
  int exitDescriptor_ = -1;
  int launchDescriptor_ = -1;
  int output_ = -1;
  int error_ = -1;
  std::string program_;
  std::chrono::seconds limit_{};
  std::optional<int> status_;
};

/// Runs a program in the root, waits for it and throws PrivateRootError when it cannot be started.
[[nodiscard]] Outcome runIn(const RootDirectory& root, const std::vector<std::string>& arguments,
                            const RunOptions& options);
/// The same on the host, for what prepares a root.
[[nodiscard]] Outcome runOnHost(const std::vector<std::string>& arguments);

}  // namespace support
