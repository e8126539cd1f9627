#include "tools/BuildCommand.h"

#include <unistd.h>

#include <cstdio>

#include "general/logging/SystemLog.h"
#include "general/system/ProcessSelf.h"
#include "general/terminal/PrintableText.h"
#include "tools/Complaint.h"
#include "tools/ExitCodes.h"
#include "tools/building/BundleBuilder.h"
#include "tools/building/BundleDescription.h"
#include "tools/building/Interruption.h"
#include "tools/building/ProgressBar.h"

namespace bundletool {

using terminal::printable;

int BuildCommand::run() const {
  // A death by signal would leave a half-made bundle.
  platform::self::prepareForUnattendedRun();
  const Interruption interruption;
  logging::setLeastUrgentLevel(verbose ? logging::Level::Debug : logging::Level::Error);
  logging::corvanelogger_open("installer-tool", "install");
  Problems problems;
  const BundleDescription bundle = readDescription(description, problems);
  std::optional<std::string> built;
  if (problems.none()) {
    // Log lines would run into the bar.
    ProgressBar progress(quiet || verbose ? ProgressBar::Output{} : terminalOutput(), terminalColumns());
    built = BundleBuilder(bundle, {output, defaultEngine, defaultFrontEnd, force, rootOwnerGroup, geteuid()}, problems,
                          progress)
                .build();
  }
  complainOf(problems);
  if (!built && Interruption::requested()) {
    complain("interrupted; nothing was left behind");
    return kExitFailure;
  }
  if (!built) {
    return kExitFailure;
  }
  if (!quiet) {
    std::printf("%s\n", printable(*built).c_str());
  }
  return kExitSuccess;
}

}  // namespace bundletool
