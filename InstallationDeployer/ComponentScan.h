#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <unordered_set>

#include "InstallationDeployer/QVNInstallerManifest.h"
#include "general/foundation/files/FileBuffer.h"
#include "general/foundation/files/ItemStatus.h"

namespace deployer {

/// One scan of a staged tree into a component manifest: each folder before what it contains, links as links.
/// Lives for the length of the scan; failures go to the log and to the state of the manifests object it scans for.
class ComponentScan {
 public:
  ComponentScan(QVNInstallerManifest& manifests, MutableComponentManifest& manifest, std::string rootDirectory,
                std::string rootPrefix, std::optional<std::string> plistPath);

  /// Scans a folder and everything below it; the root last gets what the authoring plist adds.
  [[nodiscard]] bool scan(const std::string& directory);

 private:
  using PropertyList = foundation::PropertyList;
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
  void fail();

  QVNInstallerManifest& manifests_;
  MutableComponentManifest& manifest_;
  const std::string rootDirectory_;
  const std::string rootPrefix_;
  const std::optional<std::string> plistPath_;
  std::optional<Authoring> authoring_;  // there from the first folder on
  foundation::FileBuffer buffer_;
};

}  // namespace deployer
