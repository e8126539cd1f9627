#pragma once

#include <cstdint>
#include <functional>
#include <optional>
#include <set>
#include <string>
#include <string_view>
#include <vector>

#include "InstallationDeployer/FileEntry.h"
#include "InstallationDeployer/ManifestCache.h"
#include "InstallationDeployer/MutableComponentManifest.h"
#include "general/foundation/Error.h"
#include "general/foundation/propertylist/PropertyList.h"

namespace deployer {

/// The manifests of one installer bundle or receipt: the index of its products and one manifest per component.
///
/// The first half answers questions; the second half writes manifests from a staged tree. Failures show in the result,
/// in the log and, where said, in installerState(). Asking for something that is not there gives nil. An index that
/// contradicts itself (the first phase of a product installs no payload) throws InternalInconsistency.
/// Used by one thread.
class QVNInstallerManifest {
 public:
  using PropertyList = foundation::PropertyList;
  using Names = std::vector<std::string>;
  /// (component name, component manifest, file entry) -> go on with this component's next entry.
  using FileListBlock = std::function<bool(const std::string&, const PropertyList&, const FileEntry&)>;
  /// (full path, is a directory) -> go on.
  using DirectoryBlock = std::function<bool(const std::string&, bool)>;
  /// (full path of a regular file) -> the checksum to record for it.
  using ChecksumBlock = std::function<std::string(const std::string&)>;

  /// Opens the manifests below a bundle's or receipt's root. Reads nothing yet.
  explicit QVNInstallerManifest(std::string installerPath);

  // Questions.
  [[nodiscard]] const std::string& installerPath() const { return installerPath_; }
  /// 0, or 1 once something failed; see the operations that set it.
  [[nodiscard]] std::int32_t installerState() const { return installerState_; }
  void setInstallerState(std::int32_t state) { installerState_ = state; }
  /// Whether the index or a component's manifest was asked for, is there, and could not be read, once at least: what
  /// was answered then is not what the bundle says. A file that is missing or does not parse is no such case.
  [[nodiscard]] bool couldNotRead() const { return couldNotRead_; }

  /// The index; read once and kept until it is written. Nil while it is missing or does not parse, and, with state 1,
  /// when it cannot be read: the next call tries again.
  [[nodiscard]] PropertyList manifestIndex();
  [[nodiscard]] std::string manifestDirectoryPath() const;
  /// Where the manifest of a component is written, and where it is read from: the same place.
  [[nodiscard]] std::string componentManifestPathForName(std::string_view name) const;
  [[nodiscard]] std::string getPathForComponent(std::string_view name) const;
  /// The component's manifest as it is on disk now; a file that did not change is not parsed again. Nil when it is
  /// missing or does not parse, and, with state 1, when it cannot be read.
  [[nodiscard]] PropertyList getManifestForComponent(const std::string& name);
  /// Reads the index and the manifests of the components, to find out before something is done whether they can be
  /// read. Those that are missing or do not parse count as read.
  [[nodiscard]] bool canRead(const Names& components);
  /// Lets operations over components go on where the manifest of this one is missing, whatever the state.
  void goOnWithout(const std::string& component) { knownAsMissing_.insert(component); }

  [[nodiscard]] PropertyList productsDictionary();
  [[nodiscard]] PropertyList arrayOfInstallPhasesForProduct(std::string_view product);
  /// The components of the product's first phase in the order of installation; nothing when it has none.
  [[nodiscard]] std::optional<Names> componentListForProduct(std::string_view product);
  /// Those of the names that belong to the product, each once, in the order given.
  [[nodiscard]] Names filterComponents(const Names& components, std::string_view forProduct);
  [[nodiscard]] PropertyList listOfProductDetectionDictionaries();
  [[nodiscard]] PropertyList crossGradeDictionariesForProduct(std::string_view product);
  [[nodiscard]] PropertyList productsForRemoval();
  /// What a receipt reports: name and version of each component of the product; nil, with state 1, when one is unknown.
  [[nodiscard]] PropertyList componentsAndVersionsForProduct(std::string_view product);
  /// All executables of the components, in order; nothing when a manifest could not be read.
  [[nodiscard]] std::optional<PropertyList::Array> listOfExecutablesForComponents(const Names& components);
  [[nodiscard]] PropertyList listOfDaemonsForComponent(const std::string& name);
  [[nodiscard]] PropertyList listOfAgentsForComponent(const std::string& name);
  /// The labels of all components, each once, in the order of first appearance.
  [[nodiscard]] Names listOfDaemonsForComponents(const Names& components);
  [[nodiscard]] Names listOfAgentsForComponents(const Names& components);

  /// Calls the block for the file entries of each component, the components in the order given. Without
  /// `exitOnFailure`, an entry that fails only ends its own component and the answer is that of the last call made.
  [[nodiscard]] bool walkManifestFileListForComponents(const std::optional<Names>& components, bool inLeavesToRootOrder,
                                                       bool exitOnFailure, const FileListBlock& block);

  /// See RestrictedPaths.h.
  [[nodiscard]] static const std::set<std::string, std::less<>>& restrictedPaths();

  // Authoring.
  /// Scans a staged folder into the component's manifest and adds the component to the product.
  /// @param rootPrefix where the staged folder will lie once installed.
  /// @param plistPath a plist with what a scan cannot know, or nothing.
  [[nodiscard]] bool addComponentManifest(const std::string& component, const std::string& version,
                                          const std::string& fromDirectory, const std::string& rootPrefix,
                                          const std::string& forProduct,
                                          const std::optional<std::string>& withPlistPath);
  /// Scans one folder of a staged tree into a manifest. Called with the tree's root as both folders it scans the whole
  /// tree and then adds what the plist gives. A folder that cannot be listed shows in installerState() only.
  [[nodiscard]] bool populateComponentManifest(MutableComponentManifest& manifest, const std::string& fromDirectory,
                                               const std::string& rootDirectory, const std::string& rootPrefix,
                                               const std::optional<std::string>& withPlistPath);
  /// Replaces how a scan turns a file's content into its checksum, for whoever wants the content too. Nothing restores
  /// the reading and hashing of the whole file, where a file that cannot be read counts as empty.
  void setChecksumBlock(ChecksumBlock block) { checksumBlock_ = std::move(block); }
  /// Has scans record owner and group 0 for whatever they find, for those who cannot give files to root.
  void setRecordsRootAsOwner(bool records) { recordsRootAsOwner_ = records; }
  /// Walks a tree below a root without following links; calls the block for every folder and regular item.
  /// @param excludedPath relative paths that begin with it are not descended into; nothing or empty excludes nothing.
  bool walkDirectory(const std::string& root, const std::string& currentPath,
                     const std::optional<std::string>& excludedPath, const DirectoryBlock& block);
  [[nodiscard]] bool writeComponentManifest(const std::string& component,
                                            const PropertyList& componentManifestDictionary);
  [[nodiscard]] bool updateManifestIndexForComponent(const std::string& component, const std::string& forProduct);
  /// Bytes of everything in the bundle that a receipt without payload holds a copy of, folders included.
  [[nodiscard]] std::int64_t sizeOfReceipt();
  [[nodiscard]] bool updateManifestIndexForExternalTool(const std::string& bundlePath,
                                                        const std::string& withExternalProduct,
                                                        const std::string& forProduct);
  [[nodiscard]] bool updateManifestIndexWithOptions(const PropertyList& options,
                                                    const std::optional<std::string>& withPlist);
  [[nodiscard]] bool validateProductDetectionArray(const PropertyList& array);
  [[nodiscard]] bool validateProductRemovalsArray(const PropertyList& array);
  [[nodiscard]] bool writeManifestIndex(const PropertyList& index);

 private:
  PropertyList failReading(std::string_view message, std::string_view what, const foundation::Error& error);
  /// Whether an operation over components ends at this one: its manifest is not there, and something failed.
  [[nodiscard]] bool endsAt(const std::string& component, const PropertyList& manifest) const;
  [[nodiscard]] Names uniqueLabels(const Names& components, std::string_view key);
  [[nodiscard]] bool failAuthoring(std::string_view message, const std::string& component,
                                   const std::optional<std::string>& product = std::nullopt);
  [[nodiscard]] bool writeProduct(std::string_view name, const PropertyList& product, const PropertyList& index);
  // These put what an options plist gives into an index in the making; false when it is not as it must be.
  [[nodiscard]] bool mergeOptionsPlist(const std::string& path, PropertyList& index);
  [[nodiscard]] bool mergeProductArrays(const PropertyList& options, PropertyList& index);
  [[nodiscard]] static bool mergeCleanup(const PropertyList& options, PropertyList& index);
  static void mergeCrossGrades(const PropertyList& options, PropertyList& index);
  [[nodiscard]] bool validateProductArray(const PropertyList& array, std::string_view key, bool withComponents);
  static void requirePhaseType(const PropertyList& phases, std::size_t phase, std::string_view product,
                               std::string_view type);

  std::string installerPath_;
  PropertyList manifestIndex_;
  ChecksumBlock checksumBlock_;
  bool recordsRootAsOwner_ = false;
  ManifestCache componentManifests_;  // and the authoring plists of scans
  std::set<std::string, std::less<>> knownAsMissing_;
  std::int32_t installerState_ = 0;
  bool couldNotRead_ = false;
};

}  // namespace deployer
