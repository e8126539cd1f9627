#include "tests/support/ProductPair.h"

#include <algorithm>
#include <cstddef>
#include <set>
#include <span>

#include "InstallationDeployer/QVNInstallerChecksum.h"
#include "tests/support/PropertyLists.h"

namespace tests {
namespace {

using foundation::PropertyList;
using support::Snapshot;
using support::SnapshotEntry;
using Version = ProductPair::Version;

constexpr uid_t kUser = 501;
constexpr gid_t kStaff = 20;
constexpr gid_t kAdmin = 80;
constexpr mode_t kPermissionsOfLinks = 0777;

/// What one version has at a path.
struct Shape {
  char type = 0;          ///< as in SnapshotEntry; 0: nothing
  const char* text = "";  ///< the content of a file, the target of a link
  mode_t mode = 0;
  uid_t user = 0;
  gid_t group = 0;
};

constexpr Shape kNothing{};
constexpr Shape file(const char* content, mode_t mode = 0644, uid_t user = 0, gid_t group = 0) {
  return {'-', content, mode, user, group};
}
constexpr Shape folder(mode_t mode = 0755, uid_t user = 0, gid_t group = 0) { return {'d', "", mode, user, group}; }
constexpr Shape link(const char* target, uid_t user = 0, gid_t group = 0) {
  return {'l', target, kPermissionsOfLinks, user, group};
}

/// What becomes of one path from 1.0 to 1.1.
struct Change {
  const char* kind;
  const char* component;
  const char* path;
  Shape first;
  Shape second;
};

constexpr Change kChanges[] = {
    {"folder of the product", "Core", ProductPair::kFolder, folder(0751, kUser, kStaff), folder(0751, kUser, kStaff)},
    {"folder of the product", "Tools", ProductPair::kFolder, folder(0751, kUser, kStaff), folder(0751, kUser, kStaff)},
    {"folder of the product", "Legacy", ProductPair::kFolder, folder(0751, kUser, kStaff), kNothing},
    {"folder of the product", "Extra", ProductPair::kFolder, kNothing, folder(0751, kUser, kStaff)},
    {"same file", "Core", "/Library/Guard/same-file", file("same"), file("same")},
    {"same folder", "Core", "/Library/Guard/same-folder", folder(0750), folder(0750)},
    {"same folder", "Core", "/Library/Guard/same-folder/item", file("same item"), file("same item")},
    {"same link", "Core", "/Library/Guard/same-link", link("same-file"), link("same-file")},
    {"new file", "Core", "/Library/Guard/new-file", kNothing, file("new", 0640, kUser, kStaff)},
    {"new folder", "Core", "/Library/Guard/new-folder", kNothing, folder(0700, kUser, kStaff)},
    {"new folder", "Core", "/Library/Guard/new-folder/item", kNothing, file("new item")},
    {"new link", "Core", "/Library/Guard/new-link", kNothing, link("new-file")},
    {"file gone", "Core", "/Library/Guard/old-file", file("old"), kNothing},
    {"folder gone", "Core", "/Library/Guard/old-folder", folder(0700, kUser, kStaff), kNothing},
    {"folder gone", "Core", "/Library/Guard/old-folder/item", file("old item"), kNothing},
    {"link gone", "Core", "/Library/Guard/old-link", link("old-file"), kNothing},
    {"file becomes folder", "Core", "/Library/Guard/file-to-folder", file("a file first"), folder(0755)},
    {"file becomes folder", "Core", "/Library/Guard/file-to-folder/item", kNothing, file("in a folder now")},
    {"file becomes link", "Core", "/Library/Guard/file-to-link", file("a file first"), link("same-file")},
    {"folder becomes file", "Core", "/Library/Guard/folder-to-file", folder(0755), file("a file now")},
    {"folder becomes file", "Core", "/Library/Guard/folder-to-file/deep", folder(0755), kNothing},
    {"folder becomes file", "Core", "/Library/Guard/folder-to-file/deep/item", file("deep in a folder"), kNothing},
    {"folder becomes link", "Core", "/Library/Guard/folder-to-link", folder(0755), link("same-folder")},
    {"folder becomes link", "Core", "/Library/Guard/folder-to-link/item", file("in a folder"), kNothing},
    {"link becomes file", "Core", "/Library/Guard/link-to-file", link("same-file"), file("a file now")},
    {"link becomes folder", "Core", "/Library/Guard/link-to-folder", link("same-folder"), folder(0755)},
    {"link becomes folder", "Core", "/Library/Guard/link-to-folder/item", kNothing, file("in a folder now")},
    {"content only", "Core", "/Library/Guard/content", file("first content"), file("second content, a longer one")},
    {"owner of a file", "Core", "/Library/Guard/file-owner", file("owned", 0644), file("owned", 0644, kUser)},
    {"group of a file", "Core", "/Library/Guard/file-group", file("owned", 0644), file("owned", 0644, 0, kAdmin)},
    {"mode of a file", "Core", "/Library/Guard/file-mode", file("set-id", 0600), file("set-id", 04755)},
    {"owner of a folder", "Core", "/Library/Guard/folder-owner", folder(0755), folder(0755, kUser)},
    {"group of a folder", "Core", "/Library/Guard/folder-group", folder(0755), folder(0755, 0, kAdmin)},
    {"mode of a folder", "Core", "/Library/Guard/folder-mode", folder(0755), folder(01770)},
    {"owner of a link", "Core", "/Library/Guard/link-owner", link("same-file"), link("same-file", kUser)},
    {"group of a link", "Core", "/Library/Guard/link-group", link("same-file"), link("same-file", 0, kAdmin)},
    {"target of a link", "Core", "/Library/Guard/link-target", link("same-file"), link("same-folder")},
    {"link whose target is not there", "Core", "/Library/Guard/same-dangling", link("nowhere"), link("nowhere")},
    {"link whose target is not there", "Core", "/Library/Guard/other-dangling", link("nowhere"), link("elsewhere")},
    {"renamed file", "Core", "/Library/Guard/first-name", file("renamed"), kNothing},
    {"renamed file", "Core", "/Library/Guard/second-name", kNothing, file("renamed")},
    {"renamed folder", "Core", "/Library/Guard/first-named", folder(0755), kNothing},
    {"renamed folder", "Core", "/Library/Guard/first-named/below", folder(0711), kNothing},
    {"renamed folder", "Core", "/Library/Guard/first-named/below/item", file("moved along"), kNothing},
    {"renamed folder", "Core", "/Library/Guard/second-named", kNothing, folder(0755)},
    {"renamed folder", "Core", "/Library/Guard/second-named/below", kNothing, folder(0711)},
    {"renamed folder", "Core", "/Library/Guard/second-named/below/item", kNothing, file("moved along")},
    {"folder that the user's file keeps", "Core", "/Library/Guard/kept-directory", folder(0750, kUser), kNothing},
    {"folder that the user's file keeps", "Core", "/Library/Guard/kept-directory/item", file("delivered"), kNothing},
    {"folder that goes with its content", "Core", "/Library/Guard/cache", folder(0755), kNothing},
    {"modifiable file, same", "Core", ProductPair::kSettings, file("default", 0640), file("default", 0640)},
    {"modifiable file, gone", "Core", ProductPair::kFirstSettings, file("first default", 0640), kNothing},
    {"modifiable file, new", "Core", ProductPair::kSecondSettings, kNothing, file("second default", 0640)},
    {"modifiable file, same", "Core", ProductPair::kRules, folder(0755), folder(0755)},
    {"modifiable file, same", "Core", ProductPair::kDefaultRule, file("default rule"), file("default rule")},
    {"program", "Core", "/Library/Guard/configure",
     file("#!/bin/sh\n[ ! -e /run/guard-waits ] || read line </run/guard-waits\n[ ! -e /etc/guard-fails ] || exit 7\n"
          "echo 1.0 >>/var/log/guard-runs\n",
          0755),
     file("#!/bin/sh\n[ ! -e /run/guard-waits ] || read line </run/guard-waits\n[ ! -e /etc/guard-fails ] || exit 7\n"
          "echo 1.1 >>/var/log/guard-runs\n",
          0755)},
    {"daemon, same", "Core", "/Library/LaunchDaemons/com.corvane.guard.same.plist", file("<plist/>"), file("<plist/>")},
    {"daemon, gone", "Core", "/Library/LaunchDaemons/com.corvane.guard.first.plist", file("<plist/>"), kNothing},
    {"daemon, new", "Core", "/Library/LaunchDaemons/com.corvane.guard.second.plist", kNothing, file("<plist/>")},
    {"agent, same", "Core", "/Library/LaunchAgents/com.corvane.guard.agent.plist", file("<plist/>"), file("<plist/>")},
    {"component with the same version", "Tools", "/Library/Guard/tools", folder(0755), folder(0755)},
    {"component with the same version", "Tools", ProductPair::kTool, file("one", 0755), file("one", 0755)},
    {"component with the same version", "Tools", "/Library/Guard/tools/two", link("one"), link("one")},
    {"component with the same version", "Tools", "/Library/LaunchDaemons/com.corvane.guard.tools.plist",
     file("<plist/>"), file("<plist/>")},
    {"component gone", "Legacy", "/Library/Guard/legacy", folder(0755), kNothing},
    {"component gone", "Legacy", "/Library/Guard/legacy/item", file("legacy"), kNothing},
    {"component new", "Extra", "/Library/Guard/extra", kNothing, folder(0755)},
    {"component new", "Extra", "/Library/Guard/extra/item", kNothing, file("extra")},
    {"moved to another component", "Legacy", "/Library/Guard/moved", file("moved"), kNothing},
    {"moved to another component", "Core", "/Library/Guard/moved", kNothing, file("moved")},
};

/// The older product: in the places of the newer one, but not always of the same type.
constexpr Change kClassicItems[] = {
    {"", "Classic", ProductPair::kFolder, folder(0751, kUser, kStaff), kNothing},
    {"", "Classic", ProductPair::kClassicProgram, file("classic", 0755), kNothing},
    {"", "Classic", "/Library/Guard/classic-folder", folder(0755), kNothing},
    {"", "Classic", "/Library/Guard/classic-folder/item", file("classic item"), kNothing},
    {"", "Classic", "/Library/Guard/file-to-folder", file("a file of the older product"), kNothing},
    {"", "Classic", "/Library/Guard/folder-to-file", folder(0755), kNothing},
    {"", "Classic", "/Library/Guard/folder-to-file/older", file("in a folder of the older product"), kNothing},
    {"", "Classic", "/Library/Guard/same-link", file("a file where a link will be"), kNothing},
    {"", "Classic", ProductPair::kSettings, file("older default"), kNothing},
    {"", "Classic", ProductPair::kClassicSettings, file("older default"), kNothing},
    {"", "Classic", ProductPair::kRules, folder(0755), kNothing},
    {"", "Classic", ProductPair::kDefaultRule, file("default rule"), kNothing},
    {"", "Classic", "/Library/LaunchDaemons/com.corvane.guard.classic.plist", file("<plist/>"), kNothing},
};

/// What comes from outside the bundle.
constexpr const char* kInstalledLicence = "/Library/Guard/licence";
constexpr const char* kLicenceText = "licensed";

const Shape& shapeIn(const Change& change, Version version) {
  return version == Version::First ? change.first : change.second;
}

SnapshotEntry entryOf(const std::string& path, const Shape& shape) {
  SnapshotEntry entry;
  entry.path = path;
  entry.type = shape.type;
  entry.mode = shape.mode;
  entry.user = shape.user;
  entry.group = shape.group;
  const std::string text = shape.text;
  if (shape.type == 'l') {
    entry.target = text;
  } else if (shape.type == '-') {
    entry.checksum = deployer::QVNInstallerChecksum::generateSHA256(std::as_bytes(std::span(text)));
  }
  entry.size = text.size();
  return entry;
}

void sortByPath(Snapshot& snapshot) { std::ranges::sort(snapshot, {}, &SnapshotEntry::path); }

void stage(BundleMaker& bundle, const Change& change, const Shape& shape) {
  const std::string component = change.component;
  if (shape.type == 'd') {
    bundle.stageDirectory(component, change.path, shape.mode, shape.user, shape.group);
  } else if (shape.type == 'l') {
    bundle.stageLink(component, change.path, shape.text, shape.user, shape.group);
  } else if (shape.type == '-') {
    bundle.stageFile(component, change.path, shape.text, shape.mode, shape.user, shape.group);
  }
}

PropertyList jobsOf(const std::vector<std::string>& labels) { return {labels}; }

PropertyList program() {
  return PropertyLists::dictionary({{"Path", "/Library/Guard/configure"}, {"ExecuteOnInstall", true}});
}

PropertyList authoringOfCore(Version version) {
  const bool isFirst = version == Version::First;
  const std::string own = isFirst ? "com.corvane.guard.first" : "com.corvane.guard.second";
  const char* settings = isFirst ? ProductPair::kFirstSettings : ProductPair::kSecondSettings;
  return PropertyLists::dictionary(
      {{"ListOfModifiableFiles",
        PropertyList(std::vector<std::string>{ProductPair::kSettings, settings, ProductPair::kDefaultRule})},
       {"ListOfLaunchDaemons", jobsOf({"com.corvane.guard.same", own})},
       {"ListOfLaunchAgents", jobsOf({"com.corvane.guard.agent"})},
       {"ListOfExecutables", PropertyLists::array({program()})},
       {"ListOfFiles", PropertyLists::array({PropertyLists::external(kInstalledLicence, ProductPair::kLicence,
                                                                     PropertyLists::attributes(0640, 0, 80))})}});
}

/// The folder is empty when it is delivered, and goes with what the product made in it.
void markCache(BundleMaker& bundle) {
  const PropertyList manifest = bundle.readManifest("Core");
  PropertyList::Array files;
  for (const PropertyList& entry : manifest["ListOfFiles"].elements()) {
    const bool isCache = entry["Path"].text() == "/Library/Guard/cache";
    files.push_back(isCache ? entry.with("RemoveDirectoryAndContents", true) : entry);
  }
  bundle.writeManifest("Core", manifest.with("ListOfFiles", PropertyList(std::move(files))));
}

void addClassic(BundleMaker& bundle) {
  for (const Change& item : kClassicItems) {
    stage(bundle, item, item.first);
  }
  bundle.addComponent(
      "Classic", "1", "Guard Classic",
      PropertyLists::dictionary(
          {{"ListOfModifiableFiles",
            PropertyList(std::vector<std::string>{ProductPair::kSettings, ProductPair::kClassicSettings})},
           {"ListOfLaunchDaemons", jobsOf({ProductPair::classicJob()})},
           {"ListOfFiles", PropertyLists::array({PropertyLists::entry(
                               "/Library/Guard/rules/*.rule",
                               PropertyLists::joined(PropertyLists::attributes(0644),
                                                     {{"IsModifiableFile", true}, {"IsWildcardPath", true}}))})}}));
}

void setIndex(BundleMaker& bundle) {
  using L = PropertyLists;
  const PropertyList removal = L::dictionary({{"ProductName", "Guard Classic"},
                                              {"ProductDetectionPaths", L::array({ProductPair::kClassicProgram})},
                                              {"ListOfComponents", L::array({"Classic"})}});
  const PropertyList crossGrade =
      L::dictionary({{"ProductName", "Guard Classic"}, {"AllowCrossGrades", true}, {"TreatAsUpdate", true}});
  const PropertyList product = L::dictionary({{"CrossGrades", L::array({crossGrade})}});
  bundle.setOptions(L::dictionary({{"ReceiptHasPayloadContents", false}}),
                    L::dictionary({{"ProductRemovals", L::array({removal})},
                                   {"Products", L::dictionary({{ProductPair::kProduct, product}})}}));
}

void fill(BundleMaker& bundle, Version version) {
  for (const Change& change : kChanges) {
    stage(bundle, change, shapeIn(change, version));
  }
  bundle.addComponent("Core", ProductPair::versionText(version), ProductPair::kProduct, authoringOfCore(version));
  if (version == Version::First) {
    markCache(bundle);
  }
  bundle.addComponent("Tools", "1.0", ProductPair::kProduct,
                      PropertyLists::dictionary({{"ListOfLaunchDaemons", jobsOf({"com.corvane.guard.tools"})}}));
  bundle.addComponent(version == Version::First ? "Legacy" : "Extra", "1.0", ProductPair::kProduct);
  addClassic(bundle);
  setIndex(bundle);
}

}  // namespace

ProductPair::ProductPair(const std::string& engine) : first_(engine), second_(engine) {
  fill(first_, Version::First);
  fill(second_, Version::Second);
}

std::vector<std::string> ProductPair::kindsOfChange() {
  std::set<std::string> kinds{"file from outside the bundle"};
  for (const Change& change : kChanges) {
    kinds.insert(change.kind);
  }
  return {kinds.begin(), kinds.end()};
}

Snapshot ProductPair::tree(Version version) {
  Snapshot tree;
  for (const Change& change : kChanges) {
    const Shape& shape = shapeIn(change, version);
    if (shape.type != 0) {
      tree.push_back(entryOf(change.path, shape));
    }
  }
  tree.push_back(entryOf(kInstalledLicence, file(kLicenceText, 0640, 0, kAdmin)));
  sortByPath(tree);
  // Several components list the product's folder.
  tree.erase(std::unique(tree.begin(), tree.end()), tree.end());
  return tree;
}

Snapshot ProductPair::classicTree() {
  Snapshot tree;
  for (const Change& item : kClassicItems) {
    tree.push_back(entryOf(item.path, item.first));
  }
  sortByPath(tree);
  return tree;
}

std::string ProductPair::classicContent(const std::string& path) {
  const auto* item = std::ranges::find(kClassicItems, path, &Change::path);
  return item == std::end(kClassicItems) ? "" : item->first.text;
}

std::vector<std::string> ProductPair::modifiableFiles() {
  return {kSettings, kFirstSettings, kSecondSettings, kClassicSettings, kDefaultRule, kOwnRule};
}

std::vector<std::string> ProductPair::jobs(Version version) {
  return {"com.corvane.guard.agent", version == Version::First ? "com.corvane.guard.first" : "com.corvane.guard.second",
          "com.corvane.guard.same", "com.corvane.guard.tools"};
}

}  // namespace tests
