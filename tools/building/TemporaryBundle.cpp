#include "tools/building/TemporaryBundle.h"

#include <utility>

#include "general/foundation/Paths.h"
#include "general/foundation/files/FileManager.h"
#include "general/foundation/files/TemporaryNames.h"
#include "tools/building/BundleAttributes.h"

namespace bundletool {

using foundation::Result;
using foundation::Status;
namespace files = foundation::files;

Result<TemporaryBundle> TemporaryBundle::make(const std::string& output) {
  std::string path = foundation::temporary_names::make(output);
  if (auto made = files::createDirectory(path, false, kBundleFolderAttributes); !made) {
    return made.error();
  }
  return TemporaryBundle(std::move(path));
}

TemporaryBundle::TemporaryBundle(TemporaryBundle&& other) noexcept : path_(std::exchange(other.path_, {})) {}

TemporaryBundle::~TemporaryBundle() {
  if (!path_.empty()) {
    static_cast<void>(files::removeItem(path_));
  }
}

Status TemporaryBundle::publish(const std::string& destination, bool replace) {
  std::string aside;
  if (replace && files::attributesOfItem(destination)) {
    aside = foundation::temporary_names::make(foundation::paths::deleteLastComponent(destination));
    if (auto moved = files::moveItem(destination, aside); !moved) {
      return moved;
    }
  }
  if (auto moved = files::moveItem(path_, destination); !moved) {
    if (!aside.empty()) {
      static_cast<void>(files::moveItem(aside, destination));
    }
    return moved;
  }
  path_.clear();
  return aside.empty() ? Status() : files::removeItem(aside);
}

}  // namespace bundletool
