#pragma once

#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <unordered_set>
#include <utility>
#include <vector>

#include "InstallationDeployer/ManifestCache.h"
#include "InstallationDeployer/MutableComponentManifest.h"
#include "general/foundation/files/FileBuffer.h"
#include "general/foundation/files/ItemStatus.h"
#include "general/foundation/propertylist/PropertyList.h"

namespace deployer {

/// One scan of a staged tree into a component manifest: each folder before what it contains, links as links.
/// Lives for the length of the scan; failures go to the log. For one thread.
class ComponentScan {
 public:
  /// (full path of a regular file) -> the checksum to record for it.
  using ChecksumBlock = std::function<std::string(const std::string&)>;
  struct Options {
    std::string rootDirectory;             ///< the staged tree
    std::string rootPrefix;                ///< where the tree will lie once installed
    std::optional<std::string> plistPath;  ///< a plist with what a scan cannot know
    ChecksumBlock checksumBlock;           ///< null: the digest of what the file holds, of nothing if it cannot be read
    bool recordsRootAsOwner = false;       ///< owner and group 0 for everything scanned, whoever it belongs to
  };

  /// @param manifest what the scan adds to; it outlives the scan.
  /// @param plists keeps the authoring plist from folder to folder, and from scan to scan; it outlives the scan.
  ComponentScan(Options options, MutableComponentManifest& manifest, ManifestCache& plists)
      : options_(std::move(options)), manifest_(manifest), plists_(plists) {}

  /// Scans a folder and everything below it; the root last gets what the authoring plist adds.
  /// @return false when the folder, or a link in it, could not be looked at.
  [[nodiscard]] bool scan(const std::string& directory);
  /// Whether anything failed, be it a folder that could not be listed and that the scan went past.
  [[nodiscard]] bool failed() const { return failed_; }

 private:
  using PropertyList = foundation::PropertyList;
  using EntryFields = std::vector<std::pair<std::string, PropertyList>>;
  using Labels = std::unordered_set<std::string>;

  /// Launch daemons and launch agents are treated alike and differ in this.
  struct ServiceKind {
    std::string_view folder;
    std::string_view key;
    const char* noun;
  };
  static const ServiceKind kDaemons;
  static const ServiceKind kAgents;

  /// What the authoring plist says, in the form that the scan asks for it.
  struct Authoring {
    PropertyList content;
    std::optional<Labels> daemons;  ///< nothing: the plist leaves them to the scan
    std::optional<Labels> agents;
    Labels modifiableFiles;
  };

  [[nodiscard]] EntryFields entryFor(const std::string& installPath, const foundation::ItemStatus& attributes,
                                     bool isDirectory) const;
  void addDirectory(const std::string& directory, const foundation::ItemStatus& attributes);
  [[nodiscard]] bool scanItem(const std::string& path);
  [[nodiscard]] bool addItem(const std::string& path, const foundation::ItemStatus& attributes);
  void noteService(const ServiceKind& kind, const std::string& installPath, const std::optional<Labels>& fromPlist,
                   PropertyList::Array& services);
  void readAuthoringPlist();
  void takeAuthoring(const PropertyList& content);
  void mergeAuthoringPlist();
  void mergeServices(const ServiceKind& kind, PropertyList::Array& services);
  void mergeElements(std::string_view key, std::string_view message, PropertyList::Array& elements);
  [[nodiscard]] std::string installPathOf(const std::string& path) const;
  [[nodiscard]] std::string checksumOf(const std::string& path);

  const Options options_;
  MutableComponentManifest& manifest_;
  ManifestCache& plists_;
  bool failed_ = false;
  std::optional<Authoring> authoring_;  // there from the first folder on
  foundation::FileBuffer buffer_;
};

}  // namespace deployer
