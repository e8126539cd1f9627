#pragma once

#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "InstallationDeployer/QVNInstallerManifest.h"
#include "general/ipc/ProcessLock.h"

namespace deployer {

using ProductNames = std::set<std::string, std::less<>>;

/// The name of a product's lock in the folder where processes meet, whatever the product is called.
[[nodiscard]] std::string lockNameOfProduct(std::string_view product);

/// The products that an install of this one may change: itself, those that the bundle lets it follow, and those of the
/// engines that it starts in other bundles, with theirs.
[[nodiscard]] ProductNames productsChangedByInstallOf(std::string_view product, QVNInstallerManifest& manifest);

/// Keeps every other run away from the products that this one changes, until this one ends, however it ends.
///
/// A run has all of its locks or none, so it keeps nobody from a product while it waits for another one, and no two
/// runs ever wait for each other. What an engine holds that started this one, and waits for its end, counts as held.
/// Use from one thread.
class ProductLocks {
 public:
  enum class Outcome {
    Locked,
    Cancelled,
    Failed,  ///< the error is in the log
  };

  /// Takes the locks of these products and gives those of others back. Waits for whoever has one of them, in turns of
  /// the thread's run loop, and says for which process, once for each.
  /// @param cancelled ends the wait; asked only while there is one, on this thread.
  [[nodiscard]] Outcome acquire(const ProductNames& products, const std::function<bool()>& cancelled);
  /// Whether any acquire() so far had to wait.
  [[nodiscard]] bool hasWaited() const { return hasWaited_; }
  /// The process that keeps others from the product on behalf of this one; nothing when this one does it itself.
  [[nodiscard]] std::optional<int> holderBefore(std::string_view product) const;
  void release() {
    locks_.clear();
    holdersBefore_.clear();
  }

 private:
  enum class Attempt { Locked, HeldByOther, Failed };
  [[nodiscard]] Attempt tryAll(const ProductNames& products);
  [[nodiscard]] Attempt tryOne(const std::string& product);
  void announceWait(int holder, const std::string& product);

  std::vector<std::unique_ptr<ipc::ProcessLock>> locks_;
  std::map<std::string, int, std::less<>> holdersBefore_;
  std::set<std::pair<int, std::string>> announced_;
  bool hasWaited_ = false;
};

}  // namespace deployer
