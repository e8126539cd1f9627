// Takes the place of the engine in another bundle. It is started as that engine is, and the name of the product that it
// is asked to install tells it what to do, in order, with commas between:
//   start            sets up its status service and announces it
//   start-unheard    the same, but nobody is told, nor of what follows
//   heard            what follows is announced again
//   STATE            the number of its state from now on; announced once the service is started
//   unheard-STATE    the same, but nobody is told
//   progress-NUMBER  its progress from now on
//   update-other     announces a change of state about the bundle /somebody/else
//   start-other      announces that another engine of this bundle has started, with a service that nobody has
//   wrap             leaves what follows to another process of this program, and ends when somebody has written a byte
//   to
//                    the pipe "wrapper" in its bundle
//   gate             waits until somebody has written one more byte to the pipe "gate" in its bundle
//   await-end        waits until it is told to end, and then exits with its state
//   stop, kill       sends itself the signal
//   exit-CODE        exits
// In its bundle it leaves "process", its number ("wrapper-process" of one that wraps another), "arguments", one on a
// line, and at its end "cancelled" if it was asked to cancel.
#include <fcntl.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <fstream>
#include <memory>
#include <optional>
#include <sstream>
#include <string>
#include <vector>

#include "InstallationDeployer/protocols/QVNInstallationStatusProtocol.h"
#include "InstallationDeployer/protocols/ServiceAnnouncement.h"
#include "InstallationDeployer/status/QVNInstallationStatusService.h"
#include "general/foundation/Descriptor.h"
#include "general/foundation/Paths.h"
#include "general/foundation/execution/Task.h"
#include "general/ipc/DistributedNotifications.h"

namespace {

constexpr int kUsageError = 99;

class StandIn : public deployer::WatchedRun {
 public:
  explicit StandIn(std::string bundle) : bundle_(std::move(bundle)) {
    std::ofstream(bundle_ + "/process.new") << getpid() << "\n";
    // Whole or not there, for those who wait for it.
    std::rename((bundle_ + "/process.new").c_str(), (bundle_ + "/process").c_str());
  }

  deployer::QVNInstallerState installerState() const override { return state_; }
  void setInstallerState(deployer::QVNInstallerState state) override {
    state_ = state;
    if (service_) {
      service_->stateUpdatedNotification();
    }
  }
  std::uint64_t getProgress() override { return progress_; }
  void cancelInstallation() override { std::ofstream(bundle_ + "/cancelled") << "cancelled\n"; }
  bool mainThreadComplete() const override { return complete_; }
  std::string postingNotificationId() const override { return isHeard_ ? bundle_ : "/nobody/listens/to/this"; }

  /// Starts the program anew with the rest of the script, and waits at its own gate.
  int wrap(const std::string& program, const std::string& script) const {
    std::ofstream(bundle_ + "/wrapper-process") << getpid() << "\n";
    const foundation::Descriptor gate(open((bundle_ + "/wrapper").c_str(), O_RDWR | O_CLOEXEC));
    foundation::Task task(program, {script});
    task.launch();
    waitAt(gate);
    return 0;
  }

  /// The exit code, when the command ends the process.
  std::optional<int> perform(const std::string& command) {
    const auto number = [&] { return std::atoi(command.substr(command.rfind('-') + 1).c_str()); };
    if (command.starts_with("start")) {
      command == "start-other" ? announceAnother() : start(command == "start");
    } else if (command.starts_with("unheard-")) {
      state_ = static_cast<deployer::QVNInstallerState>(number());
    } else if (command.starts_with("progress-")) {
      progress_ = static_cast<std::uint64_t>(number());
    } else if (command == "update-other") {
      ipc::postDistributedNotification(
          {std::string(deployer::kQVNInstallationStatusUpdatedNotification), "/somebody/else", {}});
    } else if (command == "heard") {
      isHeard_ = true;
    } else if (command == "gate") {
      waitAtGate();
    } else if (command == "await-end") {
      complete_ = true;
      service_->waitForServiceCompletion();
      return static_cast<int>(installerState());
    } else if (command == "stop" || command == "kill") {
      kill(getpid(), command == "stop" ? SIGSTOP : SIGKILL);
    } else if (command.starts_with("exit-")) {
      return number();
    } else {
      setInstallerState(static_cast<deployer::QVNInstallerState>(number()));
    }
    return std::nullopt;
  }

 private:
  void start(bool isHeard) {
    isHeard_ = isHeard;
    service_ =
        std::make_unique<deployer::QVNInstallationStatusService>(deployer::statusServiceNameOfProcess(getpid()), *this);
    service_->startServer();
  }
  void announceAnother() {
    ipc::postDistributedNotification(deployer::serviceAnnouncement(
        deployer::kQVNInstallationStatusServiceStartedNotification, bundle_, deployer::statusServiceNameOfProcess(0)));
  }
  void waitAtGate() const { waitAt(gate_); }
  static void waitAt(const foundation::Descriptor& gate) {
    char byte = 0;
    while (read(gate.number(), &byte, 1) < 0 && errno == EINTR) {
    }
  }

  const std::string bundle_;
  // Open at both ends, so that nobody's coming or going is mistaken for a byte.
  const foundation::Descriptor gate_{open((bundle_ + "/gate").c_str(), O_RDWR | O_CLOEXEC)};
  std::atomic<deployer::QVNInstallerState> state_ = deployer::QVNInstallerStatePreparing;
  std::atomic<std::uint64_t> progress_ = 0;
  std::atomic<bool> complete_ = false;
  std::atomic<bool> isHeard_ = true;
  std::unique_ptr<deployer::QVNInstallationStatusService> service_;
};

}  // namespace

int main(int argc, char** argv) {
  const std::vector<std::string> arguments(argv + 1, argv + argc);
  if (arguments.empty()) {
    return kUsageError;
  }
  const std::string bundle = foundation::paths::standardize(foundation::paths::append(argv[0], "../../../"));
  std::ofstream written(bundle + "/arguments");
  for (const std::string& argument : arguments) {
    written << argument << "\n";
  }
  written.close();
  StandIn standIn(bundle);
  std::istringstream script(arguments.back());
  for (std::string command; std::getline(script, command, ',');) {
    if (command == "wrap") {
      std::string rest;
      std::getline(script, rest);
      return standIn.wrap(argv[0], rest);
    }
    if (const auto exitCode = standIn.perform(command)) {
      return *exitCode;
    }
  }
  return kUsageError;
}
