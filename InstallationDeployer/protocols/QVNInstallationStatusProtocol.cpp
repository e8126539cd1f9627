#include "InstallationDeployer/protocols/QVNInstallationStatusProtocol.h"

#include "general/foundation/propertylist/TextFormat.h"

namespace deployer {

using foundation::PropertyList;

namespace {

constexpr std::string_view kGetCurrentState = "getCurrentState";
constexpr std::string_view kGetProgress = "getProgress";
constexpr std::string_view kCancelInstallation = "cancelInstallation";
constexpr std::string_view kShutdownService = "shutdownService";

}  // namespace

const ipc::Protocol kQVNInstallationStatusProtocol(
    "QVNInstallationStatusProtocol", {{std::string(kGetCurrentState), {}, ipc::ValueType::Integer32, false},
                                      {std::string(kGetProgress), {}, ipc::ValueType::Integer64, false},
                                      {std::string(kCancelInstallation), {}, ipc::ValueType::Nothing, true},
                                      {std::string(kShutdownService), {}, ipc::ValueType::Nothing, true}});

ipc::Target targetFor(QVNInstallationStatusProtocol& object) {
  return [&object](std::string_view selector, std::span<const PropertyList> /*arguments*/) -> PropertyList {
    if (selector == kGetCurrentState) {
      return PropertyList(static_cast<std::int64_t>(object.getCurrentState()));
    }
    if (selector == kGetProgress) {
      return PropertyList(object.getProgress());
    }
    if (selector == kCancelInstallation) {
      object.cancelInstallation();
    } else if (selector == kShutdownService) {
      object.shutdownService();
    }
    return {};
  };
}

std::int32_t QVNInstallationStatusProxy::getCurrentState() {
  return static_cast<std::int32_t>(remote_->send(kGetCurrentState).integer().value_or(0));
}

std::int64_t QVNInstallationStatusProxy::getProgress() { return remote_->send(kGetProgress).integer().value_or(0); }

void QVNInstallationStatusProxy::cancelInstallation() { remote_->send(kCancelInstallation); }

void QVNInstallationStatusProxy::shutdownService() { remote_->send(kShutdownService); }

std::string QVNInstallationStatusProxy::description() const {
  return foundation::format("<CorvaneDistantObject: %@>", remote_->remoteServerName());
}

}  // namespace deployer
