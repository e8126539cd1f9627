#include "InstallationDeployer/receipt/ReceiptLeftovers.h"

#include <new>

#include "InstallationDeployer/BundleLayout.h"
#include "general/foundation/Paths.h"
#include "general/foundation/files/FileManager.h"
#include "general/foundation/files/TemporaryNames.h"
#include "general/logging/SystemLog.h"

namespace deployer {

using foundation::Result;
using foundation::Status;
namespace files = foundation::files;
namespace paths = foundation::paths;

namespace {

constexpr const char* kLeft = "What is left of the receipt lies at %@. %@";

Status flushAndRemove(const std::string& aside) {
  // On the disk it is put aside before the first of it goes: a power cut must not show a part of it in its place.
  Status flushed = files::flushItem(paths::deleteLastComponent(aside));
  return flushed ? files::removeItemIfPresent(aside) : flushed;
}

}  // namespace

void sweepReceiptLeftovers(const QVNInstallConfiguration& configuration) {
  foundation::temporary_names::sweepWithContent(std::string(kQVNInstallerReceiptPath));
  const std::string temporary = paths::append(configuration.receiptDirectory(), kQVNInstallerTemporaryName);
  const auto receipt = files::presence(configuration.receiptPath());
  const auto runsHere = liesDirectlyIn(temporary, configuration.bundlePath().value_or(""));
  const auto made = files::attributesOfItem(temporary);
  // Without a receipt in its place, what lies here may be the only one. What is no folder no run has made.
  if (receipt && *receipt && runsHere && !*runsHere && made && made->isDirectory()) {
    static_cast<void>(files::removeItemIfPresent(temporary));
  }
}

Result<bool> liesDirectlyIn(const std::string& folder, const std::string& item) {
  return isSameItem(folder, paths::append(item, ".."));
}

Result<bool> isSameItem(const std::string& one, const std::string& other) {
  const auto first = files::attributesOfTarget(one);
  if (!first) {
    return first.error().meansNothingThere() ? Result<bool>(false) : first.error();
  }
  const auto second = files::attributesOfTarget(other);
  if (!second) {
    return second.error().meansNothingThere() ? Result<bool>(false) : second.error();
  }
  return first->device == second->device && first->inode == second->inode;
}

Status removePutAsideReceipt(const std::string& aside) {
  try {
    Status removed = flushAndRemove(aside);
    if (!removed) {
      logging::error(kLeft, aside, removed.error());
    }
    return removed;
  } catch (const std::bad_alloc& noMemory) {
    // Who removes the last product has no later run that would find it.
    logging::error(kLeft, aside, noMemory.what());
    throw;
  }
}

}  // namespace deployer
