#pragma once

#include <string>
#include <vector>

#include "InstallationDeployer/steps/QVNInstallStepStrategy.h"
#include "general/foundation/FileAttributes.h"

namespace deployer {

/// Puts the files of the planned components on disk: checks the space, then directories and files in the order of the
/// manifest, then the links.
class QVNInstallComponentsStrategy : public QVNInstallStepStrategy {
 public:
  using QVNInstallStepStrategy::QVNInstallStepStrategy;

  bool execute(bool previousSuccess) override;
  [[nodiscard]] std::string_view className() const override { return "QVNInstallComponentsStrategy"; }
};

}  // namespace deployer
