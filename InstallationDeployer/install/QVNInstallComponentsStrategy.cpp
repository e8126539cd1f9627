#include "InstallationDeployer/install/QVNInstallComponentsStrategy.h"

#include <algorithm>
#include <thread>
#include <utility>

#include "InstallationDeployer/DefaultAttributes.h"
#include "InstallationDeployer/DiskSpace.h"
#include "InstallationDeployer/FileEntry.h"
#include "InstallationDeployer/ManifestKeys.h"
#include "general/foundation/Paths.h"
#include "general/foundation/extensions/NSDictionaryExtensions.h"
#include "general/foundation/extensions/NSFileManagerExtensions.h"
#include "general/foundation/files/FileManager.h"
#include "general/foundation/files/PreparedFile.h"
#include "general/logging/SystemLog.h"
#include "general/system/NSProcessInfoExtensions.h"

namespace deployer {

using foundation::FileAttributes;
using foundation::PreparedFile;
using foundation::PropertyList;
using foundation::Status;
using foundation::NSDictionaryExtensions::boolForKey;
namespace files = foundation::files;
namespace paths = foundation::paths;

namespace {

constexpr std::string_view kSystemVolume = "/";
constexpr std::string_view kCopyFileSelector = "copyFileWithManifestInfo:forComponent:source:destination:attributes:";

// With fewer files and fewer bytes than this, starting the helpers takes longer than what they save.
constexpr std::size_t kEntriesWorthHelpers = 8;
constexpr std::int64_t kBytesWorthHelpers = std::int64_t{1} << 20;
constexpr unsigned kMostHelpers = 4;
// Buffers that stay with their thread, all together, and what larger files may take on top of them.
constexpr std::size_t kKeptBufferBytes = std::size_t{128} << 20;
constexpr std::size_t kLargeFileBytes = std::size_t{128} << 20;

bool isWorthHelpers(const PropertyList& manifest) {
  const std::size_t entries = manifest[kManifestListOfFiles].count();
  const bool large = manifest[kManifestComponentSize].integer().value_or(0) >= kBytesWorthHelpers;
  return entries >= kEntriesWorthHelpers || (large && entries > 1);
}

// The thread that publishes prepares files, too, instead of waiting for them.
unsigned usefulHelpers() { return std::clamp(std::thread::hardware_concurrency(), 1U, kMostHelpers + 1) - 1; }

std::size_t keptBytesPerThread(unsigned helpers) { return kKeptBufferBytes / (helpers + 1); }

bool isRoot(std::string_view path) { return paths::standardize(path) == "/"; }

std::optional<std::string> pathText(const FileEntry& entry) {
  const auto path = entry.path();
  return path ? std::optional<std::string>(*path) : std::nullopt;
}

std::optional<std::string> externalPathOf(const FileEntry& entry, const std::string& source) {
  const auto path = entry.externalSource();
  if (!path) {
    return std::nullopt;
  }
  return paths::resolve(source, *path);
}

std::string payloadPath(const std::string& source, const std::string& component, std::string_view checksum) {
  return paths::append(paths::append(source, component), checksum);
}

FileAttributes withDefaults(const FileAttributes& own, const FileAttributes& defaults) {
  return {.owner = own.owner ? own.owner : defaults.owner,
          .group = own.group ? own.group : defaults.group,
          .permissions = own.permissions ? own.permissions : defaults.permissions};
}

// The folder itself shows with its own attributes at once; only folders that no entry describes get the defaults.
Status makeDirectory(const std::string& path, const FileAttributes& own, const FileAttributes& parents) {
  const std::string parent = paths::deleteLastComponent(path);
  if (!parent.empty()) {
    if (auto made = files::createDirectory(parent, true, parents); !made) {
      return made;
    }
  }
  auto made = files::createDirectory(path, true, withDefaults(own, parents));
  // Attributes that cannot be given are reported when they are set, not as a folder that cannot be made.
  return made ? made : files::createDirectory(path, true, parents);
}

// Owner and group of a link are set whether the manifest gives them or not.
FileAttributes linkAttributes(const FileEntry& entry) {
  return withDefaults(entry.attributes(), {.owner = 0, .group = 0, .permissions = 0});
}

bool createSymbolicLink(const FileEntry& entry, const std::string& linkPath) {
  const auto target = entry.linkTarget();
  const FileAttributes attributes = linkAttributes(entry);
  bool result = true;
  if (auto created = files::createSymbolicLink(linkPath, std::string(target.value_or("")), attributes); !created) {
    logging::error("Failed to create symbolic link: %@\n%@", target, created.error());
    result = false;
  }
  if (!files::setLinkAttributes(attributes, linkPath)) {
    logging::error("Unable to set attributes on symbolic file: %@", linkPath);
    result = false;
  }
  return result;
}

}  // namespace

QVNInstallComponentsStrategy::QVNInstallComponentsStrategy(PropertyList installPhaseDictionary, std::string stepName,
                                                           QVNInstallStepStrategy* parentStep, StepContext& controller,
                                                           SharedPlan plan)
    : QVNInstallStepStrategy(std::move(installPhaseDictionary), std::move(stepName), parentStep, controller,
                             std::move(plan)),
      skipsSystemPaths_(!platform::NSProcessInfoExtensions::isMacOSX8AndBelow()),
      helpers_(usefulHelpers()),
      allowance_(kLargeFileBytes),
      reader_(allowance_, keptBytesPerThread(helpers_)) {}

// What is prepared ahead takes descriptors and space that an entry may be short of when its turn comes.
template <class Attempt>
auto QVNInstallComponentsStrategy::withSpareResources(const Attempt& attempt) -> decltype(attempt()) {
  auto result = attempt();
  if (result || !ahead_) {
    return result;
  }
  ahead_->giveUp();
  return attempt();
}

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
  return CheckDiskSpaceFor(*components) && InstallComponents(*components);
}

bool QVNInstallComponentsStrategy::CheckDiskSpaceFor(const Names& components) {
  const PropertyList index = manifest().manifestIndex();
  const PropertyList& payloadSize = index[kManifestIndexPayloadSize];
  const PropertyList& receiptSize = index[kManifestIndexReceiptSize];
  DiskSpace space;
  space.add(receiptSize.integer().value_or(0));
  if (boolForKey(index, kManifestIndexReceiptHasPayloadContents)) {
    space.add(payloadSize.integer().value_or(0));
  }
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
  const std::string destination = configuration().targetPath().value_or("");
  const std::string source = controller().installerRootPath();
  for (const std::string& component : components) {
    if (!installComponent({component, source, destination, kDefaultDirectoryAttributes})) {
      return false;
    }
  }
  return flushWrittenVolumes();
}

bool QVNInstallComponentsStrategy::installComponent(const Component& component) {
  std::vector<FileEntry> links;
  const bool installed = manifest().walkManifestFileListForComponents(
      Names{component.name}, false, true,
      [&](const std::string&, const PropertyList& componentManifest, const FileEntry& entry) {
        prepareAhead(componentManifest, component);
        auto prepared = ahead_ ? ahead_->takeNext() : std::nullopt;
        if (entry.isSymbolicLink()) {
          links.push_back(entry);
          return true;
        }
        if (isKeptAsItIs(entry)) {
          return true;
        }
        return (prepared && publish(*std::move(prepared), component)) || installEntry(entry, component);
      });
  // What was prepared after an entry that failed is thrown away unseen.
  ahead_.reset();
  if (!installed) {
    return failWith();
  }
  return createSymbolicLinks(links, component.destination);
}

bool QVNInstallComponentsStrategy::installEntry(const FileEntry& entry, const Component& component) {
  return copyFileWithManifestInfo(entry, component.name, component.source, component.destination,
                                  component.directoryAttributes);
}

// The user or the product may have changed such a file since it was installed.
bool QVNInstallComponentsStrategy::isKeptAsItIs(const FileEntry& entry) const {
  return configuration().hasInstallerReceipt() && entry.isModifiable();
}

void QVNInstallComponentsStrategy::prepareAhead(const PropertyList& manifest, const Component& component) {
  const PropertyList& entries = manifest[kManifestListOfFiles];
  if (ahead_ || !isWorthHelpers(manifest)) {
    return;
  }
  ahead_.emplace(
      entries.count(),
      [entries, component, keepsModifiable = configuration().hasInstallerReceipt()](std::size_t index) {
        const FileEntry entry(entries.at(index));
        const bool kept = keepsModifiable && entry.isModifiable();
        return kept ? std::nullopt : payloadFileFor(entry, component);
      },
      helpers_, reader_, allowance_, keptBytesPerThread(helpers_));
}

std::optional<PayloadFile> QVNInstallComponentsStrategy::payloadFileFor(const FileEntry& entry,
                                                                        const Component& component) {
  const auto path = entry.path();
  const auto checksum = entry.checksum();
  // What an earlier entry may install, or another rule decides about, waits for its turn.
  if (!path || !isUsablePath(*path) || !checksum || !paths::isSingleComponent(*checksum) || entry.isDirectory() ||
      entry.isSymbolicLink() || entry.externalSource()) {
    return std::nullopt;
  }
  PayloadFile file{.source = payloadPath(component.source, component.name, *checksum),
                   .destination = paths::append(component.destination, *path),
                   .checksum = std::string(*checksum),
                   .attributes = entry.attributes()};
  if (liesInSystemFolder(file.destination)) {
    return std::nullopt;
  }
  return file;
}

bool QVNInstallComponentsStrategy::publish(PayloadPrefetch::Prepared prepared, const Component& component) {
  std::string folder = paths::deleteLastComponent(prepared.destination);
  const bool sameFolder = folder == lastFolder_;
  if (!sameFolder && !files::exists(folder) && !files::createDirectory(folder, true, component.directoryAttributes)) {
    return false;
  }
  if (!std::move(prepared.file).publish()) {
    return false;
  }
  if (!sameFolder) {
    writtenVolumes_.note(prepared.destination);
    lastFolder_ = std::move(folder);
  }
  return true;
}

bool QVNInstallComponentsStrategy::copyFileWithManifestInfo(const FileEntry& entry, const std::string& forComponent,
                                                            const std::string& source, const std::string& destination,
                                                            const FileAttributes& attributes) {
  const auto path = pathText(entry);
  if (!path || !isUsablePath(*path)) {
    return fail("A file of component %@ has no usable path: %@", forComponent, path);
  }
  const bool isDirectory = entry.isDirectory();
  const auto checksum = entry.checksum();
  const auto externalPath = externalPathOf(entry, source);
  const std::string destinationPath = paths::append(destination, *path);
  if (skipsSystemPaths_ && liesInSystemFolder(destinationPath)) {
    return true;
  }
  if (isDirectory) {
    if (externalPath && isRoot(*path)) {
      return fail("The root of component %@ cannot be emptied for %@", forComponent, externalPath);
    }
    return copyDirectory(entry, destinationPath, externalPath, attributes);
  }
  std::optional<std::string> sourcePath = externalPath;
  if (!sourcePath && checksum) {
    sourcePath = payloadPath(source, forComponent, *checksum);
    if (!paths::isSingleComponent(*checksum)) {
      return fail("path doesn't exist at %@", sourcePath);
    }
  }
  return copyFile(entry, destinationPath, forComponent, sourcePath, attributes);
}

bool QVNInstallComponentsStrategy::copyDirectory(const FileEntry& entry, const std::string& path,
                                                 const std::optional<std::string>& externalPath,
                                                 const FileAttributes& attributes) {
  logging::debug("%s: filePath = %@", kCopyFileSelector, path);
  const FileAttributes own = entry.attributes();
  if (auto made = withSpareResources([&] { return makeDirectory(path, own, attributes); }); !made) {
    return fail("error: %@", made.error());
  }
  writtenVolumes_.note(path);
  if (!setDirectoryAttributes(path, own)) {
    return false;
  }
  return !externalPath || refillDirectory(path, *externalPath, own, attributes);
}

bool QVNInstallComponentsStrategy::refillDirectory(const std::string& path, const std::string& externalPath,
                                                   const FileAttributes& own, const FileAttributes& parents) {
  logging::debug("%s: externalFilePath = %@", kCopyFileSelector, externalPath);
  if (auto removed = files::removeItemIfPresent(path); !removed) {
    return fail("Unable to delete directory: %@\n%@", path, removed.error());
  }
  if (auto made = makeDirectory(path, own, parents); !made) {
    return fail("Unable to create directory: %@\n%@", path, made.error());
  }
  const auto listing = files::contentsOfDirectory(externalPath);
  if (!listing && !listing.error().isNoSuchFile()) {
    return fail("Unable to access to external directory.\n%@", listing.error());
  }
  const std::vector<std::string> items = listing ? *listing : std::vector<std::string>();
  logging::debug("%s: itemsToCopy.count = %lu", kCopyFileSelector, items.size());
  for (const std::string& item : items) {
    const std::string copy = paths::append(path, item);
    if (auto copied =
            foundation::NSFileManagerExtensions::copyAndOverwriteItemAtPath(paths::append(externalPath, item), copy);
        !copied) {
      return fail("Unable to copy external file.\n%@", copied.error());
    }
    writtenVolumes_.note(copy);
  }
  logging::info("Copied %ld external files to %@.", items.size(), path);
  return setDirectoryAttributes(path, own);
}

bool QVNInstallComponentsStrategy::setDirectoryAttributes(const std::string& path, const FileAttributes& attributes) {
  if (auto set = files::setAttributes(attributes, path); !set) {
    return fail("Unable to set attributes on directory: %@\n%@", path, set.error());
  }
  return true;
}

bool QVNInstallComponentsStrategy::copyFile(const FileEntry& entry, const std::string& path,
                                            const std::string& component, const std::optional<std::string>& sourcePath,
                                            const FileAttributes& directoryAttributes) {
  if (!sourcePath || !files::exists(*sourcePath)) {
    if (entry.externalSource()) {
      return true;
    }
    return fail("path doesn't exist at %@", sourcePath);
  }
  const auto content = withSpareResources([&] { return reader_.read(*sourcePath); });
  if (!content) {
    return fail("Error: %@ (%@)", content.error(), sourcePath);
  }
  const auto checksum = entry.checksum();
  if (checksum && *checksum != content->checksum()) {
    return fail("Checksum mismatch for component %@.\n\tFound:%@. \n\tExpected: %@\n\tDestination: %@", component,
                content->checksum(), checksum, path);
  }
  return makeParent(path, directoryAttributes) && writeFile(*content, path, entry.attributes());
}

bool QVNInstallComponentsStrategy::makeParent(const std::string& path, const FileAttributes& attributes) {
  const std::string parent = paths::deleteLastComponent(path);
  if (files::exists(parent)) {
    return true;
  }
  const auto made = withSpareResources([&] { return files::createDirectory(parent, true, attributes); });
  return made ? true : fail("error: %@", made.error());
}

bool QVNInstallComponentsStrategy::writeFile(const PayloadFileReader::Content& content, const std::string& path,
                                             const FileAttributes& attributes) {
  auto prepared = withSpareResources([&] { return PreparedFile::prepare(path, content.bytes(), attributes); });
  if (!prepared) {
    // Written and given attributes in one go: without them it shows which of the two failed.
    const bool written = PreparedFile::prepare(path, content.bytes(), {}).ok();
    return written ? fail("Unable to set attributes on file: %@\n%@", path, prepared.error())
                   : fail("Error writing: %@ (%@)", prepared.error(), path);
  }
  if (auto published = std::move(*prepared).publish(); !published) {
    return fail("Error writing: %@ (%@)", published.error(), path);
  }
  writtenVolumes_.note(path);
  return true;
}

bool QVNInstallComponentsStrategy::createSymbolicLinks(const std::vector<FileEntry>& entries,
                                                       const std::string& destination) {
  QVNInstallerState state = installerState();
  const bool result = createSymbolicLinks(entries, destination, state);
  setInstallerState(state);
  for (const FileEntry& entry : entries) {
    writtenVolumes_.note(paths::append(destination, entry.listedPath().text()));
  }
  return result;
}

bool QVNInstallComponentsStrategy::createSymbolicLinks(const std::vector<FileEntry>& entries,
                                                       const std::string& destination,
                                                       QVNInstallerState& installerState) {
  installerState = QVNInstallerStateInstalling;
  bool result = true;
  for (const FileEntry& entry : entries) {
    const auto path = pathText(entry);
    if (!path || !isUsablePath(*path) || isRoot(*path)) {
      logging::error("A symbolic link has no usable path: %@", path);
      installerState = QVNInstallerStateFailed;
      result = false;
      continue;
    }
    const std::string linkPath = paths::append(destination, *path);
    if (files::exists(linkPath)) {
      if (auto removed = files::removeItem(linkPath); !removed) {
        logging::error("Failed to delete symbolic link %@. %@ ", linkPath, removed.error());
        installerState = QVNInstallerStateFailed;
        return false;
      }
    }
    if (!createSymbolicLink(entry, linkPath)) {
      installerState = QVNInstallerStateFailed;
      result = false;
    }
  }
  return result;
}

bool QVNInstallComponentsStrategy::flushWrittenVolumes() {
  if (auto flushed = writtenVolumes_.flush(); !flushed) {
    return fail("Unable to bring the installed files to the disk. %@", flushed.error());
  }
  return true;
}

}  // namespace deployer
