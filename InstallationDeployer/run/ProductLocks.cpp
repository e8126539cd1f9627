#include "InstallationDeployer/run/ProductLocks.h"

#include <algorithm>
#include <chrono>
#include <span>
#include <utility>

#include "InstallationDeployer/BundleLayout.h"
#include "InstallationDeployer/ManifestKeys.h"
#include "InstallationDeployer/QVNInstallerChecksum.h"
#include "general/foundation/Paths.h"
#include "general/foundation/execution/RunLoop.h"
#include "general/foundation/files/FileManager.h"
#include "general/logging/SystemLog.h"
#include "general/system/ProcessSelf.h"

namespace deployer {

using foundation::PropertyList;
using foundation::RunLoop;
using ipc::ProcessLock;
namespace files = foundation::files;
namespace paths = foundation::paths;

namespace {

constexpr std::chrono::milliseconds kBetweenTries{50};
constexpr std::size_t kLongestPlainName = 100;

bool isPlain(char character) {
  return (character >= 'a' && character <= 'z') || (character >= 'A' && character <= 'Z') ||
         (character >= '0' && character <= '9') || character == ' ' || character == '.' || character == '_' ||
         character == '-';
}

/// Whether something is there, or it cannot be told.
bool mayBeThere(const std::string& path) {
  const auto found = files::presence(path);
  return !found || *found;
}

void addWithCompanions(const std::string& product, QVNInstallerManifest& manifest, ProductNames& names) {
  if (!names.insert(product).second) {
    return;
  }
  for (const PropertyList& phase : manifest.arrayOfInstallPhasesForProduct(product).elements()) {
    const auto bundle = phase[kQVNInstallPhaseExternalBundlePath].string();
    const auto other = phase[kQVNInstallPhaseExternalProductName].string();
    // A bundle that is not there yet is waited for until somebody else runs its engine, who must find it unlocked.
    if (phase[kQVNInstallPhaseType].string() == kQVNInstallPhaseExternalInstallationDeployer && bundle && other &&
        mayBeThere(paths::append(*bundle, kQVNInstallationDeployerPath))) {
      QVNInstallerManifest external{std::string(*bundle)};
      addWithCompanions(std::string(*other), external, names);
    }
  }
  for (const PropertyList& crossGrade : manifest.crossGradeDictionariesForProduct(product).elements()) {
    if (const auto other = crossGrade[kManifestIndexProductName].string()) {
      names.emplace(*other);
    }
  }
}

}  // namespace

std::string lockNameOfProduct(std::string_view product) {
  if (!product.empty() && product.size() <= kLongestPlainName && std::ranges::all_of(product, isPlain)) {
    return ".product." + std::string(product);
  }
  return ".product-digest." + QVNInstallerChecksum::generateSHA256(std::as_bytes(std::span(product)));
}

ProductNames productsChangedByInstallOf(std::string_view product, QVNInstallerManifest& manifest) {
  ProductNames names;
  addWithCompanions(std::string(product), manifest, names);
  return names;
}

ProductLocks::Outcome ProductLocks::acquire(const ProductNames& products, const std::function<bool()>& cancelled) {
  Attempt attempt = tryAll(products);
  if (attempt == Attempt::HeldByOther) {
    hasWaited_ = true;
    const auto loop = RunLoop::current();
    const auto timer = loop->addTimer(kBetweenTries, true, {});
    loop->runWhile([&] { return attempt == Attempt::HeldByOther && !cancelled(); },
                   [&] { attempt = tryAll(products); });
  }
  switch (attempt) {
    case Attempt::Locked:
      return Outcome::Locked;
    case Attempt::HeldByOther:
      return Outcome::Cancelled;
    case Attempt::Failed:
      break;
  }
  return Outcome::Failed;
}

ProductLocks::Attempt ProductLocks::tryAll(const ProductNames& products) {
  release();
  for (const std::string& product : products) {
    if (const Attempt attempt = tryOne(product); attempt != Attempt::Locked) {
      release();
      return attempt;
    }
  }
  return Attempt::Locked;
}

ProductLocks::Attempt ProductLocks::tryOne(const std::string& product) {
  auto lock = std::make_unique<ProcessLock>(lockNameOfProduct(product));
  switch (lock->tryToLock()) {
    case ProcessLock::Attempt::Locked:
      locks_.push_back(std::move(lock));
      return Attempt::Locked;
    case ProcessLock::Attempt::Failed:
      return Attempt::Failed;
    case ProcessLock::Attempt::HeldByOther:
      break;
  }
  const int holder = lock->holder();
  if (holder > 0 && platform::self::descendsFrom(holder)) {
    logging::debug("Process %d, which started this one, keeps others from the product \"%@\".", holder, product);
    holdersBefore_.emplace(product, holder);
    return Attempt::Locked;
  }
  announceWait(holder, product);
  return Attempt::HeldByOther;
}

std::optional<int> ProductLocks::holderBefore(std::string_view product) const {
  const auto holder = holdersBefore_.find(product);
  return holder == holdersBefore_.end() ? std::nullopt : std::optional(holder->second);
}

void ProductLocks::announceWait(int holder, const std::string& product) {
  if (holder == ProcessLock::kGone || !announced_.emplace(holder, product).second) {
    return;
  }
  if (holder == ProcessLock::kUnseen) {
    logging::notice("Waiting for a process that cannot be seen from here, which changes the product \"%@\".", product);
  } else {
    logging::notice("Waiting for process %d, which changes the product \"%@\".", holder, product);
  }
}

}  // namespace deployer
