#pragma once

namespace deployer {

/// Removes what a failed install may have left at the receipt location. Failing to is logged and nothing more.
void cleanupFailedInstall();

}  // namespace deployer
