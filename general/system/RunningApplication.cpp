#include "general/system/RunningApplication.h"

#include <optional>

#include "general/foundation/Paths.h"
#include "general/foundation/files/FileManager.h"
#include "general/foundation/propertylist/PropertyListFile.h"
#include "general/system/ProcessHandlePrimitives.h"
#include "general/system/ProcessList.h"

namespace platform {

namespace paths = foundation::paths;
namespace files = foundation::files;
using foundation::PropertyList;

namespace {

constexpr std::string_view kExecutableFolder = "MacOS";
constexpr std::string_view kContentsFolder = "Contents";
constexpr std::string_view kInformationFile = "Contents/Info.plist";
constexpr std::string_view kIdentifierKey = "CFBundleIdentifier";
constexpr std::string_view kDisplayNameKey = "CFBundleDisplayName";
constexpr std::string_view kNameKey = "CFBundleName";
// Anybody can have bundles run, and nobody needs more than this to describe one.
constexpr std::uint64_t kMaximumInformationSize = std::uint64_t{1024} * 1024;

/// The bundle in whose Contents/MacOS the executable lies.
std::optional<std::string> bundleOf(const std::string& executable) {
  const std::string folder = paths::deleteLastComponent(executable);
  const std::string contents = paths::deleteLastComponent(folder);
  if (paths::lastComponent(folder) != kExecutableFolder || paths::lastComponent(contents) != kContentsFolder) {
    return std::nullopt;
  }
  return paths::deleteLastComponent(contents);
}

PropertyList informationOf(const std::string& bundle) {
  const std::string path = paths::append(bundle, kInformationFile);
  const auto status = files::attributesOfTarget(path);
  if (!status || status->size > kMaximumInformationSize) {
    return {};
  }
  const auto information = foundation::plist::readDictionary(path);
  return information ? *information : PropertyList();
}

std::string nameOf(const PropertyList& information, const std::string& bundle) {
  for (const std::string_view key : {kDisplayNameKey, kNameKey}) {
    if (const auto name = information[key].string(); name && !name->empty()) {
      return std::string(*name);
    }
  }
  return paths::deleteExtension(paths::lastComponent(bundle));
}

}  // namespace

std::vector<RunningApplication> RunningApplication::runningApplicationsWithBundleIdentifier(
    std::string_view bundleIdentifier) {
  std::vector<RunningApplication> applications;
  const auto list = bundleIdentifier.empty() ? std::nullopt : ProcessList::take();
  if (!list) {
    return applications;
  }
  for (const ProcessRecord& record : list->records()) {
    const int identifier = record.processId;
    // Before its executable is looked at: should the number change hands, what is opened is not what was looked at.
    foundation::Descriptor process = processes::openProcess(identifier);
    const auto executable = processes::executableOf(identifier);
    const auto bundle = executable ? bundleOf(*executable) : std::nullopt;
    if (!bundle) {
      continue;
    }
    const PropertyList information = informationOf(*bundle);
    if (information[kIdentifierKey].string() == bundleIdentifier) {
      applications.emplace_back(identifier, nameOf(information, *bundle), std::move(process));
    }
  }
  return applications;
}

bool RunningApplication::forceTerminate() const { return processes::kill(process_, processIdentifier_); }

}  // namespace platform
