#include "frontend/watch/EngineProcesses.h"

#include <algorithm>
#include <filesystem>
#include <system_error>
#include <utility>

#include "InstallationDeployer/BundleLayout.h"
#include "InstallationDeployer/EngineNames.h"
#include "InstallationDeployer/EngineOptions.h"
#include "InstallationDeployer/protocols/QVNInstallationReceiptProtocol.h"
#include "general/foundation/Paths.h"
#include "general/foundation/propertylist/TextFormat.h"
#include "general/ipc/ServiceSocket.h"
#include "general/system/ExecutableLocation.h"
#include "general/system/ProcessList.h"

namespace frontend {

namespace fs = std::filesystem;
namespace paths = foundation::paths;
using foundation::format;

namespace {

// Kernels keep no more of a name.
constexpr std::size_t kShortestKeptName = 15;

bool isNameOfEngine(std::string_view name) {
  const std::string_view whole = deployer::kQVNInstallationDeployerName;
  return name == whole || name == deployer::kMainThreadName ||
         (name.size() >= kShortestKeptName && whole.starts_with(name));
}

std::optional<std::string> engineIn(const std::string& folder) {
  std::string engine = paths::append(folder, deployer::kQVNInstallationDeployerName);
  std::error_code error;
  return fs::is_regular_file(engine, error) ? std::optional(std::move(engine)) : std::nullopt;
}

}  // namespace

EngineProcess lookForEngine(int processIdentifier) {
  const auto list = platform::ProcessList::take();
  if (!list) {
    return EngineProcess::None;
  }
  const auto all = list->records();
  const auto found = std::ranges::find(all, processIdentifier, &platform::ProcessRecord::processId);
  if (found == all.end()) {
    return EngineProcess::None;
  }
  return isNameOfEngine(found->command) ? EngineProcess::Engine : EngineProcess::Other;
}

bool isReceiptProcess(int processIdentifier) {
  const auto socket = ipc::socketPathOfService(deployer::receiptServiceNameOfProcess(processIdentifier));
  std::error_code error;
  return socket && fs::exists(*socket, error);
}

std::string reasonNotToWatch(int processIdentifier, EngineProcess found) {
  switch (found) {
    case EngineProcess::None:
      return format("There is no process %d.", processIdentifier);
    case EngineProcess::Other:
      return format("Process %d is not an installation engine.", processIdentifier);
    case EngineProcess::Engine:
      break;
  }
  return format(
      "The engine with process number %d cannot be watched: it was not started with --ui, or its service cannot "
      "be reached.",
      processIdentifier);
}

std::optional<std::string> engineBeside(std::string_view startedAs) {
  std::error_code error;
  const std::string here = fs::current_path(error).string();
  const std::string folder = paths::standardize(paths::resolve(here, platform::folderOfExecutable(startedAs)));
  if (auto engine = engineIn(folder)) {
    return engine;
  }
  const fs::path real = fs::canonical(paths::append(folder, paths::lastComponent(startedAs)), error);
  return error ? std::nullopt : engineIn(real.parent_path().string());
}

foundation::Task startEngine(const std::string& engine, const std::vector<std::string>& arguments,
                             foundation::Descriptor output, const std::optional<std::string>& logFile) {
  foundation::Task task(engine, arguments);
  task.setOwnSession(true);
  task.writeOutputTo(std::move(output));
  if (logFile) {
    task.setVariable(deployer::kLogFileVariable, *logFile);
  }
  task.launch();
  return task;
}

}  // namespace frontend
