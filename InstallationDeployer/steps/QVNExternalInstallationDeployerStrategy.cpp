#include "InstallationDeployer/steps/QVNExternalInstallationDeployerStrategy.h"

#include "general/logging/SystemLog.h"

namespace deployer {

bool QVNExternalInstallationDeployerStrategy::execute(bool previousSuccess) {
  QVNInstallStepStrategy::execute(previousSuccess);
  if (!previousSuccess) {
    return false;
  }
  logging::error("The step \"%@\" (%@) is not available.", qualifiedName(), className());
  return failWith();
}

}  // namespace deployer
