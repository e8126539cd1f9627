#include "frontend/JsonPresenter.h"

#include <string>
#include <vector>

#include "general/terminal/JsonWriter.h"

namespace frontend {

using deployer::BundleProblem;
using terminal::JsonWriter;

namespace {

std::optional<std::string> textOrNothing(const std::string& text) {
  return text.empty() ? std::nullopt : std::optional(text);
}

/// One event: its members are added in between.
class Event {
 public:
  explicit Event(const std::string& name) {
    json_.beginObject();
    json_.member("event", name);
  }
  Event& number(std::string_view name, std::optional<std::uint64_t> value) {
    json_.member(name, value);
    return *this;
  }
  Event& text(std::string_view name, const std::optional<std::string>& value) {
    json_.member(name, value);
    return *this;
  }
  Event& truth(std::string_view name, bool value) {
    json_.member(name, std::optional(value));
    return *this;
  }
  Event& texts(std::string_view name, const std::vector<std::string>& values) {
    json_.member(name, values);
    return *this;
  }
  Event& problems(std::string_view name, const std::vector<BundleProblem>& values) {
    json_.key(name);
    json_.beginArray();
    for (const BundleProblem& problem : values) {
      json_.beginObject();
      json_.member("kind", std::string(deployer::nameOf(problem.kind)));
      json_.member("file", problem.file);
      json_.member("component", textOrNothing(problem.component));
      json_.member("text", problem.what);
      json_.member("expected", textOrNothing(problem.expected));
      json_.member("found", textOrNothing(problem.found));
      json_.endObject();
    }
    json_.endArray();
    return *this;
  }
  std::string line() {
    json_.endObject();
    return json_.text();
  }

 private:
  JsonWriter json_{JsonWriter::Layout::OneLine};
};

std::uint64_t asNumber(int value) { return static_cast<std::uint64_t>(value); }

/// The process, where there is one.
std::optional<std::uint64_t> processIn(const RunFacts& facts) {
  return facts.process > 0 ? std::optional(asNumber(facts.process)) : std::nullopt;
}

}  // namespace

void JsonPresenter::checking(int percent) { output_(Event("checking").number("percent", asNumber(percent)).line()); }

void JsonPresenter::checked(const deployer::BundleReport& report) {
  output_(Event("checked")
              .number("files", report.files)
              .number("bytes", report.bytes)
              .truth("checksums", report.comparedChecksums)
              .texts("warnings", report.warnings)
              .line());
}

void JsonPresenter::refused(const deployer::BundleReport& report) {
  output_(Event("refused").number("count", report.problemCount).problems("problems", report.problems).line());
}

void JsonPresenter::begin(const RunFacts& facts) {
  const char* const name = facts.purpose == Purpose::Watch ? "connecting" : "started";
  output_(Event(name).number("process", processIn(facts)).text("log", facts.logFile).line());
}

void JsonPresenter::watching(int processIdentifier) {
  output_(Event("watching").number("process", asNumber(processIdentifier)).line());
}

void JsonPresenter::unreachable() { output_(Event("unreachable").line()); }

void JsonPresenter::orderRefused(const std::string& reason) {
  output_(Event("notPermitted").text("text", reason).line());
}

void JsonPresenter::stateChanged(deployer::QVNInstallerState state) {
  output_(Event("state").number("state", state).text("text", deployer::getNameForState(state)).line());
}

void JsonPresenter::progressChanged(int percent) {
  output_(Event("progress").number("percent", asNumber(percent)).line());
}

void JsonPresenter::cancelAsked() { output_(Event("cancelling").line()); }

void JsonPresenter::end(const RunOutcome& outcome, const RunFacts& facts) {
  output_(Event("ended")
              .text("outcome", std::string(outcome.kind))
              .number("state", outcome.state)
              .text("text", outcome.text)
              .number("exitCode", asNumber(outcome.exitCode))
              .number("process", processIn(facts))
              .text("log", facts.logFile)
              .line());
}

}  // namespace frontend
