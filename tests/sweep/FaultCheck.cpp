#include "tests/sweep/FaultCheck.h"

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <sstream>

namespace sweep {
namespace {

using support::EngineRole;
using support::Fault;
using support::FaultOutcome;
using support::FaultyRun;

constexpr const char* kJournals = "/var/db/com.corvane.installer/";
constexpr const char* kCaches = "/Library/Caches/";
constexpr const char* kSockets = "/run/com.corvane.installer";

support::RunOptions limited(std::chrono::seconds limit) {
  support::RunOptions options;
  options.limit = limit;
  return options;
}

bool isTemporary(const std::string& path) {
  return path.find("/.com.corvane.installer.") != std::string::npos || path.find("/temp") != std::string::npos;
}

/// What users see: the sockets of processes and the folder of the journals are none of it.
bool isShown(const std::string& path) {
  return !path.starts_with(kSockets) && !path.starts_with("/var/db") && path != "/run/programs";
}

/// The folder of the receipts stays when it was there before a product was.
bool isFolderOfReceipts(const std::string& path) {
  return path == "/Library/Application Support/Corvane" || path == "/Library/Caches/com.corvane.installer";
}

Tree shown(const Tree& tree) {
  Tree result;
  std::ranges::copy_if(tree, std::inserter(result, result.end()),
                       [](const auto& entry) { return isShown(entry.first) && !isFolderOfReceipts(entry.first); });
  return result;
}

/// The services that the run says it could not load or unload: nothing else depends on them.
std::set<std::string> servicesGivenUp(const std::string& log, const std::set<std::string>& known) {
  std::set<std::string> services;
  const bool agentsAreLeftAlone = log.find("Launch agents are left alone.") != std::string::npos;
  for (const std::string& service : known) {
    if (agentsAreLeftAlone && service.starts_with("/Library/LaunchAgents/")) {
      services.insert(service);
    }
    const std::size_t name = service.rfind('/') + 1;
    const std::string label = service.substr(name, service.size() - name - std::string_view(".plist").size());
    for (const char* kind : {"daemon ", "agent "}) {
      if (log.find("<Error>: Failed to launch " + (kind + label) + ". Continuing.") != std::string::npos) {
        services.insert(service);
      }
    }
  }
  return services;
}

std::vector<std::string> errorsIn(const std::string& log) {
  std::istringstream lines(log);
  std::vector<std::string> errors;
  for (std::string line; std::getline(lines, line);) {
    const auto error = line.find("<Error>: ");
    if (error != std::string::npos) {
      errors.push_back(line.substr(error + 9));
    }
  }
  return errors;
}

/// What the Error lines say, or the last line where there is none.
std::string lastWords(const std::string& log) {
  constexpr std::size_t kEnough = 600;
  std::string words;
  for (const std::string& error : errorsIn(log)) {
    words += words.size() < kEnough ? (words.empty() ? "" : " | ") + error : "";
  }
  if (words.empty() && !log.empty()) {
    const auto line = log.rfind('\n', log.size() - 2);
    words = "last line: " + log.substr(line == std::string::npos ? 0 : line + 1);
  }
  return words;
}

/// Whether an Error line names a thing: a path, or a service, component, product or program by its name.
bool namesAThing(const std::string& log) {
  return std::ranges::any_of(errorsIn(log), [](const std::string& error) {
    constexpr std::array<std::string_view, 4> kNames = {"/", "com.corvane", "component ", "\""};
    return std::ranges::any_of(kNames, [&](std::string_view name) { return error.find(name) != std::string::npos; });
  });
}

/// Whether the run says that there was no memory, which belongs to no thing in particular.
bool saysThatMemoryLacks(const std::string& log) {
  // On a line of its own where there was none for the log either.
  return log.find("std::bad_alloc") != std::string::npos ||
         std::ranges::any_of(errorsIn(log), [](const std::string& error) {
           return error.find("Cannot allocate memory") != std::string::npos;
         });
}

/// The uppermost temporary item that a path belongs to; empty when it belongs to none.
std::string temporaryOf(const std::string& path) {
  std::size_t slash = 0;
  while (slash != std::string::npos) {
    slash = path.find('/', slash + 1);
    if (isTemporary(path.substr(0, slash))) {
      return path.substr(0, slash);
    }
  }
  return {};
}

/// What a run could not take away may stay when an Error line says where it is.
Machine withoutNamedLeftovers(Machine machine, const std::string& log) {
  const std::vector<std::string> errors = errorsIn(log);
  std::erase_if(machine.tree, [&](const auto& entry) {
    const std::string top = temporaryOf(entry.first);
    return !top.empty() &&
           std::ranges::any_of(errors, [&](const std::string& error) { return error.find(top) != std::string::npos; });
  });
  return machine;
}

}  // namespace

std::string_view nameOfWrong(Wrong wrong) {
  constexpr std::array<std::string_view, kWrongs> kNames = {"ended with 0, but",  "waited for ever", "aborted", "torn",
                                                            "next run not whole", "unnamed error"};
  return kNames[static_cast<std::size_t>(wrong)];
}

FaultCheck::FaultCheck(support::PrivateRoot& root, const Flow& flow, std::chrono::seconds limit)
    : root_(root), flow_(flow), limit_(limit), store_(root) {}

std::vector<FaultPoint> FaultCheck::points() {
  Fault never;
  for (const support::CallKind& kind : support::callKinds()) {
    never.calls.insert(never.calls.end(), kind.numbers.begin(), kind.numbers.end());
  }
  const FaultOutcome outcome = run(never);
  if (!outcome.outcome.succeeded()) {
    throw std::runtime_error("an undisturbed run fails: " + outcome.outcome.description());
  }
  std::vector<FaultPoint> points;
  for (const support::CallKind& kind : support::callKinds()) {
    std::array<unsigned long, support::kEngineRoles> seen{};
    for (const long call : kind.numbers) {
      const auto counted = outcome.callsSeen.find(call);
      for (std::size_t role = 0; counted != outcome.callsSeen.end() && role < seen.size(); ++role) {
        seen[role] += counted->second[role];
      }
    }
    for (std::size_t role = 0; role < seen.size(); ++role) {
      for (unsigned long number = 1; number <= seen[role]; ++number) {
        for (const int error : kind.errors) {
          points.push_back({flow_.name, std::string(kind.name), static_cast<EngineRole>(role), number, error});
        }
      }
    }
  }
  return points;
}

std::vector<FaultPoint> FaultCheck::allocationPoints() {
  Fault never;
  never.isAllocation = true;
  const FaultOutcome outcome = run(never);
  if (!outcome.outcome.succeeded()) {
    throw std::runtime_error("an undisturbed run fails: " + outcome.outcome.description());
  }
  std::vector<FaultPoint> points;
  for (std::size_t role = 0; role < outcome.allocationsSeen.size(); ++role) {
    for (unsigned long number = 1; number <= outcome.allocationsSeen[role]; ++number) {
      points.push_back({flow_.name, FaultPoint::kAllocation, static_cast<EngineRole>(role), number, ENOMEM});
    }
  }
  return points;
}

support::FaultOutcome FaultCheck::run(const Fault& fault) {
  store_.put(flow_.start);
  FaultyRun run(root_, flow_.command.arguments(), fault, limited(limit_));
  if (flow_.command.isWatched) {
    watch(run);
  }
  const auto helper = flow_.helper ? help(run) : std::nullopt;
  return run.finish();
}

void FaultCheck::watch(FaultyRun& run) {
  // As a front end does: it waits for the service, and connects again when the connection is lost.
  if (!run.program().waitForStandardError("posting com.corvane.installer.deployer.started")) {
    return;
  }
  const std::string process = std::to_string(run.program().process());
  support::RunOptions options = limited(limit_);
  constexpr int kAttempts = 20;
  for (int attempt = 0; attempt < kAttempts && run.program().isRunning(); ++attempt) {
    static_cast<void>(root_.run({kWatcher, process, "observe", "follow", "shutdown"}, options));
  }
}

/// A run that could not start what it needs and waits for somebody who does: somebody does.
std::optional<support::RunningProgram> FaultCheck::help(FaultyRun& run) {
  if (!run.program().waitForStandardError(flow_.helper->asked)) {
    return std::nullopt;
  }
  return root_.start(flow_.helper->command.arguments(), limited(limit_));
}

Verdict FaultCheck::check(const FaultPoint& point) {
  verdict_ = {};
  const Fault fault = point.fault();
  const FaultOutcome outcome = run(fault);
  verdict_.reached = outcome.reached;
  verdict_.call = outcome.call;
  verdict_.log = outcome.outcome.standardError;
  excused_ = servicesGivenUp(verdict_.log, flow_.start.services);
  excused_.merge(servicesGivenUp(verdict_.log, flow_.result.services));
  const Machine left = store_.take(flow_.start);
  judgeEnd(fault, outcome, left);
  judgeTree(left);
  judgeWays(left);
  return std::move(verdict_);
}

void FaultCheck::judgeEnd(const Fault& fault, const FaultOutcome& outcome, const Machine& left) {
  const int code = outcome.outcome.exitCode;
  if (outcome.outcome.timedOut) {
    add(Wrong::WaitedForEver, "did not end; " + lastWords(outcome.outcome.standardError));
    return;
  }
  if (!outcome.leftNobody) {
    add(Wrong::WaitedForEver, "left a process behind");
  }
  if (code == 0) {
    const std::string wrong = differenceFrom(flow_.result, withoutNamedLeftovers(left, outcome.outcome.standardError));
    if (!wrong.empty()) {
      add(Wrong::SuccessUntrue, wrong + " (" + lastWords(outcome.outcome.standardError) + ")");
    }
  } else if (code != 1 && code != 3 && code != 4) {
    add(Wrong::Aborted, outcome.outcome.description().substr(0, 12) + "; " + lastWords(outcome.outcome.standardError));
  } else if (!namesAThing(outcome.outcome.standardError) &&
             !(fault.isAllocation && saysThatMemoryLacks(outcome.outcome.standardError))) {
    add(Wrong::Unnamed, "ended with " + std::to_string(code) + "; " + lastWords(outcome.outcome.standardError));
  }
}

void FaultCheck::judgeTree(const Machine& left) {
  for (const auto& [path, item] : shown(left.tree)) {
    if (!isOfAVersion(path, item) && !isTemporary(path) && !path.starts_with(kCaches)) {
      add(Wrong::Torn, difference({{path, item}}, {}));
    }
  }
}

bool FaultCheck::isOfAVersion(const std::string& path, const Item& item) const {
  if (path == kConfiguration && item.text().starts_with("default")) {
    return true;  // while the user's own waits elsewhere
  }
  const auto hasIt = [&](const Machine& machine) {
    const auto known = machine.tree.find(path);
    return known != machine.tree.end() && known->second == item;
  };
  return hasIt(flow_.start) || hasIt(flow_.result) ||
         std::ranges::any_of(flow_.ways, [&](const Way& way) { return hasIt(way.result); });
}

void FaultCheck::judgeWays(const Machine& left) {
  const auto [known, isNew] =
      known_.try_emplace(excused_.empty() ? left.hash() : left.hash() ^ std::hash<std::string>()(verdict_.log));
  if (isNew) {
    known->second = waysFrom(left);
  }
  verdict_.findings.insert(verdict_.findings.end(), known->second.begin(), known->second.end());
}

std::vector<Finding> FaultCheck::waysFrom(const Machine& left) {
  std::vector<Finding> findings;
  for (const Way& way : flow_.ways) {
    if (const auto wrong = goOn(way, left)) {
      findings.push_back({Wrong::NextRunNotWhole, way.name + ": " + *wrong});
    }
  }
  return findings;
}

std::optional<std::string> FaultCheck::goOn(const Way& way, const Machine& left) {
  store_.put(left);
  std::vector<Command> commands = way.commands;
  // A product without a receipt is first installed, as its own removal is not there yet.
  const bool canRun =
      std::ranges::all_of(commands, [&](const Command& command) { return root_.exists(command.engine); });
  if (!canRun && flow_.name != "removal") {
    Command again = flow_.command;
    again.isWatched = false;
    std::erase(again.options, "--ui");
    commands.insert(commands.begin(), again);
  } else if (!canRun) {
    commands.clear();
  }
  for (const Command& command : commands) {
    const support::Outcome outcome = root_.run(command.arguments(), limited(limit_));
    if (!outcome.succeeded()) {
      return outcome.description().substr(0, 12) + "; " + lastWords(outcome.standardError);
    }
  }
  Machine reached = store_.take(left);
  if (commands.empty()) {
    // There is nobody any more who could take away what the run named.
    reached = withoutNamedLeftovers(std::move(reached), verdict_.log);
    std::erase_if(reached.tree, [](const auto& entry) { return entry.first.starts_with(kJournals); });
  }
  const std::string wrong = differenceFrom(way.result, reached);
  return wrong.empty() ? std::nullopt : std::optional("ended with 0, but " + wrong);
}

/// A default that an earlier run left is the user's from then on.
void FaultCheck::acceptSettings(const Tree& found, Tree& wanted) const {
  const auto there = found.find(kConfiguration);
  const auto expected = wanted.find(kConfiguration);
  if (there == found.end() || expected == wanted.end() || !there->second.text().starts_with("default")) {
    return;
  }
  if (flow_.mayLoseSettings || expected->second.text().starts_with("default")) {
    expected->second = there->second;
  }
}

std::string FaultCheck::differenceFrom(const Machine& wanted, const Machine& found) const {
  Tree wantedTree = shown(wanted.tree);
  const Tree foundTree = shown(found.tree);
  acceptSettings(foundTree, wantedTree);
  std::string text = difference(foundTree, wantedTree);
  for (const auto& [path, item] : found.tree) {
    if (path.starts_with(kJournals)) {
      text += "; a journal is left: " + path;
    }
  }
  for (const std::string& service : wanted.services) {
    const bool isExcused = excused_.contains(service);
    text += isExcused || found.services.contains(service) ? "" : "; not loaded: " + service;
  }
  for (const std::string& service : found.services) {
    const bool isExcused = excused_.contains(service);
    text += isExcused || wanted.services.contains(service) ? "" : "; still loaded: " + service;
  }
  return text;
}

}  // namespace sweep
