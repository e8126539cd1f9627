#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "general/foundation/Descriptor.h"

namespace platform {

/// A process that runs from an application bundle: its executable lies in the Contents/MacOS of a bundle whose
/// Info.plist has an identifier.
class RunningApplication {
 public:
  RunningApplication(int processIdentifier, std::string localizedName, foundation::Descriptor process)
      : processIdentifier_(processIdentifier), localizedName_(std::move(localizedName)), process_(std::move(process)) {}

  /// Every process that runs from a bundle with this identifier, in the order of the process table. None for an empty
  /// identifier.
  [[nodiscard]] static std::vector<RunningApplication> runningApplicationsWithBundleIdentifier(
      std::string_view bundleIdentifier);

  [[nodiscard]] int processIdentifier() const { return processIdentifier_; }
  /// The name that people know it by.
  [[nodiscard]] const std::string& localizedName() const { return localizedName_; }
  /// Ends the process at once, without asking it and without waiting for its end. Never another process that has got
  /// its number since. False when the system refuses.
  bool forceTerminate() const;

 private:
  int processIdentifier_;
  std::string localizedName_;
  foundation::Descriptor process_;
};

}  // namespace platform
