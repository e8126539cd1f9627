#pragma once

#include "general/foundation/files/FileAttributes.h"
#include "general/foundation/files/ItemStatus.h"
#include "general/foundation/propertylist/PropertyList.h"

/// Owners, groups and permissions in the words of manifests.
namespace deployer {

/// Owner, group and permissions as a manifest entry gives them; what is missing or no number stays absent.
/// Numbers are cut to 32 bits, permissions to the permission bits.
[[nodiscard]] foundation::FileAttributes attributesFromEntry(const foundation::PropertyList& entry);

/// What an item on disk is like as a dictionary, for messages.
[[nodiscard]] foundation::PropertyList dictionaryOf(const foundation::ItemStatus& item);

}  // namespace deployer
