#include "InstallationDeployer/QVNInstallerState.h"

#include <algorithm>
#include <array>

namespace deployer {
namespace {

// Those that are given by number have no name of their own.
constexpr std::array<std::uint32_t, 11> kFailureStates = {
    QVNInstallerStateFailed,
    2,
    QVNInstallerStateIncompatibleProduct,
    QVNInstallerStateInsufficientDiskSpace,
    5,
    6,
    7,
    8,
    9,
    10,
    QVNInstallerStateCancelled,
};

}  // namespace

bool isFailureState(QVNInstallerState state) {
  return std::ranges::find(kFailureStates, static_cast<std::uint32_t>(state)) != kFailureStates.end();
}

bool isCompletionState(QVNInstallerState state) { return state == QVNInstallerStateSuccess || isFailureState(state); }

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
