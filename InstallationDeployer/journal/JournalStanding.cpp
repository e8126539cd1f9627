#include "InstallationDeployer/journal/JournalStanding.h"

#include <algorithm>
#include <string>
#include <utility>

#include "InstallationDeployer/ManifestKeys.h"

namespace deployer {

using foundation::PropertyList;

PropertyList versionsIn(QVNInstallerManifest& manifest, std::string_view product) {
  PropertyList::Array records;
  for (const std::string& component :
       manifest.componentListForProduct(product).value_or(QVNInstallerManifest::Names{})) {
    records.push_back(
        PropertyList::dictionary({{std::string(kManifestComponentName), component},
                                  {std::string(kManifestComponentVersion),
                                   manifest.getManifestForComponent(component)[kManifestComponentVersion]}}));
  }
  return PropertyList(std::move(records));
}

JournalStanding standingOf(const ChangeJournal& journal, const PropertyList& versionsNow) {
  if (versionsNow.isNil()) {
    // A removal takes the receipt last. An install never takes it away, whoever did: its files may still be there.
    return journal.operation == ChangeJournal::Operation::Remove ? JournalStanding::Finished
                                                                 : JournalStanding::Interrupted;
  }
  const auto records = versionsNow.elements();
  const bool lacksManifests = std::ranges::any_of(
      records, [](const PropertyList& record) { return record[kManifestComponentVersion].isNil(); });
  // Engines write receipts whole. What a damaged one reports does not say that another engine was here.
  if (versionsNow == journal.versionsBefore || (lacksManifests && versionsNow != journal.versionsAfter)) {
    return JournalStanding::Interrupted;
  }
  return versionsNow == journal.versionsAfter ? JournalStanding::Finished : JournalStanding::Overtaken;
}

}  // namespace deployer
