#pragma once

#include <map>
#include <string>
#include <string_view>
#include <unordered_set>

#include "general/foundation/files/FileBuffer.h"
#include "tools/building/ProgressBar.h"
#include "tools/rules/Problem.h"

namespace bundletool {

/// The payload of a bundle in the making: each component's contents, each content once, named by its checksum.
/// A file is read once: what is hashed is what is stored.
class PayloadStore {
 public:
  /// @param root the payload's folder, which exists.
  PayloadStore(std::string root, Problems& problems, ProgressBar& progress);

  /// Makes the folder for what is stored from now on; false, with a problem, when that fails. A component may be begun
  /// again and has what it had.
  [[nodiscard]] bool beginComponent(const std::string& name);
  /// Only after beginComponent(). Stores a file's content and returns its checksum; nothing but a problem, and no
  /// checksum, when that fails. Once the work is interrupted it does nothing any more.
  [[nodiscard]] std::string store(const std::string& path);
  /// Whether a component has the content with that checksum.
  [[nodiscard]] bool holds(const std::string& component, const std::string& checksum) const;

 private:
  std::string root_;
  Problems& problems_;
  ProgressBar& progress_;
  std::string folder_;
  std::map<std::string, std::unordered_set<std::string>> stored_;  // component -> checksums
  std::unordered_set<std::string>* current_ = nullptr;             // of the component that was begun last
  foundation::FileBuffer buffer_;
};

}  // namespace bundletool
