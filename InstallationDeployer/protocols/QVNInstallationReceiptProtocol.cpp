#include "InstallationDeployer/protocols/QVNInstallationReceiptProtocol.h"

#include "general/foundation/propertylist/TextFormat.h"

namespace deployer {

using foundation::PropertyList;

namespace {

constexpr std::string_view kComponentsAndVersions = "componentsAndVersions";
constexpr std::string_view kFixPlanForValidation = "fixPlanForValidation";
constexpr std::string_view kRemoveComponents = "removeComponents:";
constexpr std::string_view kShutdownService = "shutdownService";

}  // namespace

const ipc::Protocol kQVNInstallationReceiptProtocol(
    "QVNInstallationReceiptProtocol",
    {{std::string(kComponentsAndVersions), {}, ipc::ValueType::Object, false},
     {std::string(kFixPlanForValidation), {}, ipc::ValueType::Strings, false},
     {std::string(kRemoveComponents), {ipc::ValueType::Strings}, ipc::ValueType::Boolean, false},
     {std::string(kShutdownService), {}, ipc::ValueType::Nothing, true}});

ipc::Target targetFor(QVNInstallationReceiptProtocol& object) {
  return [&object](std::string_view selector, std::span<const PropertyList> arguments) -> PropertyList {
    if (selector == kComponentsAndVersions) {
      return object.componentsAndVersions();
    }
    if (selector == kFixPlanForValidation) {
      const auto fixPlan = object.fixPlanForValidation();
      return fixPlan ? PropertyList(*fixPlan) : PropertyList();
    }
    if (selector == kRemoveComponents) {
      return PropertyList(object.removeComponents(arguments.front().strings()));
    }
    if (selector == kShutdownService) {
      object.shutdownService();
    }
    return {};
  };
}

PropertyList QVNInstallationReceiptProxy::componentsAndVersions() { return remote_->send(kComponentsAndVersions); }

std::optional<std::vector<std::string>> QVNInstallationReceiptProxy::fixPlanForValidation() {
  const PropertyList fixPlan = remote_->send(kFixPlanForValidation);
  return fixPlan.isArray() ? std::optional(fixPlan.strings()) : std::nullopt;
}

bool QVNInstallationReceiptProxy::removeComponents(const std::vector<std::string>& components) {
  return remote_->send(kRemoveComponents, {PropertyList(components)}).boolean().value_or(false);
}

void QVNInstallationReceiptProxy::shutdownService() { remote_->send(kShutdownService); }

std::string QVNInstallationReceiptProxy::description() const {
  return foundation::format("<CorvaneDistantObject: %@>", remote_->remoteServerName());
}

}  // namespace deployer
