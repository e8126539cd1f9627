// Watches a run from another process, as a front end does:
//   status-watcher PROCESS COMMAND...
// connects to the status service of the engine with this process number, carries out the commands in order and prints
// what came of each on a line of its own:
//   observe            asks to be sent the notifications about the run           "observing"
//   state, progress    asks the service                                          "state 15", "progress 40"
//   cancel, shutdown   asks for it, without waiting                              "cancel sent", "shutdown sent"
//   refusal            what the service said to the order before it              "refused: REASON", "not refused"
//   follow             after observe: every state seen, up to a final one        "state 15", "state 0"
//   hear               after observe: waits for the next notification            "heard NAME OBJECT"
//   await-end          waits until the service closes the connection             "ended"
//   call SELECTOR      an operation that is answered, whatever the protocol says "answer TEXT"
//   send SELECTOR      the same for one that is not answered                     "sent SELECTOR"
// A call that raises an exception prints "exception NAME" and the next command follows. Exit code 2: there is no such
// service.
//   status-watcher listen OBJECT
// hears distributed notifications about the object until it is killed: "listening", then
// "NAME OBJECT SERVICE-NAME" for each.
//   status-watcher vend NAME
// has a service of this name, of which nothing can be asked, until it is killed: "vending".
#include <poll.h>

#include <algorithm>
#include <cstdio>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <vector>

#include "InstallationDeployer/QVNInstallerState.h"
#include "InstallationDeployer/protocols/QVNInstallationStatusProtocol.h"
#include "InstallationDeployer/protocols/ServiceAnnouncement.h"
#include "general/foundation/execution/RunLoop.h"
#include "general/foundation/propertylist/TextFormat.h"
#include "general/ipc/ClientConnection.h"
#include "general/ipc/NotificationObserver.h"
#include "general/ipc/ProtocolChecker.h"
#include "general/ipc/RemoteException.h"
#include "general/ipc/ServerConnection.h"
#include "general/ipc/VRKConnectionAuthenticator.h"
#include "general/system/SystemProfile.h"

namespace {

using foundation::PropertyList;
namespace selectors = deployer::status_selectors;

constexpr int kUsageError = 1;
constexpr int kNoService = 2;

void print(const std::string& line) {
  std::printf("%s\n", line.c_str());
  std::fflush(stdout);
}

/// Shows the service what a front end shows it, and expects what a front end expects.
class FrontEnd : public ipc::ConnectionDelegate {
 public:
  std::vector<std::byte> authenticationDataForComponents(std::span<const std::byte> /*components*/) override {
    const auto shown = platform::systemProfileData();
    return {shown.begin(), shown.end()};
  }
  bool authenticateComponents(std::span<const std::byte> /*components*/, std::span<const std::byte> data) override {
    return std::ranges::equal(data, platform::clientProfileData());
  }
};

class Watcher {
 public:
  explicit Watcher(ipc::ClientConnection& connection) : connection_(connection) { connection_.setDelegate(&frontEnd_); }

  void observe() {
    connection_.observeNotifications();
    ask(selectors::kGetProgress);  // answered after the service has taken the wish
    print("observing");
  }
  void state() { print("state " + std::to_string(currentState())); }
  void progress() { print("progress " + std::to_string(ask(selectors::kGetProgress).integer().value_or(-1))); }
  void cancel() { tell(selectors::kCancelInstallation, "cancel sent"); }
  void shutdown() { tell(selectors::kShutdownService, "shutdown sent"); }

  void refusal() {
    ask(selectors::kGetProgress);  // answered after the order was dealt with
    const auto refusal = connection_.takeRefusal();
    print(refusal ? "refused: " + std::string(refusal->what()) : "not refused");
  }

  void follow() {
    std::optional<std::int64_t> seen;
    while (true) {
      const std::int64_t now = currentState();
      if (now != seen) {
        print("state " + std::to_string(now));
      }
      seen = now;
      if (deployer::isCompletionState(static_cast<deployer::QVNInstallerState>(now))) {
        return;
      }
      waitForNotifications();
      heard_.clear();
    }
  }
  void hear() {
    waitForNotifications();
    print("heard " + heard_.front().name + " " + heard_.front().object);
    heard_.erase(heard_.begin());
  }
  void awaitEnd() {
    try {
      while (connection_.isValid()) {
        waitForInput();
        heard_ = connection_.takeNotifications();
      }
    } catch (const ipc::RemoteException&) {
      // That is the end.
    }
    print("ended");
  }
  void call(const std::string& selector) {
    const ipc::Operation operation{selector, {}, ipc::ValueType::Object, false};
    print("answer " + foundation::format("%@", connection_.invoke(operation, {})));
  }
  void send(const std::string& selector) {
    connection_.invoke({selector, {}, ipc::ValueType::Nothing, true}, {});
    print("sent " + selector);
  }

 private:
  PropertyList ask(std::string_view selector) {
    return connection_.invoke(*deployer::kQVNInstallationStatusProtocol.operation(selector), {});
  }
  void tell(std::string_view selector, const std::string& done) {
    ask(selector);
    print(done);
  }
  std::int64_t currentState() { return ask(selectors::kGetCurrentState).integer().value_or(-1); }
  void waitForInput() const {
    pollfd input{connection_.descriptor(), POLLIN, 0};
    poll(&input, 1, -1);
  }
  /// What arrived with an answer is there already.
  void waitForNotifications() {
    while (heard_.empty()) {
      heard_ = connection_.takeNotifications();
      if (heard_.empty()) {
        waitForInput();
      }
    }
  }

  ipc::ClientConnection& connection_;
  FrontEnd frontEnd_;
  std::vector<ipc::Notification> heard_;
};

int watch(const std::string& process, const std::vector<std::string>& commands) {
  const std::string service = deployer::statusServiceNameOfProcess(std::stoi(process));
  const auto connection = ipc::ClientConnection::connectionWithRegisteredName(service);
  if (!connection) {
    print("no service");
    return kNoService;
  }
  Watcher watcher(*connection);
  const std::map<std::string, std::function<void()>> plain = {
      {"observe", [&] { watcher.observe(); }},   {"state", [&] { watcher.state(); }},
      {"progress", [&] { watcher.progress(); }}, {"cancel", [&] { watcher.cancel(); }},
      {"shutdown", [&] { watcher.shutdown(); }}, {"follow", [&] { watcher.follow(); }},
      {"hear", [&] { watcher.hear(); }},         {"refusal", [&] { watcher.refusal(); }},
      {"await-end", [&] { watcher.awaitEnd(); }}};
  for (auto command = commands.begin(); command != commands.end(); ++command) {
    try {
      if (const auto known = plain.find(*command); known != plain.end()) {
        known->second();
      } else if ((*command == "call" || *command == "send") && std::next(command) != commands.end()) {
        const bool answered = *command == "call";
        ++command;
        answered ? watcher.call(*command) : watcher.send(*command);
      } else {
        return kUsageError;
      }
    } catch (const ipc::RemoteException& exception) {
      print("exception " + exception.name());
    }
  }
  return 0;
}

void turnForEver() {
  const auto loop = foundation::RunLoop::current();
  while (loop->runUntil(foundation::RunLoop::Clock::time_point::max())) {
  }
}

int listen(const std::string& object) {
  ipc::NotificationObserver observer;
  for (const std::string_view name : {deployer::kQVNInstallationStatusServiceStartedNotification,
                                      deployer::kQVNInstallationStatusUpdatedNotification}) {
    observer.add(std::string(name), object, [](const ipc::Notification& heard) {
      print(heard.name + " " + heard.object + " " + deployer::announcedService(heard).value_or(""));
    });
  }
  if (!observer.isListening()) {
    return kNoService;
  }
  print("listening");
  turnForEver();
  return 0;
}

int vend(const std::string& name) {
  ipc::ServerConnection connection({});
  connection.setDelegate(std::make_shared<ipc::VRKConnectionAuthenticator>());
  connection.setRootObject(std::make_shared<const ipc::ProtocolChecker>(
      [](std::string_view, std::span<const PropertyList>) { return PropertyList(); },
      deployer::kQVNInstallationStatusProtocol));
  if (!connection.registerName(name)) {
    return kNoService;
  }
  print("vending");
  turnForEver();
  return 0;
}

}  // namespace

int main(int argc, char** argv) {
  const std::vector<std::string> arguments(argv + 1, argv + argc);
  if (arguments.size() == 2 && arguments[0] == "listen") {
    return listen(arguments[1]);
  }
  if (arguments.size() == 2 && arguments[0] == "vend") {
    return vend(arguments[1]);
  }
  if (arguments.size() < 2) {
    return kUsageError;
  }
  return watch(arguments[0], {arguments.begin() + 1, arguments.end()});
}
