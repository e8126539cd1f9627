#include "InstallationDeployer/QVNInstallerState.h"

namespace deployer {
namespace {

constexpr std::uint32_t kHighestState = 21;
constexpr std::uint32_t kFailureStates = 0x2007FE;
constexpr std::uint32_t kCompletionStates = 0x2007FF;

bool isMember(QVNInstallerState state, std::uint32_t mask) {
  return state <= kHighestState && ((mask >> state) & 1U) != 0;
}

}  // namespace

bool isFailureState(QVNInstallerState state) { return isMember(state, kFailureStates); }

bool isCompletionState(QVNInstallerState state) { return isMember(state, kCompletionStates); }

const char* getNameForState(QVNInstallerState state) {
  switch (static_cast<std::uint32_t>(state)) {
    case QVNInstallerStateSuccess:
      return "The installation was successful.";
    case QVNInstallerStateIncompatibleProduct:
      return "An incompatible product is installed.";
    case QVNInstallerStateInsufficientDiskSpace:
      return "Insufficient disk space to install.";
    case QVNInstallerStatePreparing:
      return "Preparing";
    case QVNInstallerStateRestoring:
      return "Restoring";
    case QVNInstallerStateFixing:
      return "Fixing";
    case QVNInstallerStateDownloading:
      return "Downloading";
    case QVNInstallerStateInstalling:
      return "Installing";
    case QVNInstallerStateValidating:
      return "Validating";
    case QVNInstallerStateRunningExecutables:
      return "Running executables";
    case QVNInstallerStateStartingServices:
      return "Starting services";
    case QVNInstallerStateStoppingServices:
      return "Stopping services";
    case QVNInstallerStateRemoving:
      return "Removing";
    default:
      return isFailureState(state) ? "The installation failed." : "Unknown state";
  }
}

int exitCodeForState(QVNInstallerState state) {
  return static_cast<int>(state <= QVNInstallerStateCancelled ? state : QVNInstallerStateFailed);
}

}  // namespace deployer
