#include "InstallationDeployer/install/InstallResources.h"

#include <algorithm>
#include <thread>

namespace deployer {

namespace {

constexpr unsigned kMostHelpers = 4;
// Buffers that stay with their thread, all together, and what larger files may take on top of them.
constexpr std::size_t kKeptBufferBytes = std::size_t{128} << 20;
constexpr std::size_t kLargeFileBytes = std::size_t{128} << 20;

unsigned usefulHelpers() { return std::clamp(std::thread::hardware_concurrency(), 1U, kMostHelpers + 1) - 1; }

}  // namespace

InstallResources::InstallResources()
    : helpers_(usefulHelpers()),
      keptBytesPerThread_(kKeptBufferBytes / (helpers_ + 1)),
      budget_(kLargeFileBytes),
      reader_(budget_, keptBytesPerThread_) {}

}  // namespace deployer
