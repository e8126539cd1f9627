#include "tools/building/AuthoringPlist.h"

#include <algorithm>
#include <limits>
#include <string_view>
#include <unordered_map>
#include <unordered_set>

#include "InstallationDeployer/BundleLayout.h"
#include "InstallationDeployer/ManifestKeys.h"
#include "InstallationDeployer/QVNInstallerManifest.h"
#include "general/foundation/Paths.h"
#include "general/foundation/files/FileAttributes.h"
#include "general/foundation/propertylist/TextFormat.h"
#include "tools/rules/CheckedDictionary.h"
#include "tools/rules/Checksum.h"
#include "tools/rules/PathRules.h"
#include "tools/rules/WarningNames.h"

namespace bundletool {

namespace paths = foundation::paths;
using Need = CheckedDictionary::Need;

namespace {

class AuthoringReader {
 public:
  AuthoringReader(const CheckedDictionary& top, const std::string& component, const std::vector<InstallItem>& staged,
                  Problems& problems)
      : top_(top), component_(component), problems_(problems) {
    for (const InstallItem& item : staged) {
      staged_.emplace(item.path, item.kind);
    }
  }

  AuthoringPlist read() {
    using namespace deployer;
    top_.allowOnly({kManifestListOfFiles, kManifestListOfExecutables, kManifestListOfLaunchDaemons,
                    kManifestListOfLaunchAgents, kManifestListOfModifiableFiles, kManifestRebuildKextCache});
    static_cast<void>(top_.boolean(kManifestRebuildKextCache));
    for (const CheckedDictionary& entry : top_.dictionaries(kManifestListOfFiles, Need::Optional)) {
      readFile(entry);
    }
    for (const CheckedDictionary& entry : top_.dictionaries(kManifestListOfExecutables, Need::Optional)) {
      readExecutable(entry);
    }
    readModifiableFiles();
    readLabels(kManifestListOfLaunchDaemons, kQVNLaunchDaemonsPath);
    readLabels(kManifestListOfLaunchAgents, kQVNLaunchAgentsPath);
    return std::move(result_);
  }

 private:
  static std::string installPath(const CheckedDictionary& entry) {
    const auto path = entry.string(deployer::kManifestFilePath, Need::Required);
    if (path) {
      entry.refuseIf(faultOfInstallPath(*path), deployer::kManifestFilePath,
                     "give the absolute path on the machine installed on");
    }
    return path.value_or("");
  }

  void readFile(const CheckedDictionary& entry) {
    using namespace deployer;
    entry.allowOnly({kManifestFilePath, kManifestIsDirectory, kManifestIsSymbolicLink, kFileOwnerAccountID,
                     kFileGroupOwnerAccountID, kFilePosixPermissions, kManifestSymbolicLinkTarget, kManifestSHAChecksum,
                     kManifestIsModifiableFile, kManifestExternalSourcePath, kManifestCheckForExternalFileChanges,
                     kManifestIsWildcardPath, kManifestRemoveDirectoryAndContents});
    InstallItem item;
    item.path = installPath(entry);
    if (QVNInstallerManifest::restrictedPaths().contains(item.path)) {
      entry.refuse(kManifestFilePath, "the folder belongs to the system",
                   "remove the entry, or name what the product has in the folder");
    }
    item.file = entry.file();
    item.key = entry.keyPath();
    item.attributes = readAttributes(entry);
    item.removesContents = entry.boolean(kManifestRemoveDirectoryAndContents).value_or(false);
    static_cast<void>(entry.boolean(kManifestCheckForExternalFileChanges));
    const bool isDirectory = entry.boolean(kManifestIsDirectory).value_or(false);
    const bool isLink = entry.boolean(kManifestIsSymbolicLink).value_or(false);
    if (isDirectory && isLink) {
      entry.refuse(kManifestIsSymbolicLink, "the entry is a folder and a link at once", "keep one of the two");
    }
    item.kind = isDirectory ? InstallItem::Kind::Directory : isLink ? InstallItem::Kind::Link : InstallItem::Kind::File;
    checkContent(entry, item.kind);
    checkWildcard(entry, item);
    if (entry.boolean(kManifestIsWildcardPath) != true) {
      result_.items.push_back(std::move(item));
    }
  }

  static foundation::FileAttributes readAttributes(const CheckedDictionary& entry) {
    const auto number = [&entry](std::string_view key, std::uint64_t largest) -> std::optional<std::uint32_t> {
      const auto value = entry.number(key, largest);
      return value ? std::optional(static_cast<std::uint32_t>(*value)) : std::nullopt;
    };
    constexpr std::uint64_t kLargestId = std::numeric_limits<std::uint32_t>::max() - 1;
    return {number(deployer::kFileOwnerAccountID, kLargestId), number(deployer::kFileGroupOwnerAccountID, kLargestId),
            number(deployer::kFilePosixPermissions, foundation::kPermissionBits)};
  }

  void checkContent(const CheckedDictionary& entry, InstallItem::Kind kind) {
    using namespace deployer;
    const auto target = entry.string(kManifestSymbolicLinkTarget, Need::Optional);
    const auto external = entry.string(kManifestExternalSourcePath, Need::Optional);
    const auto checksum = entry.string(kManifestSHAChecksum, Need::Optional);
    const auto refuseUnless = [&entry](bool allowed, std::string_view key, std::string what) {
      if (entry.has(key) && !allowed) {
        entry.refuse(key, std::move(what), "remove the key");
      }
    };
    if (kind == InstallItem::Kind::Link && !entry.has(kManifestSymbolicLinkTarget)) {
      entry.refuse(kManifestSymbolicLinkTarget, "the link has no target", "give the text of the link");
    }
    refuseUnless(kind == InstallItem::Kind::Link, kManifestSymbolicLinkTarget, "only a link has a target");
    refuseUnless(kind == InstallItem::Kind::File, kManifestSHAChecksum, "only a regular file has a checksum");
    refuseUnless(kind != InstallItem::Kind::Link, kManifestExternalSourcePath, "a link has no content");
    refuseUnless(kind == InstallItem::Kind::Directory, kManifestRemoveDirectoryAndContents, "the entry is no folder");
    const bool isUsable = checksum && !entry.refuseIf(faultOfChecksum(*checksum), kManifestSHAChecksum,
                                                      "give the SHA-256 of the content");
    if (isUsable && kind == InstallItem::Kind::File && !external) {
      result_.references.push_back({component_, *checksum, entry.file(), entry.keyPath(kManifestSHAChecksum)});
    }
    if (kind == InstallItem::Kind::File && !entry.has(kManifestSHAChecksum) &&
        !entry.has(kManifestExternalSourcePath)) {
      entry.refuse("", "the file has no source",
                   foundation::format("stage it, or give %@, or %@ of a staged file", kManifestExternalSourcePath,
                                      kManifestSHAChecksum));
    }
  }

  static void checkWildcard(const CheckedDictionary& entry, const InstallItem& item) {
    using namespace deployer;
    const bool isModifiable = entry.boolean(kManifestIsModifiableFile).value_or(false);
    if (!entry.boolean(kManifestIsWildcardPath).value_or(false)) {
      return;
    }
    if (entry.has(kManifestExternalSourcePath)) {
      entry.refuse(kManifestExternalSourcePath, "a wild-card entry cannot have an external source",
                   "remove one of them");
    }
    if (!isModifiable) {
      entry.refuse(kManifestIsModifiableFile, "a wild-card entry that is not modifiable has no effect",
                   "make it modifiable");
    }
    if (paths::lastComponent(item.path).find('*') == std::string::npos) {
      entry.refuse(kManifestFilePath, "the last name of a wild-card path holds no *", "put the * into the last name");
    }
  }

  static void readExecutable(const CheckedDictionary& entry) {
    using namespace deployer;
    entry.allowOnly({kManifestFilePath, kManifestListOfArguments, kManifestRunOnce, kManifestExecuteOnInstall,
                     kManifestIsApplication, kManifestBundleIdentifier});
    static_cast<void>(installPath(entry));
    static_cast<void>(entry.arguments(kManifestListOfArguments));
    static_cast<void>(entry.boolean(kManifestRunOnce));
    static_cast<void>(entry.boolean(kManifestExecuteOnInstall));
    static_cast<void>(entry.boolean(kManifestIsApplication));
    static_cast<void>(entry.string(kManifestBundleIdentifier, Need::Optional));
  }

  void readModifiableFiles() {
    const auto modifiable = top_.strings(deployer::kManifestListOfModifiableFiles, Need::Optional);
    for (std::size_t index = 0; index < modifiable.size(); ++index) {
      const auto found = staged_.find(modifiable[index]);
      if (found == staged_.end() || found->second != InstallItem::Kind::File) {
        top_.refuse(elementKey(deployer::kManifestListOfModifiableFiles, index),
                    foundation::format("no staged regular file is installed at %@", modifiable[index]),
                    "give the install path of a staged file exactly");
      }
    }
  }

  void readLabels(std::string_view key, std::string_view folder) {
    const auto labels = top_.strings(key, Need::Optional);
    std::unordered_set<std::string> listed;
    for (std::size_t index = 0; index < labels.size(); ++index) {
      top_.refuseIf(faultOfName(labels[index]), elementKey(key, index),
                    "give a label: the name of the service's plist without its extension");
      if (!listed.insert(labels[index]).second) {
        top_.refuse(elementKey(key, index), foundation::format("label %@ is listed twice", labels[index]),
                    "list it once");
      }
    }
    if (top_.has(key)) {
      warnOfUnlisted(key, folder, listed);
    }
  }

  // A list given by hand counts alone: a service staged but not listed is installed and never loaded.
  void warnOfUnlisted(std::string_view key, std::string_view folder, const std::unordered_set<std::string>& listed) {
    std::vector<std::string> unlisted;
    for (const auto& [path, kind] : staged_) {
      if (kind == InstallItem::Kind::Directory || paths::deleteLastComponent(path) != folder) {
        continue;
      }
      const std::string label = paths::deleteExtension(paths::lastComponent(path));
      if (!listed.contains(label)) {
        unlisted.push_back(label);
      }
    }
    std::ranges::sort(unlisted);
    for (const std::string& label : unlisted) {
      problems_.warning(kWarnUnlistedServices, {top_.file(), std::string(key),
                                                foundation::format("%@ is staged in %@ but not listed", label, folder),
                                                "list it if it is to be loaded"});
    }
  }

  const CheckedDictionary& top_;
  const std::string& component_;
  Problems& problems_;
  std::unordered_map<std::string_view, InstallItem::Kind> staged_;
  AuthoringPlist result_;
};

}  // namespace

AuthoringPlist examineAuthoringPlist(const ComponentDescription& component, const std::vector<InstallItem>& staged,
                                     Problems& problems) {
  const auto top = CheckedDictionary::fromFile(component.authoringPlist.value_or(""), "the authoring plist", problems);
  return top ? AuthoringReader(*top, component.name, staged, problems).read() : AuthoringPlist{};
}

}  // namespace bundletool
