#include "InstallationDeployer/steps/QVNValidateStrategy.h"

#include "general/logging/SystemLog.h"

namespace deployer {

bool QVNValidateStrategy::execute(bool previousSuccess) {
  QVNInstallStepStrategy::execute(previousSuccess);
  if (!previousSuccess) {
    return false;
  }
  logging::error("The step \"%@\" (%@) is not available.", qualifiedName(), className());
  return failWith();
}

}  // namespace deployer
