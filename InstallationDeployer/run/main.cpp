#include <string>
#include <vector>

#include "InstallationDeployer/run/InstallationDeployerMain.h"

int main(int argumentCount, char** arguments) {
  return deployer::installationDeployerMain(std::vector<std::string>(arguments, arguments + argumentCount));
}
