#include "frontend/InstallerProgram.h"

#include <CLI/CLI.hpp>
#include <cstdio>
#include <exception>
#include <limits>
#include <string>

#include "frontend/ExitCodes.h"
#include "frontend/InstallerRun.h"
#include "general/system/ProcessSelf.h"
#include "general/terminal/PrintableText.h"

namespace frontend {

namespace {

constexpr const char* kVersion = "Installer 1.0.0";

void describe(CLI::App& app, InstallerOptions& options) {
  CLI::Option* const product =
      app.add_option("--product", options.product, "Product to install, where the bundle holds several");
  CLI::Option* const remove =
      app.add_flag("--remove", options.remove, "Remove the installed product; only from its receipt");
  app.add_option("--watch", options.watch, "Attach to the running engine with this process number")
      ->type_name("PID")
      ->check(CLI::Range(1, std::numeric_limits<int>::max()))
      ->excludes(product)
      ->excludes(remove);
  app.add_flag_callback(
         "--no-check", [&options] { options.comparesChecksums = false; },
         "Leave it to the engine to compare the bundle's files with their checksums")
      ->excludes("--watch")
      ->excludes(remove);
  app.add_flag("--json", options.json, "Print one JSON object per event");
  app.add_flag("-v,--verbose", options.verbose, "Print the engine's log on standard error")->excludes("--watch");
  app.set_version_flag("--version", kVersion);
  app.footer(
      "Ctrl-C asks the engine to cancel; a second one leaves the engine alone.\n"
      "Exit codes: the final state of the run (0 success, 1 failed, 3 another product is in the way, 4 disk full,\n"
      "21 cancelled), 64 called wrongly, 65 the bundle is damaged and nothing was started, 69 no engine to start or\n"
      "watch, 70 the engine died, 75 left before the end.");
}

int run(int argumentCount, const char* const* arguments) {
  CLI::App app("Installs, removes and watches with the engine beside it.", "Installer");
  InstallerOptions options;
  describe(app, options);
  try {
    app.parse(argumentCount, arguments);
  } catch (const CLI::ParseError& error) {
    return app.exit(error) == 0 ? 0 : kExitUsage;
  }
  // A reader that goes away must not end this program before the engine's end is acknowledged.
  platform::self::prepareForUnattendedRun();
  return InstallerRun(options, argumentCount > 0 ? arguments[0] : "").run();
}

}  // namespace

int runInstaller(int argumentCount, const char* const* arguments) {
  try {
    return run(argumentCount, arguments);
  } catch (const std::exception& failure) {
    std::fprintf(stderr, "Installer: %s\n", terminal::printable(failure.what()).c_str());
    return kExitLost;
  }
}

}  // namespace frontend
