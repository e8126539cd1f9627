#include "InstallationDeployer/journal/JournalStanding.h"

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
  if (versionsNow == journal.versionsBefore) {
    return JournalStanding::Interrupted;
  }
  return versionsNow == journal.versionsAfter ? JournalStanding::Finished : JournalStanding::Overtaken;
}

}  // namespace deployer
