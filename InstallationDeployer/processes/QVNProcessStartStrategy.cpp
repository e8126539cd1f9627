#include "InstallationDeployer/processes/QVNProcessStartStrategy.h"

#include <algorithm>

#include "InstallationDeployer/BundleLayout.h"
#include "InstallationDeployer/ManifestKeys.h"
#include "InstallationDeployer/processes/LaunchdJob.h"
#include "general/foundation/Hexadecimal.h"
#include "general/foundation/Paths.h"
#include "general/foundation/Thread.h"
#include "general/foundation/execution/Task.h"
#include "general/foundation/extensions/NSDictionaryExtensions.h"
#include "general/logging/SystemLog.h"
#include "general/system/LoginWindow.h"
#include "general/system/NSProcessInfoExtensions.h"
#include "general/system/ProcessSelf.h"

namespace deployer {

using foundation::Task;
using foundation::TaskLaunchException;
using foundation::NSDictionaryExtensions::boolForKey;
namespace paths = foundation::paths;

namespace {

constexpr std::size_t kLoggedErrorBytes = 1000;
constexpr unsigned char kLastASCII = 0x7f;
constexpr std::string_view kTouchPath = "/usr/bin/touch";
constexpr std::string_view kKextPath = "/Library/Extensions";
constexpr std::string_view kKextPathOfMacOSX8AndBelow = "/System/Library/Extensions";
constexpr std::string_view kLaunchExecutablesSelector = "launchExecutablesFromPlan:";
constexpr std::string_view kTouchKextsSelector = "touchKextsFromPlan:";

/// What the program said on standard error. It may be cut within a character and in any encoding, so that everything
/// beyond ASCII is written byte by byte as \xNN.
std::string errorOutputOf(const Task& task) {
  std::string text;
  for (const char character : task.standardErrorOutput()) {
    const auto byte = static_cast<unsigned char>(character);
    if (byte <= kLastASCII) {
      text += character;
    } else {
      text.append("\\x").append(foundation::hexadecimal::lowerCaseByte(std::byte{byte}));
    }
  }
  return text;
}

std::vector<std::string> argumentsOf(const ExecutableEntry& executable) {
  auto arguments = executable.arguments();
  if (!arguments) {
    throw TaskLaunchException("The list of arguments is no array of texts");
  }
  return *std::move(arguments);
}

}  // namespace

bool QVNProcessStartStrategy::work() {
  const Plan filtered = manifest().filterComponents(plannedComponents(), productName());
  logging::debug("<%@> filtered plan for %@: %@", qualifiedName(), configuration().productName(),
                 planDescription(filtered));
  // Looked at before the first of them is started. A manifest that cannot be read any more is noticed at the end.
  return manifest().canRead(filtered)
             ? launchExecutablesFromPlan(filtered) && touchKextsFromPlan(filtered) && launchDaemonsFromPlan(filtered) &&
                   launchAgentsFromPlan(filtered) && requireReadManifests()
             : failWith();
}

bool QVNProcessStartStrategy::launchExecutablesFromPlan(const Plan& plan) {
  const auto executables = manifest().listOfExecutablesForComponents(plan);
  if (!executables || executables->empty()) {
    return true;
  }
  setInstallerState(QVNInstallerStateRunningExecutables);
  return std::ranges::all_of(*executables, [this](const PropertyList& element) {
    const ExecutableEntry executable(element);
    return !shouldRun(executable) || runExecutable(executable);
  });
}

bool QVNProcessStartStrategy::shouldRun(const ExecutableEntry& executable) const {
  if (executable.isApplication()) {
    logging::debug("%s: skipping application launch. Needs implementation.", kLaunchExecutablesSelector);
    return false;
  }
  if (!executable.runsOnInstall()) {
    logging::debug("Updating current install. Skipping executable: %@", executable.listedPath());
    return false;
  }
  const bool isUpdate = configuration().hasInstallerReceipt() || configuration().treatAsUpdate();
  if (isUpdate && executable.runsOnce()) {
    logging::info("Updating current install. Skipping executable due to run once flag: %@", executable.listedPath());
    return false;
  }
  return true;
}

bool QVNProcessStartStrategy::runExecutable(const ExecutableEntry& executable) {
  const std::string path(executable.path());
  logging::debug("%s: launching %@ with arguments: %@", kLaunchExecutablesSelector, executable.listedPath(),
                 executable.listedArguments());
  logging::info("Running %@ with uid: %d, euid: %d", executable.listedPath(), platform::self::realUserId(),
                platform::self::effectiveUserId());
  try {
    if (!paths::isAbsolute(path)) {
      throw TaskLaunchException("The path is not absolute");
    }
    Task task(path, argumentsOf(executable));
    task.setCurrentDirectory(paths::deleteLastComponent(path));
    task.captureOutput(kLoggedErrorBytes);
    task.launch();
    task.waitUntilExit();
    if (task.terminationStatus() == 0) {
      return true;
    }
    return fail("Failed to execute %@ Termination status: %d, errorData: %@. ", path, task.terminationStatus(),
                errorOutputOf(task));
  } catch (const TaskLaunchException& exception) {
    return fail("Failed to run executable %@. %@", executable.listedPath(), exception.what());
  }
}

bool QVNProcessStartStrategy::touchKextsFromPlan(const Plan& plan) {
  const bool wanted = std::ranges::any_of(plan, [this](const std::string& component) {
    return boolForKey(manifest().getManifestForComponent(component), kManifestRebuildKextCache);
  });
  if (!wanted) {
    logging::debug("----- <%@>[QVNProcessStartStrategy.%s There is no reason to refresh kext installation directory]",
                   foundation::currentThreadName(), kTouchKextsSelector);
    return true;
  }
  setInstallerState(QVNInstallerStateStartingServices);
  const bool isOld = platform::NSProcessInfoExtensions::isMacOSX8AndBelow();
  const bool refreshed =
      launchTask(std::string(kTouchPath), {std::string(isOld ? kKextPathOfMacOSX8AndBelow : kKextPath)});
  logging::debug("----- <%@>[QVNProcessStartStrategy.%s %@ kext installation directory]",
                 foundation::currentThreadName(), kTouchKextsSelector,
                 refreshed ? "successfully refreshed" : "failed to refresh");
  return true;
}

bool QVNProcessStartStrategy::launchDaemonsFromPlan(const Plan& plan) {
  const auto daemons = manifest().listOfDaemonsForComponents(plan);
  if (daemons.empty()) {
    return true;
  }
  setInstallerState(QVNInstallerStateStartingServices);
  for (const std::string& daemon : daemons) {
    const auto path = launchd::plistPath(kQVNLaunchDaemonsPath, daemon);
    if (!path || !launchTask(std::string(launchd::kLaunchctlPath), {"load", "-w", *path})) {
      logging::error("Failed to launch daemon %@. Continuing.", daemon);
    }
  }
  return true;
}

bool QVNProcessStartStrategy::launchAgentsFromPlan(const Plan& plan) {
  const auto agents = manifest().listOfAgentsForComponents(plan);
  if (agents.empty()) {
    logging::debug("No launch agents to load.");
    return true;
  }
  const auto session = launchd::sessionOf(userId(), loginWindowPID());
  if (!session) {
    // Nobody is logged in, so there is nothing to start; launchd loads the agents at the next login.
    setInstallerState(QVNInstallerStateSuccess);
    return true;
  }
  setInstallerState(QVNInstallerStateStartingServices);
  for (const std::string& agent : agents) {
    const auto path = launchd::plistPath(kQVNLaunchAgentsPath, agent);
    if (path) {
      logging::info("Launching %@ with uid: %d, loginWindowPID: %d", *path, session->userId, session->loginWindowPID);
    }
    if (!path || !launchTask(std::string(launchd::kLaunchctlPath),
                             launchd::argumentsInSession(*session, {"load", "-w", *path}))) {
      logging::error("Failed to launch agent %@. Continuing.", agent);
    }
  }
  return true;
}

std::uint32_t QVNProcessStartStrategy::userId() { return platform::loginWindowUserId(); }

std::int32_t QVNProcessStartStrategy::loginWindowPID() { return platform::loginWindowProcessId(); }

bool QVNProcessStartStrategy::launchTask(const std::string& launchPath, const std::vector<std::string>& withArguments) {
  Task task(launchPath, withArguments);
  task.captureOutput(kLoggedErrorBytes);
  logging::info("Launching task %@ with args: %@ uid: %d, euid: %d", launchPath, withArguments,
                platform::self::realUserId(), platform::self::effectiveUserId());
  try {
    task.launch();
    task.waitUntilExit();
  } catch (const TaskLaunchException& exception) {
    logging::error("Launching task %@ with args: %@ failed. %@", launchPath, withArguments, exception.what());
    return false;
  }
  logging::debug("Task status for %@ with args: %@\n\tTermination status: %d, output: %@", launchPath, withArguments,
                 task.terminationStatus(), errorOutputOf(task));
  return task.terminationStatus() == 0;
}

}  // namespace deployer
