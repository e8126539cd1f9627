#include "tools/building/UnkeptExtras.h"

#include <cstdint>
#include <map>
#include <string>
#include <string_view>
#include <utility>

#include "general/foundation/files/FileManager.h"
#include "general/foundation/files/ItemExtras.h"
#include "general/foundation/propertylist/TextFormat.h"
#include "tools/rules/WarningNames.h"

namespace bundletool {

namespace files = foundation::files;

namespace {

/// The warning for an extended attribute; nothing for what the system labels every file with by itself.
std::string_view warningFor(std::string_view attribute) {
  if (attribute == "security.selinux") {
    return {};
  }
  if (attribute == "security.capability") {
    return kWarnFileCapabilities;
  }
  const bool isList = attribute.starts_with("system.posix_acl_") || attribute.starts_with("system.nfs4_");
  return isList ? kWarnAccessControlLists : kWarnExtendedAttributes;
}

class Search {
 public:
  explicit Search(Problems& problems) : problems_(problems) {}

  void look(const InstallItem& item) {
    const files::ItemExtras extras = files::extrasOfItem(item.file);
    for (const std::string& attribute : extras.extendedAttributes) {
      if (const std::string_view name = warningFor(attribute); !name.empty()) {
        problems_.warning(name, {item.file, "", foundation::format("%@ is lost when it is installed", attribute),
                                 "let the product set it once it is installed, or do without"});
      }
    }
    if (extras.hasHoles) {
      problems_.warning(kWarnHoles, {item.file, "", "the holes in the file take room once it is installed",
                                     "let the product make the file"});
    }
    if (extras.names > 1) {
      lookForOtherName(item);
    }
  }

 private:
  // Names outside the staged folders are nobody's business: a build may stage by linking.
  void lookForOtherName(const InstallItem& item) {
    const auto status = files::attributesOfItem(item.file);
    if (!status) {
      return;
    }
    const auto [first, isNew] = firstNames_.emplace(std::pair(status->device, status->inode), item.file);
    if (!isNew && first->second != item.file) {
      problems_.warning(
          kWarnHardLinks,
          {item.file, "", foundation::format("the file is %@ as well, but is installed apart", first->second),
           "make one of them a symbolic link"});
    }
  }

  Problems& problems_;
  std::map<std::pair<std::uint64_t, std::uint64_t>, std::string> firstNames_;  // device and inode -> path
};

}  // namespace

void warnOfUnkeptExtras(const std::vector<ComponentItems>& components, Problems& problems) {
  Search search(problems);
  for (const ComponentItems& component : components) {
    for (const InstallItem& item : component.items) {
      if (!item.isHandWritten()) {
        search.look(item);
      }
    }
  }
}

}  // namespace bundletool
