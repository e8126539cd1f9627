#include "frontend/JsonPresenter.h"

#include <string>

#include "general/terminal/JsonWriter.h"

namespace frontend {

using terminal::JsonWriter;

namespace {

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

void JsonPresenter::begin(const RunFacts& facts) {
  const char* const name = facts.purpose == Purpose::Watch ? "connecting" : "started";
  output_(Event(name).number("process", processIn(facts)).text("log", facts.logFile).line());
}

void JsonPresenter::watching(int processIdentifier) {
  output_(Event("watching").number("process", asNumber(processIdentifier)).line());
}

void JsonPresenter::unreachable() { output_(Event("unreachable").line()); }

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
