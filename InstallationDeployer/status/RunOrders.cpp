#include "InstallationDeployer/status/RunOrders.h"

#include "InstallationDeployer/protocols/QVNInstallationStatusProtocol.h"
#include "general/foundation/propertylist/TextFormat.h"
#include "general/ipc/RemoteException.h"
#include "general/system/ProgramName.h"

namespace deployer {

namespace {

[[noreturn]] void refuse(const std::string& reason) { throw ipc::RemoteException(kNotPermittedException, reason); }

}  // namespace

bool RunOrders::isOrder(std::string_view selector) {
  return selector == status_selectors::kCancelInstallation || selector == status_selectors::kShutdownService;
}

void RunOrders::require(std::string_view selector, const std::optional<ipc::Caller>& caller,
                        QVNInstallerState state) const {
  if (!isOrder(selector) || (caller && caller->user == 0)) {
    return;
  }
  if (givers_ == Givers::Root) {
    refuse("Only root may cancel or release this engine: another one started it and follows it.");
  }
  if (!caller || caller->user != consoleUser_()) {
    refuse("Only root and the user of the console session may cancel or release a run.");
  }
  if (selector == status_selectors::kShutdownService && !isCompletionState(state)) {
    refuse("A run can be released only once its state is final.");
  }
}

std::string descriptionOf(const std::optional<ipc::Caller>& caller) {
  return caller ? foundation::format("user %u, process %d", static_cast<std::uint32_t>(caller->user),
                                     static_cast<int>(caller->process))
                : "an unknown user";
}

std::string descriptionWithProgram(const std::optional<ipc::Caller>& caller) {
  const auto program = caller ? platform::programNameOf(static_cast<int>(caller->process)) : std::nullopt;
  return foundation::format("%@ (%@)", descriptionOf(caller), program.value_or("ended since"));
}

}  // namespace deployer
