#pragma once

#include <span>
#include <string>

#include "InstallationDeployer/journal/ChangeJournal.h"
#include "general/foundation/propertylist/PropertyListFile.h"
#include "tests/support/PropertyLists.h"

namespace tests {

using Role = deployer::JournaledManifest::Role;

inline deployer::JournaledManifest journaled(const std::string& component, Role role,
                                             const foundation::PropertyList& manifest,
                                             bool withModifiableFiles = false) {
  const std::string document = foundation::plist::serialize(manifest, foundation::plist::Format::Binary).value();
  return {.component = component,
          .role = role,
          .withModifiableFiles = withModifiableFiles,
          .document = foundation::PropertyList::data(std::as_bytes(std::span(document)))};
}

/// The journal of an upgrade of one component.
inline deployer::ChangeJournal journalOfAnUpgrade() {
  deployer::ChangeJournal journal;
  journal.product = "Guard";
  journal.bundlePath = "/Volumes/Second/Installer.app";
  journal.process = 4711;
  journal.begunAt = 820000000;
  journal.versionsBefore = PropertyLists::records({{"Core", "1.0"}});
  journal.versionsAfter = PropertyLists::records({{"Core", "1.1"}});
  journal.add(
      journaled("Core", Role::Removed, PropertyLists::manifestOf({PropertyLists::directory("/Library/Guard")})));
  journal.add(journaled("Core", Role::Placed, PropertyLists::manifestOf({PropertyLists::entry("/Library/Guard", {})})));
  return journal;
}

}  // namespace tests
