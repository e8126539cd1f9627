#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "InstallationDeployer/FileEntry.h"
#include "InstallationDeployer/InstallAction.h"
#include "general/foundation/propertylist/PropertyList.h"

namespace deployer {

/// The payload files that an install would read, each once. It keeps the manifests and the places of the entries in
/// them, so that a bundle of many files takes little more memory than its manifests. Read by several threads once it is
/// complete.
class PayloadFiles {
 public:
  struct Component {
    InstallRules rules;
    foundation::PropertyList entries;  ///< the component's list of files
  };
  struct File {
    std::size_t component = 0;
    std::size_t entry = 0;
    std::uint64_t bytes = 0;
  };

  void beginComponent(Component component) { components_.push_back(std::move(component)); }
  /// Of the component begun last.
  void add(std::size_t entry, std::uint64_t bytes) { files_.push_back({components_.size() - 1, entry, bytes}); }

  [[nodiscard]] const std::vector<File>& files() const { return files_; }
  [[nodiscard]] const std::string& componentOf(const File& file) const {
    return components_[file.component].rules.component;
  }
  /// What an install does with the file's entry.
  [[nodiscard]] InstallAction actionFor(const File& file) const {
    const Component& component = components_[file.component];
    return component.rules.decide(FileEntry(component.entries.at(file.entry)));
  }

 private:
  std::vector<Component> components_;
  std::vector<File> files_;
};

}  // namespace deployer
