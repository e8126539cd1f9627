#include "tools/InstallerTool.h"

#include <CLI/CLI.hpp>
#include <cstdio>
#include <exception>
#include <string>

#include "InstallationDeployer/BundleLayout.h"
#include "general/foundation/Paths.h"
#include "general/system/ExecutableLocation.h"
#include "general/terminal/PrintableText.h"
#include "tools/BuildCommand.h"
#include "tools/Complaint.h"
#include "tools/ExitCodes.h"
#include "tools/ShowCommand.h"

namespace bundletool {

using terminal::printable;

namespace {

constexpr const char* kToolVersion = "installer-tool 1.0.0";

void describeBuild(CLI::App& app, BuildCommand& command) {
  app.add_option("DESCRIPTION", command.description, "Property list that describes the bundle")->required();
  app.add_option("-o,--output", command.output, "Existing folder in which Installer.app is made")->required();
  app.add_flag("-f,--force", command.force, "Replace an Installer.app that is there");
  app.add_flag("--root-owner-group", command.rootOwnerGroup, "Record root as owner and group of everything staged");
  CLI::Option* const quiet = app.add_flag("-q,--quiet", command.quiet, "Print nothing but what is wrong");
  app.add_flag("-v,--verbose", command.verbose, "Print every log line of the work")->excludes(quiet);
  app.footer(
      "Example:\n"
      "  installer-tool build Product/Description.plist --output /tmp/out\n"
      "makes /tmp/out/Installer.app. The description's format is documented in docs/bundle.md.");
}

void describeShow(CLI::App& app, ShowCommand& command) {
  app.add_option("BUNDLE", command.bundle, "Installer.app, or the receipt of an installed product")->required();
  app.add_flag("--json", command.json, "Print one JSON document");
  app.footer(
      "Example:\n"
      "  installer-tool show /tmp/out/Installer.app\n"
      "What is wrong with the bundle goes to standard error, and makes the exit code 1.");
}

int run(int argumentCount, const char* const* arguments) {
  CLI::App app("Makes installer bundles and shows what is in them.", "installer-tool");
  app.set_version_flag("--version", kToolVersion);
  app.require_subcommand(1);
  app.footer("Exit codes: 0 done, 1 failed, 2 called wrongly. `installer-tool VERB --help` tells more about a verb.");
  BuildCommand build;
  const std::string here = platform::folderOfExecutable(argumentCount > 0 ? arguments[0] : "");
  build.defaultEngine = foundation::paths::append(here, deployer::kQVNInstallationDeployerName);
  build.defaultFrontEnd = foundation::paths::append(here, deployer::kQVNInstallerFrontEndName);
  CLI::App* const buildVerb = app.add_subcommand("build", "Make an Installer.app from a description");
  describeBuild(*buildVerb, build);
  ShowCommand show;
  CLI::App* const showVerb = app.add_subcommand("show", "Show what is in an Installer.app or a receipt");
  describeShow(*showVerb, show);
  try {
    app.parse(argumentCount, arguments);
  } catch (const CLI::ParseError& error) {
    return app.exit(error) == 0 ? kExitSuccess : kExitUsage;
  }
  return showVerb->parsed() ? show.run() : build.run();
}

}  // namespace

int runInstallerTool(int argumentCount, const char* const* arguments) {
  try {
    return run(argumentCount, arguments);
  } catch (const std::exception& failure) {
    complain(printable(failure.what()));
    return kExitFailure;
  }
}

}  // namespace bundletool
