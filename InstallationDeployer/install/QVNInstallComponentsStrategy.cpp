#include "InstallationDeployer/install/QVNInstallComponentsStrategy.h"

#include <utility>

#include "InstallationDeployer/DefaultAttributes.h"
#include "InstallationDeployer/DiskSpace.h"
#include "InstallationDeployer/ManifestKeys.h"
#include "InstallationDeployer/install/ComponentInstaller.h"
#include "InstallationDeployer/install/LinkInstaller.h"
#include "general/foundation/Paths.h"
#include "general/foundation/files/FileManager.h"
#include "general/logging/SystemLog.h"
#include "general/system/NSProcessInfoExtensions.h"

namespace deployer {

using foundation::FileAttributes;
namespace files = foundation::files;
namespace paths = foundation::paths;

namespace {

constexpr std::string_view kSystemVolume = "/";

// What counts for every component.
InstallRules rulesFor(std::string component, std::string source, std::string destination) {
  return {.component = std::move(component),
          .source = std::move(source),
          .destination = std::move(destination),
          .directoryAttributes = kDefaultDirectoryAttributes,
          .skipsSystemFolder = !platform::NSProcessInfoExtensions::isMacOSX8AndBelow()};
}

}  // namespace

bool QVNInstallComponentsStrategy::work() {
  setInstallerState(QVNInstallerStateInstalling);
  std::optional<Names> components;
  if (plan()) {
    components = manifest().filterComponents(*plan(), productName());
  }
  logging::debug("<%@> installPlan for %@: %@", qualifiedName(), configuration().productName(),
                 components ? foundation::FormatArgument(*components) : foundation::FormatArgument(nullptr));
  if (!components) {
    logging::info("No plan to install");
    return failWith();
  }
  return CheckDiskSpaceFor(*components) && (controller().changes().begin(*components) || failWith()) &&
         InstallComponents(*components);
}

bool QVNInstallComponentsStrategy::CheckDiskSpaceFor(const Names& components) {
  const PropertyList index = manifest().manifestIndex();
  const PropertyList& payloadSize = index[kManifestIndexPayloadSize];
  const PropertyList& receiptSize = index[kManifestIndexReceiptSize];
  DiskSpace space;
  space.addReceipt(index);
  logging::debug("payloadSize in bytes: %@", payloadSize);
  logging::debug("receiptSize in bytes: %@", receiptSize);
  logging::debug("totalReceiptSize in bytes: %lld", space.required());

  for (const std::string& component : components) {
    space.add(manifest().getManifestForComponent(component)[kManifestComponentSize].integer().value_or(0));
  }
  const auto volume = files::attributesOfFileSystem(std::string(kSystemVolume));
  if (!volume) {
    return fail("Failed to read system volume attributes. %@", volume.error());
  }
  const std::int64_t freeBytes = DiskSpace::signedSize(volume->freeBytes);
  logging::debug("free disk space in bytes: %lld", freeBytes);
  if (space.fitsInto(freeBytes)) {
    return true;
  }
  return failWith(QVNInstallerStateInsufficientDiskSpace,
                  "Not enough space to install. Required space: %lld, free space: %lld", space.required(), freeBytes);
}

bool QVNInstallComponentsStrategy::InstallComponents(const Names& components) {
  setInstallerState(QVNInstallerStateInstalling);
  if (components.empty()) {
    logging::info("Empty plan. Nothing to install");
  }
  InstallRules rules = rulesFor({}, controller().installerRootPath(), configuration().targetPath().value_or(""));
  rules.keepsModifiableFiles = configuration().hasInstallerReceipt();
  rules.modifiableFilesToWrite = controller().changes().modifiableFilesToWrite();
  const auto& owed = controller().changes().owedFiles();
  rules.owedFiles = {owed.begin(), owed.end()};
  for (const std::string& component : components) {
    rules.component = component;
    if (!installComponent(rules)) {
      return false;
    }
    controller().changes().note("installed", {component});
  }
  if (auto flushed = resources_.writtenVolumes().flush(); !flushed) {
    return fail("Unable to bring the installed files to the disk. %@", flushed.error());
  }
  return true;
}

bool QVNInstallComponentsStrategy::installComponent(const InstallRules& rules) {
  const auto links = installItems(rules);
  return links ? createSymbolicLinks(*links, rules.destination) : failWith();
}

std::optional<std::vector<FileEntry>> QVNInstallComponentsStrategy::installItems(const InstallRules& rules) {
  ComponentInstaller installer(rules, resources_);
  const bool installed = manifest().walkManifestFileListForComponents(
      Names{rules.component}, false, true,
      [&](const std::string&, const PropertyList& componentManifest, const FileEntry& entry) {
        return installer.installNext(componentManifest, entry) || failWith();
      });
  return installed ? std::optional(installer.takeLinks()) : std::nullopt;
}

bool QVNInstallComponentsStrategy::copyFileWithManifestInfo(const FileEntry& entry, const std::string& forComponent,
                                                            const std::string& source, const std::string& destination,
                                                            const FileAttributes& attributes) {
  InstallRules rules = rulesFor(forComponent, source, destination);
  rules.directoryAttributes = attributes;
  return ComponentInstaller(std::move(rules), resources_).copy(entry) || failWith();
}

bool QVNInstallComponentsStrategy::createSymbolicLinks(const std::vector<FileEntry>& entries,
                                                       const std::string& destination) {
  QVNInstallerState state = installerState();
  const bool result = createSymbolicLinks(entries, destination, state);
  setInstallerState(state);
  for (const FileEntry& entry : entries) {
    resources_.writtenVolumes().note(paths::append(destination, entry.listedPath().text()));
  }
  return result;
}

bool QVNInstallComponentsStrategy::createSymbolicLinks(const std::vector<FileEntry>& entries,
                                                       const std::string& destination,
                                                       QVNInstallerState& installerState) {
  installerState = QVNInstallerStateInstalling;
  for (const FileEntry& entry : entries) {
    const LinkOutcome outcome = installLink(entry, destination);
    if (outcome != LinkOutcome::Made) {
      installerState = QVNInstallerStateFailed;
    }
    if (outcome == LinkOutcome::NotRemoved) {
      break;
    }
  }
  return installerState != QVNInstallerStateFailed;
}

}  // namespace deployer
