#pragma once

#include <string_view>

#include "InstallationDeployer/QVNInstallerManifest.h"
#include "InstallationDeployer/journal/ChangeJournal.h"
#include "general/foundation/propertylist/PropertyList.h"

namespace deployer {

/// What a journal that was found means, by what is installed now.
enum class JournalStanding {
  Interrupted,  ///< the run did not come to its end: what the journal names may be half changed
  Finished,     ///< only the journal was left behind
  Overtaken,    ///< an engine that knows nothing of journals has installed or removed the product since
};

/// Components and versions of the product as the manifests at a place have them, for comparing; unlike the question
/// that a receipt is asked, without a message when something is missing.
[[nodiscard]] foundation::PropertyList versionsIn(QVNInstallerManifest& manifest, std::string_view product);

/// @param versionsNow those of the product's receipt; nil without one.
[[nodiscard]] JournalStanding standingOf(const ChangeJournal& journal, const foundation::PropertyList& versionsNow);

}  // namespace deployer
