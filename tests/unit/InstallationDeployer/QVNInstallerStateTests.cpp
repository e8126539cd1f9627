#include <gtest/gtest.h>

#include <limits>
#include <map>
#include <string>

#include "InstallationDeployer/QVNInstallerState.h"

namespace deployer {
namespace {

QVNInstallerState state(std::uint32_t value) { return static_cast<QVNInstallerState>(value); }

TEST(InstallerState, SuccessIsCompleteAndNoFailure) {
  EXPECT_TRUE(isCompletionState(state(0)));
  EXPECT_FALSE(isFailureState(state(0)));
}

TEST(InstallerState, FailuresAreOneToTenAndTwentyOne) {
  for (std::uint32_t value = 1; value <= 21; ++value) {
    const bool failure = value <= 10 || value == 21;
    EXPECT_EQ(isFailureState(state(value)), failure) << value;
    EXPECT_EQ(isCompletionState(state(value)), failure) << value;
  }
}

TEST(InstallerState, ValuesBeyondTheLastStateAreNeitherCompleteNorFailedAndUnknown) {
  for (const std::uint32_t value : {22U, 31U, 32U, 33U, 53U, 100U, std::numeric_limits<std::uint32_t>::max()}) {
    EXPECT_FALSE(isCompletionState(state(value))) << value;
    EXPECT_FALSE(isFailureState(state(value))) << value;
    EXPECT_STREQ(getNameForState(state(value)), "Unknown state") << value;
  }
}

TEST(InstallerState, EveryStateHasItsText) {
  const std::map<std::uint32_t, std::string> texts = {
      {0, "The installation was successful."},
      {1, "The installation failed."},
      {2, "The installation failed."},
      {3, "An incompatible product is installed."},
      {4, "Insufficient disk space to install."},
      {5, "The installation failed."},
      {6, "The installation failed."},
      {7, "The installation failed."},
      {8, "The installation failed."},
      {9, "The installation failed."},
      {10, "The installation failed."},
      {11, "Preparing"},
      {12, "Restoring"},
      {13, "Fixing"},
      {14, "Downloading"},
      {15, "Installing"},
      {16, "Validating"},
      {17, "Running executables"},
      {18, "Starting services"},
      {19, "Stopping services"},
      {20, "Removing"},
      {21, "The installation failed."},
  };
  for (const auto& [value, text] : texts) {
    EXPECT_EQ(getNameForState(state(value)), text) << value;
  }
}

TEST(InstallerState, ExitCodeIsTheStateAndAnUnknownStateIsAFailure) {
  for (const std::uint32_t value : {0U, 1U, 3U, 4U, 16U, 21U}) {
    EXPECT_EQ(exitCodeForState(state(value)), static_cast<int>(value));
  }
  for (const std::uint32_t value : {22U, 99U, 256U, 4294967295U}) {
    EXPECT_EQ(exitCodeForState(state(value)), 1) << value;
  }
}

}  // namespace
}  // namespace deployer
