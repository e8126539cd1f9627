// Takes the place of a receipt's engine and behaves as the environment says, so that a run can be shown what a receipt
// that dies, waits or answers oddly does to it:
//   RECEIPT_DIES=start|half|MESSAGE|after MESSAGE   kills itself when it starts, when one of its two services is
//                                                   announced, instead of answering, or right after the answer
//   RECEIPT_HIDES=status|receipt|both               announces this service, or both, without having it
//   RECEIPT_WAITS=MESSAGE                           never answers
//   RECEIPT_ANSWERS=nil|odd                         instead of "nothing installed, nothing to fix, removed"
// A message is `receipt.SELECTOR` or `status.SELECTOR`.
#include <unistd.h>

#include <chrono>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <string>

#include "InstallationDeployer/protocols/QVNInstallationReceiptProtocol.h"
#include "InstallationDeployer/protocols/QVNInstallationStatusProtocol.h"
#include "InstallationDeployer/protocols/ServiceAnnouncement.h"
#include "general/foundation/Paths.h"
#include "general/foundation/execution/RunLoop.h"
#include "general/ipc/DistributedNotifications.h"
#include "general/ipc/ServerConnection.h"
#include "general/ipc/VRKConnectionAuthenticator.h"

namespace {

using foundation::PropertyList;
using foundation::RunLoop;

std::string setting(const char* name) {
  const char* value = std::getenv(name);
  return value == nullptr ? "" : value;
}

[[noreturn]] void die() {
  kill(getpid(), SIGKILL);
  for (;;) {
    pause();
  }
}

class StandIn {
 public:
  void vend(const ipc::Protocol& protocol, const std::string& kind, const std::string& name,
            std::string_view announcement, std::unique_ptr<ipc::ServerConnection>& connection) {
    if (const std::string hidden = setting("RECEIPT_HIDES"); hidden == kind || hidden == "both") {
      announce(announcement, name);
      return;
    }
    connection = std::make_unique<ipc::ServerConnection>(ipc::ServerConnection::Options{});
    connection->setDelegate(std::make_shared<ipc::VRKConnectionAuthenticator>());
    connection->setRootObject(std::make_shared<ipc::ProtocolChecker>(
        [this, kind](std::string_view selector, std::span<const PropertyList>) {
          return answer(kind + "." + std::string(selector), selector);
        },
        protocol));
    if (connection->registerName(name)) {
      announce(announcement, name);
    }
  }

  int run(const std::string& bundle) {
    object_ = bundle + ".receipt";
    dieAt("start");
    std::unique_ptr<ipc::ServerConnection> status;
    std::unique_ptr<ipc::ServerConnection> receipt;
    vend(deployer::kQVNInstallationStatusProtocol, "status", deployer::statusServiceNameOfProcess(getpid()),
         deployer::kQVNInstallationStatusServiceStartedNotification, status);
    dieAt("half");
    vend(deployer::kQVNInstallationReceiptProtocol, "receipt", deployer::receiptServiceNameOfProcess(getpid()),
         deployer::kQVNInstallationReceiptServiceStartedNotification, receipt);
    const auto loop = RunLoop::current();
    loop->runWhile([&] { return !ended_; });
    return 0;
  }

 private:
  void announce(std::string_view announcement, const std::string& name) const {
    ipc::postDistributedNotification(deployer::serviceAnnouncement(announcement, object_, name));
  }
  void dieAt(const std::string& moment) const {
    if (dies_ == moment) {
      die();
    }
  }

  PropertyList answer(const std::string& message, std::string_view selector) {
    dieAt(message);
    if (dies_ == "after " + message) {
      // The answer is on its way before the loop turns again.
      death_ = RunLoop::current()->addTimer(std::chrono::milliseconds(0), false, die);
    }
    if (setting("RECEIPT_WAITS") == message) {
      std::fputs("the receipt waits\n", stderr);
      for (;;) {
        pause();
      }
    }
    const std::string answers = setting("RECEIPT_ANSWERS");
    if (selector == deployer::receipt_selectors::kShutdownService) {
      ended_ = true;
    } else if (selector == deployer::receipt_selectors::kRemoveComponents) {
      return PropertyList(answers.empty());
    } else if (selector == deployer::status_selectors::kGetCurrentState ||
               selector == deployer::status_selectors::kGetProgress) {
      return PropertyList(std::int64_t{0});
    } else if (answers == "odd" && selector == deployer::receipt_selectors::kComponentsAndVersions) {
      return PropertyList::dictionary({{"Core", 5}});
    } else if (answers.empty()) {
      return PropertyList(PropertyList::Array{});
    }
    return {};
  }

  const std::string dies_ = setting("RECEIPT_DIES");
  std::string object_;
  bool ended_ = false;
  RunLoop::Source death_;
};

}  // namespace

int main(int, char** argv) {
  return StandIn().run(foundation::paths::standardize(foundation::paths::append(argv[0], "../../../")));
}
