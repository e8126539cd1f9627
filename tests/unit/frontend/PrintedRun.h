#pragma once

#include <string>
#include <string_view>

#include "frontend/Presenter.h"

namespace frontend {

/// Collects what a presenter prints.
struct Printed {
  std::string output;
  std::string trouble;
  Presenter::Output toOutput() {
    return [this](std::string_view text) { output += text; };
  }
  Presenter::Output toTrouble() {
    return [this](std::string_view text) { trouble += text; };
  }
};

// A run that presenters are told of.
inline RunFacts someFacts() {
  RunFacts facts;
  facts.process = 7;
  facts.logFile = "/l";
  return facts;
}

// What is wrong with a bundle that presenters are told of.
inline deployer::BundleReport someReport() {
  using Kind = deployer::BundleProblem::Kind;
  deployer::BundleReport report;
  report.problems = {{.kind = Kind::Missing, .file = "/b/one", .what = "is missing", .component = "Core"},
                     {.kind = Kind::Checksum,
                      .file = "/b/t\x1bwo",
                      .what = "is damaged",
                      .component = "Core",
                      .expected = "abc",
                      .found = "def"}};
  report.problemCount = 9;
  return report;
}

inline const RunOutcome kSuccess{"finished", 0, "Well done.", 0};
inline const RunOutcome kFailure{"finished", 1, "Not well.", 1};
inline constexpr const char* kLogLine = "Log: /l, and the system log, under \"Corvane Installer\".\n";

}  // namespace frontend
