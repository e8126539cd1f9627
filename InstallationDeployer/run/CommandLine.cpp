#include "InstallationDeployer/run/CommandLine.h"

#include <string_view>

#include "InstallationDeployer/EngineOptions.h"
#include "general/foundation/Paths.h"
#include "general/foundation/files/FileManager.h"
#include "general/logging/SystemLog.h"

namespace deployer {
namespace {

constexpr std::string_view kHelpOption = "-?";

constexpr int kInvalidArguments = 1;
// A product name that is left out is answered with the usage text but is no failure to the caller.
constexpr int kMissingProductName = 0;

}  // namespace

std::optional<std::string> getNextStringArgument(const std::vector<std::string>& arguments, std::size_t& index) {
  if (index + 1 >= arguments.size()) {
    return std::nullopt;
  }
  return arguments[++index];
}

std::optional<std::string> getNextPathArgument(const std::vector<std::string>& arguments, std::size_t& index) {
  auto path = getNextStringArgument(arguments, index);
  if (path && !foundation::paths::isAbsolute(*path)) {
    const auto directory = foundation::files::currentDirectory();
    path = foundation::paths::append(directory ? *directory : std::string(), *path);
  }
  return path;
}

std::optional<int> parseCommandLine(const std::vector<std::string>& arguments, QVNInstallConfiguration& configuration) {
  bool everyArgumentKnown = true;
  for (std::size_t index = 1; index < arguments.size(); ++index) {
    const std::string& argument = arguments[index];
    logging::debug("argument = %@", argument);
    if (argument == kProductNameOption) {
      if (configuration.receipt()) {
        return kInvalidArguments;
      }
      auto productName = getNextStringArgument(arguments, index);
      if (!productName) {
        return kMissingProductName;
      }
      configuration.setProductName(std::move(productName));
    } else if (argument == kUserInterfaceOption) {
      configuration.setStatusServer(true);
    } else if (argument == kInstallOption) {
      configuration.setInstall(true);
      configuration.setHasInstallerReceipt(false);
      configuration.setTreatAsUpdate(false);
    } else if (argument == kReceiptOption) {
      configuration.setReceipt(true);
      configuration.setStatusServer(true);
    } else if (argument == kRemoveOption) {
      configuration.setRemove(true);
    } else if (argument == kHelpOption) {
      return kInvalidArguments;
    } else {
      everyArgumentKnown = false;
    }
  }
  if (!everyArgumentKnown || !configuration.isValid()) {
    return kInvalidArguments;
  }
  return std::nullopt;
}

}  // namespace deployer
