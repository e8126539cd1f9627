#pragma once

#include <optional>
#include <string_view>

#include "InstallationDeployer/steps/QVNInstallStepStrategy.h"
#include "general/foundation/propertylist/PropertyList.h"

namespace deployer {

class QVNReceiptClient;
class ReceiptContext;

/// What one step of an installer asks the installed product's receipt, and what it makes of answers.
///
/// A request has an answer or none: without one the step has failed, whatever the missing answer would read like. An
/// answer is for the step to judge; where the receipt had nothing to say, its state does. Requests that take long show
/// the receipt's states as the step's own meanwhile. Belongs to the thread that runs the step; step and run outlive
/// it.
class ReceiptConversation {
 public:
  /// Reaches the receipt, whose process this starts when there is none yet. Nothing when it cannot be reached; the step
  /// has then failed, with the error in the log.
  [[nodiscard]] static std::optional<ReceiptConversation> begin(QVNInstallStepStrategy& step, ReceiptContext& receipts);

  // Each gives nothing when no answer came; the step has then failed.

  /// The installed components with their versions; nil when the receipt cannot tell.
  [[nodiscard]] std::optional<foundation::PropertyList> componentsAndVersions();
  /// The components to repair; an empty answer when the receipt cannot tell.
  [[nodiscard]] std::optional<std::optional<Plan>> fixPlanForValidation();
  /// Whether the receipt has removed the components.
  [[nodiscard]] std::optional<bool> removeComponents(const Plan& components);

  /// Takes the receipt's state over into the step after a request that it could not fulfil. True when that state is
  /// success, so that nothing is wrong there. Otherwise the message is logged; a state that did not come is a failure.
  [[nodiscard]] bool takeOverState(std::string_view message);

 private:
  ReceiptConversation(QVNInstallStepStrategy& step, QVNReceiptClient& client) : step_(step), client_(client) {}

  template <class Answer>
  [[nodiscard]] std::optional<Answer> vouchedFor(Answer answer);

  QVNInstallStepStrategy& step_;
  QVNReceiptClient& client_;
};

}  // namespace deployer
