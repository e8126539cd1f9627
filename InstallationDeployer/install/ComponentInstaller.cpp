#include "InstallationDeployer/install/ComponentInstaller.h"

#include <cstddef>
#include <cstdint>

#include "InstallationDeployer/ManifestKeys.h"
#include "general/logging/SystemLog.h"

namespace deployer {

using foundation::PropertyList;

namespace {

// With fewer files and fewer bytes than this, starting the helpers takes longer than what they save.
constexpr std::size_t kEntriesWorthHelpers = 8;
constexpr std::int64_t kBytesWorthHelpers = std::int64_t{1} << 20;

bool isWorthHelpers(const PropertyList& manifest) {
  const std::size_t entries = manifest[kManifestListOfFiles].count();
  const bool large = manifest[kManifestComponentSize].integer().value_or(0) >= kBytesWorthHelpers;
  return entries >= kEntriesWorthHelpers || (large && entries > 1);
}

}  // namespace

ComponentInstaller::ComponentInstaller(InstallRules rules, InstallResources& resources)
    : rules_(std::move(rules)),
      resources_(resources),
      files_(rules_, resources_, prefetch_),
      directories_(rules_, resources_, prefetch_) {}

bool ComponentInstaller::installNext(const PropertyList& manifest, const FileEntry& entry) {
  startPrefetch(manifest);
  return install(prefetch_ ? prefetch_->takeNext() : PayloadPrefetch::Turn{rules_.decide(entry), std::nullopt});
}

bool ComponentInstaller::copy(const FileEntry& entry) { return install({rules_.decideCopy(entry), std::nullopt}); }

void ComponentInstaller::startPrefetch(const PropertyList& manifest) {
  if (prefetch_ || !isWorthHelpers(manifest)) {
    return;
  }
  const PropertyList& entries = manifest[kManifestListOfFiles];
  prefetch_.emplace(
      entries.count(), [this, entries](std::size_t index) { return rules_.decide(FileEntry(entries.at(index))); },
      resources_.helpers(), resources_.reader(), resources_.budget(), resources_.keptBytesPerThread());
}

bool ComponentInstaller::install(PayloadPrefetch::Turn turn) {
  InstallAction& action = turn.action;
  switch (action.kind) {
    case InstallAction::Kind::Keep:
    case InstallAction::Kind::Skip:
      return true;
    case InstallAction::Kind::Link:
      links_.push_back(std::move(action.entry));
      return true;
    case InstallAction::Kind::Directory:
    case InstallAction::Kind::ExternalDirectory:
      return directories_.install(action);
    case InstallAction::Kind::PayloadFile:
    case InstallAction::Kind::ExternalFile:
      return (turn.prepared && files_.publish(*std::move(turn.prepared), action.destination)) || files_.install(action);
    case InstallAction::Kind::Refuse:
      break;
  }
  logging::error("%@", action.refusal);
  return false;
}

}  // namespace deployer
