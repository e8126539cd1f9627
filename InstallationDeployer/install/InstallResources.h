#pragma once

#include <cstddef>

#include "InstallationDeployer/install/MemoryBudget.h"
#include "InstallationDeployer/install/PayloadFileReader.h"
#include "InstallationDeployer/install/WrittenVolumes.h"

namespace deployer {

/// What the components of one step use one after the other: memory to read files into, as much of the machine as is
/// useful, and the list of file systems to flush. Belongs to the thread that runs the steps, but for the budget.
class InstallResources {
 public:
  InstallResources();
  InstallResources(const InstallResources&) = delete;
  InstallResources& operator=(const InstallResources&) = delete;

  /// Threads that are worth having beside the one that publishes, which prepares files, too, instead of waiting.
  [[nodiscard]] unsigned helpers() const { return helpers_; }
  /// Bytes that each of these threads keeps for its buffer.
  [[nodiscard]] std::size_t keptBytesPerThread() const { return keptBytesPerThread_; }
  /// What larger files may take on top of that.
  [[nodiscard]] MemoryBudget& budget() { return budget_; }
  [[nodiscard]] PayloadFileReader& reader() { return reader_; }
  [[nodiscard]] WrittenVolumes& writtenVolumes() { return writtenVolumes_; }

 private:
  const unsigned helpers_;
  const std::size_t keptBytesPerThread_;
  MemoryBudget budget_;
  PayloadFileReader reader_;
  WrittenVolumes writtenVolumes_;
};

}  // namespace deployer
