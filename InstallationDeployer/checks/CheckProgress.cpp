#include "InstallationDeployer/checks/CheckProgress.h"

#include <algorithm>

namespace deployer {

namespace {

constexpr double kAll = 100;

}  // namespace

int CheckProgress::percent() const {
  const auto total = static_cast<double>(total_.load());
  // Files may grow meanwhile.
  return total > 0 ? static_cast<int>(std::min(kAll, kAll * static_cast<double>(done_.load()) / total)) : 0;
}

}  // namespace deployer
