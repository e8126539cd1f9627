#pragma once

#include <string>

#include "tests/sweep/FaultCheck.h"
#include "tests/sweep/Products.h"

namespace sweep {

/// A private root with every bundle and the watcher in it.
class SweepRoot {
 public:
  /// @param watcher the watcher's program on the host.
  SweepRoot(const Products& products, const std::string& watcher) {
    products.deliver(root_);
    root_.copyIn(watcher, FaultCheck::kWatcher);
    furnish(root_);
  }
  support::PrivateRoot& root() { return root_; }

 private:
  support::PrivateRoot root_;
};

}  // namespace sweep
