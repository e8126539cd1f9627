#include "tools/building/Lint.h"

#include <algorithm>
#include <array>
#include <string>
#include <string_view>

#include "InstallationDeployer/BundleLayout.h"
#include "general/foundation/Paths.h"
#include "general/foundation/propertylist/TextFormat.h"
#include "tools/rules/WarningNames.h"

namespace bundletool {

namespace paths = foundation::paths;

namespace {

using Kind = InstallItem::Kind;

constexpr std::uint32_t kSetId = 06000;
constexpr std::uint32_t kSticky = 01000;
constexpr std::uint32_t kWritableByAll = 0002;

// What comes with the system and is replaced with it. Products have /Library, /Applications, /opt and /usr/local.
constexpr std::array<std::string_view, 12> kSystemFolders{
    "/System", "/bin", "/sbin", "/lib", "/lib64", "/usr", "/etc", "/private/etc", "/dev", "/boot", "/cores", "/net"};
constexpr std::string_view kFolderOfProducts = "/usr/local";

bool liesAtOrBelow(std::string_view path, std::string_view folder) {
  return path.starts_with(folder) && (path.size() == folder.size() || path[folder.size()] == '/');
}

bool liesInSystemFolder(const std::string& path) {
  return paths::deleteLastComponent(path) == "/" ||
         (!liesAtOrBelow(path, kFolderOfProducts) &&
          std::ranges::any_of(kSystemFolders,
                              [&path](std::string_view folder) { return liesAtOrBelow(path, folder); }));
}

class Linter {
 public:
  explicit Linter(Problems& problems) : problems_(problems) {}

  void look(const ComponentDescription& component, const InstallItem& item) {
    lookAtPermissions(item);
    if (item.kind != Kind::Directory && liesInSystemFolder(item.path)) {
      warn(kWarnSystemFolders, item, "%@ is installed among the files of the system",
           "install it below /Library, /Applications, /opt or /usr/local");
    }
    for (const std::string& product : component.products) {
      const std::string receipt = paths::append(paths::append(deployer::kQVNInstallerReceiptPath, product),
                                                deployer::kQVNInstallerApplicationName);
      if (liesAtOrBelow(item.path, receipt)) {
        warn(kWarnOwnReceipt, item, "%@ lies in the product's own receipt, which is replaced as a whole",
             "install it elsewhere");
        return;
      }
    }
  }

 private:
  void lookAtPermissions(const InstallItem& item) {
    const std::uint32_t permissions = item.attributes.permissions.value_or(0);
    if (item.kind == Kind::File && (permissions & kSetId) != 0) {
      warn(kWarnSetId, item, "%@ runs with the rights of its owner or group, whoever starts it",
           "take the set-id bits away (chmod ug-s)");
    }
    const bool isShared = item.kind == Kind::Directory && (permissions & kSticky) != 0;
    if (item.kind != Kind::Link && !isShared && (permissions & kWritableByAll) != 0) {
      warn(kWarnWritableByAll, item, "everybody may write %@", "take the right away (chmod o-w)");
    }
  }

  void warn(std::string_view name, const InstallItem& item, const char* what, const char* advice) {
    problems_.warning(name, {item.file, item.key, foundation::format(what, item.path), advice});
  }

  Problems& problems_;
};

}  // namespace

void lint(const std::vector<ComponentItems>& components, Problems& problems) {
  Linter linter(problems);
  for (const ComponentItems& entry : components) {
    for (const InstallItem& item : entry.items) {
      linter.look(*entry.component, item);
    }
  }
}

}  // namespace bundletool
