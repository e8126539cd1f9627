#include "InstallationDeployer/run/Usage.h"

#include <array>
#include <cstdio>

#include "InstallationDeployer/QVNInstallerState.h"
#include "general/foundation/propertylist/TextFormat.h"
#include "general/logging/SystemLog.h"

namespace deployer {
namespace {

constexpr std::string_view kTextBeforeReturnCodes =
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
    "       0 => success\n";

constexpr std::string_view kTextAfterReturnCodes =
    "notes:\n"
    "       The InstallationDeployer must be run as root when the --ui option is NOT specified.\n"
    "       Without the --ui option specified, admin authentication will be requested through the user interface.\n";

// Scripts compare the text, so the selection and its order stay.
constexpr std::array<std::uint32_t, 4> kListedStates = {0, 1, 4, 2};

}  // namespace

std::string usageText() {
  std::string text(kTextBeforeReturnCodes);
  for (const std::uint32_t state : kListedStates) {
    text += foundation::format("       %d => %s\n", state, getNameForState(static_cast<QVNInstallerState>(state)));
  }
  text += kTextAfterReturnCodes;
  return text;
}

void usage() {
  const std::string text = usageText();
  std::fwrite(text.data(), 1, text.size(), stderr);
  std::fflush(stderr);
  logging::error("usage failure launching InstallationDeployer");
}

}  // namespace deployer
