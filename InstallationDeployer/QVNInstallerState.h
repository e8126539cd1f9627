#pragma once

#include <cstdint>

namespace deployer {

/// Where a run stands. The last state of a run is the exit code of the process. Values above 21 are never set here but
/// may come from elsewhere; every function below takes them. 2 and 5 to 10 are failures without a name of their own.
enum QVNInstallerState : std::uint32_t {
  QVNInstallerStateSuccess = 0,
  QVNInstallerStateFailed = 1,
  QVNInstallerStateIncompatibleProduct = 3,
  QVNInstallerStateInsufficientDiskSpace = 4,
  QVNInstallerStatePreparing = 11,
  QVNInstallerStateRestoring = 12,
  QVNInstallerStateFixing = 13,
  QVNInstallerStateDownloading = 14,
  QVNInstallerStateInstalling = 15,
  QVNInstallerStateValidating = 16,
  QVNInstallerStateRunningExecutables = 17,
  QVNInstallerStateStartingServices = 18,
  QVNInstallerStateStoppingServices = 19,
  QVNInstallerStateRemoving = 20,
  QVNInstallerStateCancelled = 21,
};

// Pure; callable from any thread.
[[nodiscard]] bool isFailureState(QVNInstallerState state);
/// Success or failure: a run ends in such a state and leaves it no more.
[[nodiscard]] bool isCompletionState(QVNInstallerState state);
/// A text for people; static storage.
[[nodiscard]] const char* getNameForState(QVNInstallerState state);
/// What a run that ends in this state exits with: the state, or failure for a state that no engine knows, which an exit
/// code of eight bits could turn into success.
[[nodiscard]] int exitCodeForState(QVNInstallerState state);

}  // namespace deployer
