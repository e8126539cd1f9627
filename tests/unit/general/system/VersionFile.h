#pragma once

#include <string>

namespace tests {

/// The text of a system's version file.
inline std::string versionFile(const std::string& productVersion) {
  return "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<plist version=\"1.0\"><dict><key>ProductVersion</key><string>" +
         productVersion + "</string></dict></plist>\n";
}

}  // namespace tests
