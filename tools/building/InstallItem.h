#pragma once

#include <cstdint>
#include <optional>
#include <string>

#include "general/foundation/files/FileAttributes.h"

namespace bundletool {

/// One path that a component will install, from a staged file or from an entry written by hand.
struct InstallItem {
  enum class Kind { Directory, File, Link };

  std::string path;  ///< where it is installed
  Kind kind = Kind::File;
  foundation::FileAttributes attributes;
  std::string file;  ///< where it comes from, for messages: the staged item, or the plist
  std::string key;   ///< and where in the plist; empty for staged items
  bool removesContents = false;

  [[nodiscard]] bool isHandWritten() const { return !key.empty(); }
};

}  // namespace bundletool
