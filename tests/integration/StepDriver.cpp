// Runs one step of an install by itself:
//   step-driver STEP BUNDLE PRODUCT [OPTION...] [COMPONENT...]
// where STEP is write-receipt, remove-receipt, start-processes, stop-processes, validate, remove, cache or restore, and
// prints how it ended, as "success=1 state=0 published=17,18", and after "validate" the plan that it left.
//   --failed                   an earlier step failed
//   --has-receipt              the run is an upgrade
//   --removal                  the run was started to remove the product
//   --from-receipt-only        the step may run from the receipt's location only
//   --before-publishing TEXT   a shell command run when the receipt is staged; unless it succeeds, it is not published
#include <cstdio>
#include <memory>
#include <string>
#include <vector>

#include "InstallationDeployer/installed/QVNCacheComponentStrategy.h"
#include "InstallationDeployer/installed/QVNRemoveComponentsStrategy.h"
#include "InstallationDeployer/installed/QVNRestoreCacheComponentStrategy.h"
#include "InstallationDeployer/installed/QVNValidateStrategy.h"
#include "InstallationDeployer/processes/QVNProcessStartStrategy.h"
#include "InstallationDeployer/processes/QVNProcessStopStrategy.h"
#include "InstallationDeployer/receipt/QVNRemoveReceiptStrategy.h"
#include "InstallationDeployer/receipt/QVNWriteReceiptStrategy.h"
#include "general/foundation/execution/Task.h"
#include "tests/support/FakeStepContext.h"

namespace {

using deployer::Plan;

class ReceiptWithHook : public deployer::QVNWriteReceiptStrategy {
 public:
  using QVNWriteReceiptStrategy::QVNWriteReceiptStrategy;

  bool validateContents() override {
    if (command.empty()) {
      return QVNWriteReceiptStrategy::validateContents();
    }
    foundation::Task shell("/bin/sh", {"-c", command});
    shell.launch();
    shell.waitUntilExit();
    return shell.terminationStatus() == 0 && QVNWriteReceiptStrategy::validateContents();
  }

  std::string command;
};

struct Request {
  std::string step;
  bool failedBefore = false;
  bool hasReceipt = false;
  bool isRemoval = false;
  bool runLocally = true;
  std::string beforePublishing;
  Plan components;
};

template <class Step, class... Arguments>
std::unique_ptr<Step> make(const Request& request, tests::FakeStepContext& run, Arguments... arguments) {
  return std::make_unique<Step>(foundation::PropertyList(), "step", nullptr, run,
                                std::make_shared<Plan>(request.components), arguments...);
}

std::unique_ptr<deployer::QVNInstallStepStrategy> makeStep(const Request& request, tests::FakeStepContext& run) {
  if (request.step == "start-processes") {
    return make<deployer::QVNProcessStartStrategy>(request, run);
  }
  if (request.step == "stop-processes") {
    return make<deployer::QVNProcessStopStrategy>(request, run, request.runLocally);
  }
  if (request.step == "remove-receipt") {
    return make<deployer::QVNRemoveReceiptStrategy>(request, run);
  }
  if (request.step == "validate") {
    return make<deployer::QVNValidateStrategy>(request, run);
  }
  if (request.step == "remove") {
    return make<deployer::QVNRemoveComponentsStrategy>(request, run, request.runLocally);
  }
  if (request.step == "cache") {
    return make<deployer::QVNCacheComponentStrategy>(request, run);
  }
  if (request.step == "restore") {
    return make<deployer::QVNRestoreCacheComponentStrategy>(request, run);
  }
  auto receipt = make<ReceiptWithHook>(request, run);
  receipt->command = request.beforePublishing;
  return receipt;
}

std::string joined(const std::vector<deployer::QVNInstallerState>& states) {
  std::string text;
  for (const deployer::QVNInstallerState state : states) {
    text += (text.empty() ? "" : ",") + std::to_string(state);
  }
  return text;
}

}  // namespace

int main(int argc, char** argv) {
  const std::vector<std::string> arguments(argv + 1, argv + argc);
  if (arguments.size() < 3) {
    return 2;
  }
  Request request;
  request.step = arguments[0];
  for (std::size_t i = 3; i < arguments.size(); ++i) {
    if (arguments[i] == "--failed") {
      request.failedBefore = true;
    } else if (arguments[i] == "--has-receipt") {
      request.hasReceipt = true;
    } else if (arguments[i] == "--removal") {
      request.isRemoval = true;
    } else if (arguments[i] == "--from-receipt-only") {
      request.runLocally = false;
    } else if (arguments[i] == "--before-publishing" && i + 1 < arguments.size()) {
      request.beforePublishing = arguments[++i];
    } else {
      request.components.push_back(arguments[i]);
    }
  }
  tests::FakeStepContext run(arguments[1]);
  run.configuration().setProductName(arguments[2]);
  run.configuration().setHasInstallerReceipt(request.hasReceipt);
  run.configuration().setRemove(request.isRemoval);
  run.configuration().setBundlePathIsReceipt(run.configuration().bundlePath() == run.configuration().receiptPath());
  const auto step = makeStep(request, run);
  const bool success = step->execute(!request.failedBefore);
  std::printf("success=%d state=%u published=%s\n", success ? 1 : 0, static_cast<unsigned>(step->installerState()),
              joined(run.states).c_str());
  if (request.step == "validate") {
    std::printf("plan=%s\n", deployer::QVNInstallStepStrategy::planDescription(step->plan()).c_str());
  }
  return 0;
}
