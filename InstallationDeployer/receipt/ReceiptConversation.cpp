#include "InstallationDeployer/receipt/ReceiptConversation.h"

#include <utility>

#include "InstallationDeployer/receipt/QVNReceiptClient.h"
#include "InstallationDeployer/receipt/ReceiptContext.h"
#include "general/foundation/Thread.h"
#include "general/logging/SystemLog.h"

namespace deployer {

namespace {

/// Shows the receipt's states as the step's own while it lives.
class Mirroring {
 public:
  explicit Mirroring(QVNReceiptClient& client) : client_(client) {
    client_.startUpdatingCurrentStepStatusFromReceipt();
  }
  ~Mirroring() { client_.stopUpdatingCurrentStepStatusFromReceipt(); }
  Mirroring(const Mirroring&) = delete;
  Mirroring& operator=(const Mirroring&) = delete;

 private:
  QVNReceiptClient& client_;
};

template <class Request>
auto mirrored(QVNReceiptClient& client, const Request& request) {
  const Mirroring mirroring(client);
  return request();
}

}  // namespace

std::optional<ReceiptConversation> ReceiptConversation::begin(QVNInstallStepStrategy& step, ReceiptContext& receipts) {
  QVNReceiptClient* const client = receipts.getReceiptClientForStrategy(step);
  if (client == nullptr || client->receiptProxy() == nullptr || client->receiptStatusProxy() == nullptr) {
    step.setInstallerState(QVNInstallerStateFailed);
    logging::error("Failed to connect with receipt");
    return std::nullopt;
  }
  return ReceiptConversation(step, *client);
}

std::optional<foundation::PropertyList> ReceiptConversation::componentsAndVersions() {
  return vouchedFor(client_.receiptProxy()->componentsAndVersions());
}

std::optional<std::optional<Plan>> ReceiptConversation::fixPlanForValidation() {
  return vouchedFor(mirrored(client_, [this] { return client_.receiptProxy()->fixPlanForValidation(); }));
}

std::optional<bool> ReceiptConversation::removeComponents(const Plan& components) {
  return vouchedFor(mirrored(client_, [&] { return client_.receiptProxy()->removeComponents(components); }));
}

template <class Answer>
std::optional<Answer> ReceiptConversation::vouchedFor(Answer answer) {
  if (!client_.lastReceiptProxyMessageSuccess()) {
    step_.setInstallerState(QVNInstallerStateFailed);
    return std::nullopt;
  }
  return std::optional<Answer>(std::in_place, std::move(answer));
}

bool ReceiptConversation::takeOverState(std::string_view message) {
  QVNInstallationStatusProtocol& statusProxy = *client_.receiptStatusProxy();
  logging::debug("----- <%@>%s\n\tstatusProxy = %@\n\t[statusProxy getCurrentState]", foundation::currentThreadName(),
                 "execute:", statusProxy.description());
  const auto state = static_cast<QVNInstallerState>(statusProxy.getCurrentState());
  const bool isAnswered = client_.lastReceiptStatusProxyMessageSuccess();
  // Success that nobody vouches for is none.
  step_.setInstallerState(isAnswered ? state : QVNInstallerStateFailed);
  if (isAnswered && state == QVNInstallerStateSuccess) {
    return true;
  }
  logging::error(message);
  return false;
}

}  // namespace deployer
