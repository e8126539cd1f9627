#include "InstallationDeployer/MutableComponentManifest.h"

#include "InstallationDeployer/ManifestKeys.h"

namespace deployer {

using foundation::PropertyList;

namespace {

PropertyList::Array elementsOf(const PropertyList& list) {
  const auto elements = list.elements();
  return {elements.begin(), elements.end()};
}

}  // namespace

MutableComponentManifest::MutableComponentManifest(const PropertyList& existing)
    : files(elementsOf(existing[kManifestListOfFiles])),
      executables(elementsOf(existing[kManifestListOfExecutables])),
      launchDaemons(elementsOf(existing[kManifestListOfLaunchDaemons])),
      launchAgents(elementsOf(existing[kManifestListOfLaunchAgents])),
      size(existing[kManifestComponentSize].integer().value_or(0)),
      rebuildKextCache(existing[kManifestRebuildKextCache]),
      version(existing[kManifestComponentVersion]),
      others_(existing) {}

PropertyList MutableComponentManifest::dictionary() const {
  return others_.with(kManifestListOfFiles, files)
      .with(kManifestListOfExecutables, executables)
      .with(kManifestListOfLaunchDaemons, launchDaemons)
      .with(kManifestListOfLaunchAgents, launchAgents)
      .with(kManifestComponentSize, size)
      .with(kManifestRebuildKextCache, rebuildKextCache)
      .with(kManifestComponentVersion, version);
}

}  // namespace deployer
