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

bool ReceiptComparison::holdsFolder(const std::string& relativeFolder) const {
  const auto names = files::contentsOfDirectory(inBundle(relativeFolder));
  if (!names) {
    return names.error().isNoSuchFile() || isIncomplete(relativeFolder, names.error());
  }
  return isCopiedFolder(relativeFolder) && std::ranges::all_of(*names, [&](const std::string& name) {
           return holdsItem(paths::append(relativeFolder, name));
         });
}

bool ReceiptComparison::holdsFolderItself(const std::string& relativeFolder) const {
  const auto original = files::attributesOfItem(inBundle(relativeFolder));
  if (!original) {
    return original.error().isNoSuchFile() || isIncomplete(relativeFolder, original.error());
  }
  return !original->isDirectory() || isCopiedFolder(relativeFolder);
}

bool ReceiptComparison::isCopiedFolder(const std::string& relativeFolder) const {
  const auto copied = files::attributesOfItem(inReceipt(relativeFolder));
  if (!copied) {
    return isIncomplete(relativeFolder, copied.error());
  }
  return copied->isDirectory() || isIncomplete(relativeFolder, "The copy is no folder.");
}

bool ReceiptComparison::holdsItem(const std::string& relativePath) const {
  const auto original = files::attributesOfItem(inBundle(relativePath));
  if (!original) {
    return isIncomplete(relativePath, original.error());
  }
  if (original->isDirectory()) {
    return holdsFolder(relativePath);
  }
  return original->type != foundation::FileType::Regular || isCopiedFile(relativePath, original->size);
}

bool ReceiptComparison::isCopiedFile(const std::string& relativePath, std::uint64_t size) const {
  const auto copied = files::attributesOfItem(inReceipt(relativePath));
  if (!copied) {
    return isIncomplete(relativePath, copied.error());
  }
  return copied->size == size || isIncomplete(relativePath, "The copy has another size.");
}

std::string ReceiptComparison::inBundle(const std::string& relativePath) const {
  return paths::append(bundle_, relativePath);
}

std::string ReceiptComparison::inReceipt(const std::string& relativePath) const {
  return paths::append(receipt_, relativePath);
}

}  // namespace deployer
