#pragma once

#include <cstdint>
#include <map>
#include <string>

#include "general/foundation/Result.h"

namespace deployer {

/// The file systems that were written to, so that everything can be put on the disk at once before success is reported.
/// One flush per file system is far cheaper than one per file. For one thread.
class WrittenVolumes {
 public:
  /// Remembers the file system of an item that was just written. Any item of a folder stands for the whole folder.
  void note(const std::string& path);
  /// Returns when everything noted since the last successful flush is on the disk; free of cost when nothing was.
  [[nodiscard]] foundation::Status flush();

 private:
  std::map<std::uint64_t, std::string> pathsByDevice_;
};

}  // namespace deployer
