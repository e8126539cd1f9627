#include "InstallationDeployer/run/InstallationDeployerMain.h"

#include <cstdlib>
#include <new>

#include "InstallationDeployer/EngineNames.h"
#include "InstallationDeployer/EngineOptions.h"
#include "InstallationDeployer/run/CommandLine.h"
#include "InstallationDeployer/run/QVNInstallController.h"
#include "InstallationDeployer/run/Usage.h"
#include "general/foundation/Paths.h"
#include "general/foundation/Thread.h"
#include "general/foundation/files/FileManager.h"
#include "general/logging/SystemLog.h"
#include "general/system/ProcessSelf.h"

namespace deployer {
namespace {

constexpr std::string_view kTargetPath = "/";
// From the executable, Contents/MacOS/InstallationDeployer, up to the bundle.
constexpr std::string_view kFromExecutableToBundle = "../../../";
constexpr int kUsageExitCode = 1;

int failWithUsage() {
  usage();
  return kUsageExitCode;
}

std::string bundlePathFromExecutablePath(const std::string& executablePath) {
  return foundation::paths::standardize(foundation::paths::append(executablePath, kFromExecutableToBundle));
}

void logStart(const std::vector<std::string>& arguments) {
  logging::debug("Started with: %@", arguments);
  const auto directory = foundation::files::currentDirectory();
  logging::debug("Working directory = %@", directory ? std::optional(*directory) : std::nullopt);
}

/// The engine always runs as root, whether or not somebody watches it.
bool becomeRoot() {
  const std::uint32_t effectiveUserId = platform::self::effectiveUserId();
  logging::debug("%s: euid = %u", "int main(int, char **)", effectiveUserId);
  if (effectiveUserId != 0) {
    logging::error("The engine must run as root; its effective user is %u.", effectiveUserId);
    return false;
  }
  if (!platform::self::setUserId(0)) {
    logging::debug("Failed to set Real UID to effective UID (%d)", effectiveUserId);
    return false;
  }
  return true;
}

int runEngine(const std::vector<std::string>& arguments) {
  QVNInstallConfiguration configuration;
  configuration.setTargetPath(std::string(kTargetPath));
  configuration.setNested(platform::self::takeVariable(kNestedEngineVariable));
  if (!arguments.empty()) {
    logging::debug("executablePath = %@", arguments.front());
    configuration.setBundlePath(bundlePathFromExecutablePath(arguments.front()));
  }
  logStart(arguments);

  if (const auto exitCode = parseCommandLine(arguments, configuration)) {
    usage();
    return *exitCode;
  }
  logging::debug("configuration.bundlePath = %@", configuration.bundlePath());

  if (configuration.isReceiptMode() || configuration.statusServer()) {
    logging::beHelper();
  }
  QVNInstallController controller(std::move(configuration));
  logging::debug("main thread: %@", foundation::currentThreadName());
  if (!becomeRoot()) {
    return failWithUsage();
  }
  if (controller.configuration().install() || controller.configuration().receipt() ||
      controller.configuration().remove()) {
    controller.startController();
  } else {
    logging::error("invalid configuration.");
    controller.setInstallerState(QVNInstallerStateFailed);
  }
  const auto exitCode = exitCodeForState(controller.installerState());
  logging::debug("exiting the main thread with error code: %d", exitCode);
  return exitCode;
}

}  // namespace

int installationDeployerMain(const std::vector<std::string>& arguments) {
  platform::self::prepareForUnattendedRun();
  foundation::setCurrentThreadName(kMainThreadName);
  if (const auto logFile = platform::self::variable(kLogFileVariable)) {
    logging::keepStandardErrorWithin(*logFile, kMostLogBytes);
  }
  const EngineLog log;
  try {
    return runEngine(arguments);
  } catch (const std::exception& exception) {
    logging::error("The engine cannot go on. %@", exception.what());
    return static_cast<int>(QVNInstallerStateFailed);
  }
}

}  // namespace deployer
