#include "tools/ShowCommand.h"

#include <cstdio>

#include "general/logging/SystemLog.h"
#include "tools/Complaint.h"
#include "tools/ExitCodes.h"
#include "tools/showing/BundleContents.h"
#include "tools/showing/BundleJson.h"
#include "tools/showing/BundleText.h"

namespace bundletool {

int ShowCommand::run() const {
  logging::setLeastUrgentLevel(logging::Level::Error);
  Problems problems;
  const auto contents = readBundle(bundle, problems);
  const std::string text = !contents ? "" : json ? jsonOf(*contents) : textOf(*contents);
  if (std::fwrite(text.data(), 1, text.size(), stdout) != text.size() || std::fflush(stdout) != 0) {
    complain("the output cannot be written");
    return kExitFailure;
  }
  complainOf(problems);
  return problems.none() ? kExitSuccess : kExitFailure;
}

}  // namespace bundletool
