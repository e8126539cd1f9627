#pragma once

#include <optional>

#include "general/ipc/NamedLock.h"

namespace deployer {

/// Keeps two engines from changing the receipts at the same time: they share folders in which receipts are made, and
/// the last receipt that goes takes the receipt location with it. Where no lock can be had, the error is in the log and
/// the engine goes on without.
[[nodiscard]] inline std::optional<ipc::NamedLock> lockReceipts() { return ipc::NamedLock::acquire(".receipts"); }

}  // namespace deployer
