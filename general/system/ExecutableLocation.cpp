#include "general/system/ExecutableLocation.h"

#include <unistd.h>

#include <algorithm>
#include <cstdlib>

#include "general/foundation/Paths.h"

namespace platform {

namespace paths = foundation::paths;

std::string folderOfExecutable(std::string_view startedAs) {
  if (startedAs.find('/') != std::string_view::npos) {
    return paths::deleteLastComponent(startedAs);
  }
  const char* const variable = std::getenv("PATH");
  std::string_view folders = variable != nullptr ? variable : "";
  while (!folders.empty()) {
    std::string folder(folders.substr(0, folders.find(':')));
    if (access(paths::append(folder, startedAs).c_str(), X_OK) == 0) {
      return folder;
    }
    folders.remove_prefix(std::min(folders.size(), folder.size() + 1));
  }
  return ".";
}

}  // namespace platform
