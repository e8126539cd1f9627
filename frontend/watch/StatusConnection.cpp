#include "frontend/watch/StatusConnection.h"

#include <algorithm>
#include <utility>

#include "InstallationDeployer/protocols/QVNInstallationStatusProtocol.h"
#include "general/foundation/propertylist/TextFormat.h"
#include "general/ipc/RemoteException.h"

namespace frontend {

using deployer::kQVNInstallationStatusProtocol;
using deployer::QVNInstallerState;
namespace selectors = deployer::status_selectors;

namespace {

// An engine answers at once, whatever it is doing: who does not has been stopped or hangs, and its front end must stay
// able to react.
constexpr double kPatience = 3.0;
constexpr std::int64_t kWholeRun = 100;

}  // namespace

StatusConnection::StatusConnection(std::unique_ptr<ipc::ClientConnection> connection)
    : connection_(std::move(connection)) {
  connection_->setDelegate(&identity_);
  connection_->setReplyTimeout(kPatience);
  connection_->setRequestTimeout(kPatience);
}

std::unique_ptr<StatusConnection> StatusConnection::toEngine(int processIdentifier) {
  auto connection =
      ipc::ClientConnection::connectionWithRegisteredName(deployer::statusServiceNameOfProcess(processIdentifier));
  return connection ? std::unique_ptr<StatusConnection>(new StatusConnection(std::move(connection))) : nullptr;
}

QVNInstallerState StatusConnection::state() {
  return static_cast<QVNInstallerState>(askForNumber(selectors::kGetCurrentState));
}

int StatusConnection::progress() {
  return static_cast<int>(std::clamp<std::int64_t>(askForNumber(selectors::kGetProgress), 0, kWholeRun));
}

void StatusConnection::cancelInstallation() { ask(selectors::kCancelInstallation); }

void StatusConnection::shutdownService() { ask(selectors::kShutdownService); }

std::optional<std::string> StatusConnection::takeRefusal() {
  const auto refusal = connection_->takeRefusal();
  return refusal ? std::optional<std::string>(refusal->what()) : std::nullopt;
}

void StatusConnection::observeChanges() { connection_->observeNotifications(); }

void StatusConnection::takeChanges() { static_cast<void>(connection_->takeNotifications()); }

foundation::PropertyList StatusConnection::ask(std::string_view selector) {
  return connection_->invoke(*kQVNInstallationStatusProtocol.operation(selector), {});
}

std::int64_t StatusConnection::askForNumber(std::string_view selector) {
  const auto number = ask(selector).integer();
  if (!number) {
    // 0 is success, and only the engine may say so.
    throw ipc::RemoteException(ipc::kInvalidArgumentException,
                               foundation::format("The result of %@ has a wrong type.", selector));
  }
  return *number;
}

}  // namespace frontend
