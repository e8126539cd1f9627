#include "InstallationDeployer/protocols/QVNInstallationReceiptProtocol.h"

#include <utility>

#include "general/foundation/propertylist/TextFormat.h"

namespace deployer {

using foundation::PropertyList;
namespace selectors = receipt_selectors;

const ipc::Protocol kQVNInstallationReceiptProtocol(
    "QVNInstallationReceiptProtocol",
    {{std::string(selectors::kComponentsAndVersions), {}, ipc::ValueType::Object, false},
     {std::string(selectors::kFixPlanForValidation), {}, ipc::ValueType::Strings, false},
     {std::string(selectors::kRemoveComponents), {ipc::ValueType::Strings}, ipc::ValueType::Boolean, false},
     {std::string(selectors::kShutdownService), {}, ipc::ValueType::Nothing, true}});

std::string receiptServiceNameOfProcess(int processIdentifier) {
  return foundation::format("com.corvane.installer.receipt.%d", processIdentifier);
}

ipc::Target targetFor(QVNInstallationReceiptProtocol& object) {
  return [&object](std::string_view selector, std::span<const PropertyList> arguments) -> PropertyList {
    if (selector == selectors::kComponentsAndVersions) {
      return object.componentsAndVersions();
    }
    if (selector == selectors::kFixPlanForValidation) {
      const auto fixPlan = object.fixPlanForValidation();
      return fixPlan ? PropertyList(*fixPlan) : PropertyList();
    }
    if (selector == selectors::kRemoveComponents) {
      return PropertyList(object.removeComponents(arguments.front().strings()));
    }
    if (selector == selectors::kShutdownService) {
      object.shutdownService();
    }
    return {};
  };
}

std::unique_ptr<QVNInstallationReceiptProxy> QVNInstallationReceiptProxy::ofService(
    std::optional<std::string> serviceName) {
  return std::make_unique<QVNInstallationReceiptProxy>(std::make_unique<ipc::CorvaneDistantObject>(
      std::move(serviceName), kQVNInstallationReceiptProtocol.name(), std::nullopt, true));
}

PropertyList QVNInstallationReceiptProxy::componentsAndVersions() {
  return remote_->send(selectors::kComponentsAndVersions);
}

std::optional<std::vector<std::string>> QVNInstallationReceiptProxy::fixPlanForValidation() {
  const PropertyList fixPlan = remote_->send(selectors::kFixPlanForValidation);
  return fixPlan.isArray() ? std::optional(fixPlan.strings()) : std::nullopt;
}

bool QVNInstallationReceiptProxy::removeComponents(const std::vector<std::string>& components) {
  return remote_->send(selectors::kRemoveComponents, {PropertyList(components)}).boolean().value_or(false);
}

void QVNInstallationReceiptProxy::shutdownService() { remote_->send(selectors::kShutdownService); }

std::string QVNInstallationReceiptProxy::description() const {
  return foundation::format("<CorvaneDistantObject: %@>", remote_->remoteServerName());
}

}  // namespace deployer
