#include "InstallationDeployer/DiskSpace.h"

#include <algorithm>
#include <limits>

#include "InstallationDeployer/ManifestKeys.h"
#include "general/foundation/extensions/NSDictionaryExtensions.h"

namespace deployer {

namespace {

using Limits = std::numeric_limits<std::int64_t>;

}  // namespace

void DiskSpace::add(std::int64_t bytes) {
  if (bytes > 0 && required_ > Limits::max() - bytes) {
    required_ = Limits::max();
  } else if (bytes < 0 && required_ < Limits::min() - bytes) {
    required_ = Limits::min();
  } else {
    required_ += bytes;
  }
}

void DiskSpace::addReceipt(const foundation::PropertyList& index) {
  add(index[kManifestIndexReceiptSize].integer().value_or(0));
  if (foundation::NSDictionaryExtensions::boolForKey(index, kManifestIndexReceiptHasPayloadContents)) {
    add(index[kManifestIndexPayloadSize].integer().value_or(0));
  }
}

std::int64_t DiskSpace::signedSize(std::uint64_t bytes) {
  return static_cast<std::int64_t>(std::min(bytes, static_cast<std::uint64_t>(Limits::max())));
}

}  // namespace deployer
