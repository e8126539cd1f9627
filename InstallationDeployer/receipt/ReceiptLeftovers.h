#pragma once

#include <string>

#include "InstallationDeployer/QVNInstallConfiguration.h"
#include "general/foundation/Result.h"

namespace deployer {

/// Removes from the receipt location what runs that ended put aside there and could not remove, of whatever product,
/// and from this product's folder there the folder of what was being made. For the beginning of a run that changes
/// something and has the product to itself. What still cannot be removed stays, and so does the bundle that runs.
void sweepReceiptLeftovers(const QVNInstallConfiguration& configuration);

/// Whether the item lies in the folder itself. Compares folders, for a path may be relative or lead through links.
[[nodiscard]] foundation::Result<bool> liesDirectlyIn(const std::string& folder, const std::string& item);

/// Whether both paths lead to the same item, links followed. Of nothing, nothing is the same.
[[nodiscard]] foundation::Result<bool> isSameItem(const std::string& one, const std::string& other);

/// Removes a receipt that was put aside under a temporary name at the receipt location. What stays of it is named in
/// the log, as an error, under the name it has there.
[[nodiscard]] foundation::Status removePutAsideReceipt(const std::string& aside);

}  // namespace deployer
