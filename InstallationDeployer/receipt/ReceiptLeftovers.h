#pragma once

#include <string>

#include "general/foundation/Result.h"

namespace deployer {

/// Removes from the receipt location what runs that ended put aside there and could not remove. For the beginning of a
/// run that changes something, of whatever product. What still cannot be removed stays.
void sweepReceiptLeftovers();

/// Removes a receipt that was put aside under a temporary name at the receipt location. What stays of it is named in
/// the log, as an error, under the name it has there.
[[nodiscard]] foundation::Status removePutAsideReceipt(const std::string& aside);

}  // namespace deployer
