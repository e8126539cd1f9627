#include "frontend/ProblemText.h"

#include "general/foundation/propertylist/TextFormat.h"
#include "general/terminal/PrintableText.h"

namespace frontend {

using deployer::BundleProblem;
using foundation::format;
using terminal::printable;

namespace {

std::string textOf(const BundleProblem& problem) {
  std::string text = format("%@ %@\n", printable(problem.file), printable(problem.what));
  if (problem.kind == BundleProblem::Kind::Checksum) {
    text += format("    expected %@\n    found    %@\n", printable(problem.expected), printable(problem.found));
  }
  return text;
}

}  // namespace

std::string problemsText(const deployer::BundleReport& report) {
  std::string text;
  for (const BundleProblem& problem : report.problems) {
    text += textOf(problem);
  }
  if (report.problemCount > report.problems.size()) {
    text += format("... and %llu more.\n", report.problemCount - report.problems.size());
  }
  return text;
}

}  // namespace frontend
