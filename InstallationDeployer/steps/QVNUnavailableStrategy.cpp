#include "InstallationDeployer/steps/QVNUnavailableStrategy.h"

#include "general/logging/SystemLog.h"

namespace deployer {

bool QVNUnavailableStrategy::execute(bool previousSuccess) {
  QVNInstallStepStrategy::execute(previousSuccess);
  if (!previousSuccess) {
    return false;
  }
  logging::error("The step %@ is not available in this engine. Nothing was done.", description());
  return failWith();
}

}  // namespace deployer
