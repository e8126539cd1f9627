#pragma once

#include <linux/seccomp.h>
#include <sys/types.h>

#include <cstdint>
#include <string>

#include "tests/support/FaultyRun.h"

namespace support {

/// The process that waits in a system call which a filter has handed over, as /proc shows it meanwhile.
class CalledProcess {
 public:
  explicit CalledProcess(const seccomp_notif& asked) : asked_(asked) {}

  /// Whether it runs a file named InstallationDeployer.
  [[nodiscard]] bool isEngine() const;
  /// The number of the process, not of its thread.
  [[nodiscard]] pid_t number() const;
  /// @param engine the path of the engine that is run.
  [[nodiscard]] EngineRole roleIn(const std::string& engine) const;
  /// Whether an instruction belongs to the dynamic loader; never where loader and C library are one.
  [[nodiscard]] bool isInLoader(std::uint64_t instruction) const;
  /// The call's name and what it is about.
  [[nodiscard]] std::string describeCall() const;

 private:
  [[nodiscard]] std::string inProc(const std::string& name) const;
  [[nodiscard]] std::string textAt(std::uint64_t address) const;
  [[nodiscard]] std::string openFile(std::uint64_t descriptor) const;

  const seccomp_notif& asked_;
};

}  // namespace support
