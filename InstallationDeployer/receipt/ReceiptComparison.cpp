#include "InstallationDeployer/receipt/ReceiptComparison.h"

#include <algorithm>
#include <utility>

#include "general/foundation/Paths.h"
#include "general/foundation/files/FileManager.h"
#include "general/logging/SystemLog.h"

namespace deployer {

namespace files = foundation::files;
namespace paths = foundation::paths;

namespace {

template <class Reason>
bool isIncomplete(const std::string& relativePath, const Reason& reason) {
  logging::error("Receipt incomplete. It does not hold the bundle's %@: %@", relativePath, reason);
  return false;
}

}  // namespace

ReceiptComparison::ReceiptComparison(std::string bundle, std::string receipt)
    : bundle_(std::move(bundle)), receipt_(std::move(receipt)) {}

bool ReceiptComparison::isSame(const std::string& relativePath) {
  const auto original = files::read(inBundle(relativePath), originalBytes_);
  if (!original) {
    return isIncomplete(relativePath, original.error());
  }
  const auto copied = files::read(inReceipt(relativePath), copiedBytes_);
  if (!copied) {
    return isIncomplete(relativePath, copied.error());
  }
  return std::ranges::equal(*original, *copied) || isIncomplete(relativePath, "The copy differs.");
}

bool ReceiptComparison::isSameIfPresent(const std::string& relativePath) {
  const auto original = files::attributesOfTarget(inBundle(relativePath));
  if (!original) {
    return original.error().meansNothingThere() || isIncomplete(relativePath, original.error());
  }
  return original->isDirectory() || isSame(relativePath);
}

bool ReceiptComparison::holdsFilesOf(const std::string& relativeFolder) const {
  const auto names = files::contentsOfDirectory(inBundle(relativeFolder));
  if (!names) {
    return names.error().isNoSuchFile() || isIncomplete(relativeFolder, names.error());
  }
  return std::ranges::all_of(*names,
                             [&](const std::string& name) { return holdsFile(paths::append(relativeFolder, name)); });
}

bool ReceiptComparison::holdsFile(const std::string& relativePath) const {
  const auto original = files::attributesOfItem(inBundle(relativePath));
  if (!original) {
    return isIncomplete(relativePath, original.error());
  }
  if (original->type != foundation::FileType::Regular) {
    return true;
  }
  const auto copied = files::attributesOfItem(inReceipt(relativePath));
  if (!copied) {
    return isIncomplete(relativePath, copied.error());
  }
  return copied->size == original->size || isIncomplete(relativePath, "The copy has another size.");
}

std::string ReceiptComparison::inBundle(const std::string& relativePath) const {
  return paths::append(bundle_, relativePath);
}

std::string ReceiptComparison::inReceipt(const std::string& relativePath) const {
  return paths::append(receipt_, relativePath);
}

}  // namespace deployer
