#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>

#include "InstallationDeployer/checks/BundleProblem.h"
#include "InstallationDeployer/checks/CheckProgress.h"
#include "InstallationDeployer/checks/PayloadFiles.h"

namespace deployer {

class ChecksumReader;

/// Compares the content of payload files with their checksums, on two threads where the system gives them. Each thread
/// holds one piece of a file in memory. One comparison per object.
class ChecksumComparison {
 public:
  /// @param firstPlace where in the bundle's order the first file belongs; everything outlives this.
  ChecksumComparison(const PayloadFiles& payload, std::uint64_t firstPlace, BundleProblems& problems,
                     CheckProgress& progress)
      : payload_(payload), firstPlace_(firstPlace), problems_(problems), progress_(progress) {}

  /// Returns when all files were compared, or the check was stopped. Throws what a thread could not go on for, such as
  /// too little memory.
  void run();

 private:
  void work();
  void compare(std::size_t index, ChecksumReader& reader);

  const PayloadFiles& payload_;
  const std::uint64_t firstPlace_;
  BundleProblems& problems_;
  CheckProgress& progress_;
  std::atomic<std::size_t> next_ = 0;
};

}  // namespace deployer
