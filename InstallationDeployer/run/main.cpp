#include <cstdio>
#include <exception>
#include <string>
#include <vector>

#include "InstallationDeployer/QVNInstallerState.h"
#include "InstallationDeployer/run/InstallationDeployerMain.h"

int main(int argumentCount, char** arguments) {
  try {
    return deployer::installationDeployerMain(std::vector<std::string>(arguments, arguments + argumentCount));
  } catch (const std::exception& exception) {
    std::fprintf(stderr, "InstallationDeployer: %s\n", exception.what());
    return static_cast<int>(deployer::QVNInstallerStateFailed);
  }
}
