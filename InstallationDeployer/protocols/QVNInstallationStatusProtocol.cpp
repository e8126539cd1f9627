#include "InstallationDeployer/protocols/QVNInstallationStatusProtocol.h"

#include <utility>

#include "general/foundation/propertylist/TextFormat.h"

namespace deployer {

using foundation::PropertyList;
namespace selectors = status_selectors;

const ipc::Protocol kQVNInstallationStatusProtocol(
    "QVNInstallationStatusProtocol", {{std::string(selectors::kGetCurrentState), {}, ipc::ValueType::Integer32, false},
                                      {std::string(selectors::kGetProgress), {}, ipc::ValueType::Integer64, false},
                                      {std::string(selectors::kCancelInstallation), {}, ipc::ValueType::Nothing, true},
                                      {std::string(selectors::kShutdownService), {}, ipc::ValueType::Nothing, true}});

std::string statusServiceNameOfProcess(int processIdentifier) {
  return foundation::format("com.corvane.installer.%d", processIdentifier);
}

ipc::Target targetFor(QVNInstallationStatusProtocol& object) {
  return [&object](std::string_view selector, std::span<const PropertyList> /*arguments*/) -> PropertyList {
    if (selector == selectors::kGetCurrentState) {
      return PropertyList(static_cast<std::int64_t>(object.getCurrentState()));
    }
    if (selector == selectors::kGetProgress) {
      return PropertyList(object.getProgress());
    }
    if (selector == selectors::kCancelInstallation) {
      object.cancelInstallation();
    } else if (selector == selectors::kShutdownService) {
      object.shutdownService();
    }
    return {};
  };
}

std::unique_ptr<QVNInstallationStatusProxy> QVNInstallationStatusProxy::ofService(
    std::optional<std::string> serviceName) {
  return std::make_unique<QVNInstallationStatusProxy>(std::make_unique<ipc::CorvaneDistantObject>(
      std::move(serviceName), kQVNInstallationStatusProtocol.name(), std::nullopt));
}

std::optional<std::int32_t> QVNInstallationStatusProxy::answeredState() {
  const auto state = remote_->send(selectors::kGetCurrentState).integer();
  return state ? std::optional(static_cast<std::int32_t>(*state)) : std::nullopt;
}

std::optional<std::int64_t> QVNInstallationStatusProxy::answeredProgress() {
  return remote_->send(selectors::kGetProgress).integer();
}

std::int32_t QVNInstallationStatusProxy::getCurrentState() { return answeredState().value_or(0); }

std::int64_t QVNInstallationStatusProxy::getProgress() { return answeredProgress().value_or(0); }

void QVNInstallationStatusProxy::cancelInstallation() { remote_->send(selectors::kCancelInstallation); }

void QVNInstallationStatusProxy::shutdownService() { remote_->send(selectors::kShutdownService); }

std::string QVNInstallationStatusProxy::description() const {
  return foundation::format("<CorvaneDistantObject: %@>", remote_->remoteServerName());
}

}  // namespace deployer
