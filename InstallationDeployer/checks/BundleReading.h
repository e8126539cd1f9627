#pragma once

#include <cstdint>
#include <map>
#include <set>
#include <string>
#include <string_view>
#include <unordered_set>
#include <utility>
#include <vector>

#include "InstallationDeployer/QVNInstallerManifest.h"
#include "InstallationDeployer/checks/BundleProblem.h"
#include "InstallationDeployer/checks/CheckProgress.h"
#include "InstallationDeployer/checks/PayloadFiles.h"

namespace deployer {

/// Reads the manifests of a bundle as an install of these products would, and notes what would make it fail: what is
/// missing, cannot be read or is not as it must be. Of the payload it looks at all but the content. What the engine
/// takes in its stride is no problem here. One reading per object, by one thread.
class BundleReading {
 public:
  /// @param bundlePath the bundle of the manifests; everything outlives this.
  BundleReading(std::string bundlePath, QVNInstallerManifest& manifest, BundleProblems& problems,
                CheckProgress& progress);

  /// The index itself; false when there is nothing to go on with.
  [[nodiscard]] bool readIndex();
  void readProduct(const std::string& product);

  [[nodiscard]] const PayloadFiles& payload() const { return payload_; }
  /// What shall be known but stops no install; the first ones of any number.
  [[nodiscard]] const std::vector<std::string>& warnings() const { return warnings_; }
  /// Where in the bundle's order what is found next belongs.
  [[nodiscard]] std::uint64_t nextPlace() const { return place_; }

 private:
  using PropertyList = foundation::PropertyList;

  [[nodiscard]] InstallRules rulesFor(const std::string& product);
  void readPhase(const std::string& product, const PropertyList& phase, bool isFirst);
  void readNestedPhase(const std::string& product, const PropertyList& phase);
  /// The manifest; nil, with a problem, when there is none.
  [[nodiscard]] PropertyList readManifest(const std::string& component);
  void readComponent(const InstallRules& rules, const PropertyList& manifest);
  void readEntry(const InstallRules& rules, std::size_t index, const FileEntry& entry);
  void readPayloadFile(std::size_t index, const std::string& component, const InstallAction& action);
  void readExternalSource(const std::string& component, const InstallAction& action);
  void readExecutables(const InstallRules& rules, const PropertyList& manifest);

  [[nodiscard]] std::string indexPath() const;
  void add(BundleProblem problem) { problems_.add(place_++, std::move(problem)); }
  void addMalformed(const std::string& file, const std::string& component, std::string what);
  void warn(std::string text);

  const std::string bundlePath_;
  QVNInstallerManifest& manifest_;
  BundleProblems& problems_;
  CheckProgress& progress_;
  PayloadFiles payload_;
  /// Checksums by component; what they view is kept by the payload.
  std::map<std::string, std::unordered_set<std::string_view>, std::less<>> known_;
  /// The components read, and whether as parts of a product that is installed.
  std::set<std::pair<std::string, bool>> read_;
  bool hasPayload_ = true;
  std::vector<std::string> warnings_;
  std::uint64_t place_ = 0;
};

}  // namespace deployer
