#pragma once

#include "InstallationDeployer/steps/QVNInstallStepStrategy.h"

namespace deployer {

/// Checks what is installed of the planned components and turns the plan into the list of those that need repair.
///
/// An entry needs repair when nothing lies at its path, unless it comes from outside the payload, or when owner, group
/// and permissions all differ from the manifest's: one that is equal is enough. The contents of files are never looked
/// at, nor are modifiable files that exist. A link of the manifest only has to be there, wherever it leads; in any
/// other entry's place a link that leads nowhere is nothing. What no item can be named by lies nowhere.
///
/// An item of which nobody can tell whether it is there (memory, descriptors, a device) counts neither as present nor
/// as missing, and a manifest that cannot be read is no empty one: the step fails with state 1 and an empty plan, and
/// what could not be looked at is in the log.
///
/// The plan, which should be the step's own, afterwards holds a component once for every entry that needs repair, in
/// the order of the manifests. The step succeeds when nothing needs repair; no failure state is set when something
/// does.
class QVNValidateStrategy : public QVNInstallStepStrategy {
 public:
  using QVNInstallStepStrategy::QVNInstallStepStrategy;
  [[nodiscard]] std::string_view className() const override { return "QVNValidateStrategy"; }

 private:
  [[nodiscard]] bool work() override;
};

}  // namespace deployer
