#pragma once

#include <optional>

#include "general/ipc/NamedLock.h"

namespace deployer {

/// Keeps two engines from changing the receipts at the same time: they share folders in which receipts are made, and
/// the last receipt that goes takes the receipt location with it. Nothing, and an error in the log, when it cannot be
/// had; then nothing may be changed. Whoever holds it takes no other lock that is held for long.
[[nodiscard]] inline std::optional<ipc::NamedLock> lockReceipts() { return ipc::NamedLock::acquire(".receipts"); }

}  // namespace deployer
