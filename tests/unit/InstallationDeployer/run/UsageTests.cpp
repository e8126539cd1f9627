#include <gtest/gtest.h>

#include "InstallationDeployer/run/Usage.h"
#include "tests/support/CapturedLog.h"

namespace deployer {
namespace {

TEST(Usage, TextIsWhatScriptsCompare) {
  EXPECT_EQ(usageText(),
            "usage: InstallationDeployer [--ui] --install [--product_name <product_name>]\n"
            "       InstallationDeployer --receipt\n"
            "       InstallationDeployer [--ui] --remove\n"
            "options: \n"
            "       --ui                     => communicate with GUI\n"
            "       --install                => install product\n"
            "       --receipt                => receipt mode\n"
            "       --remove                 => remove product mode - must be run on receipt\n"
            "arguments: \n"
            "       product_name             => the name of the product to be installed\n"
            "return codes:\n"
            "       0 => success\n"
            "       0 => The installation was successful.\n"
            "       1 => The installation failed.\n"
            "       4 => Insufficient disk space to install.\n"
            "       2 => The installation failed.\n"
            "notes:\n"
            "       The InstallationDeployer must be run as root when the --ui option is NOT specified.\n"
            "       Without the --ui option specified, admin authentication will be requested through the user "
            "interface.\n");
}

TEST(Usage, GoesToStandardErrorAndIsLogged) {
  const tests::CapturedLog log;
  usage();
  EXPECT_EQ(log.text().find(usageText()), 0U);
  EXPECT_TRUE(log.contains("Error", "usage failure launching InstallationDeployer"));
}

}  // namespace
}  // namespace deployer
