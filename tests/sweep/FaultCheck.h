#pragma once

#include <array>
#include <chrono>
#include <optional>
#include <set>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "tests/support/FaultyRun.h"
#include "tests/sweep/FaultPoint.h"
#include "tests/sweep/Flows.h"

namespace sweep {

/// What a run that met a failing call must not do.
enum class Wrong {
  SuccessUntrue,    ///< ended with 0, but tree, receipt or services are not those of a finished run
  WaitedForEver,    ///< did not end by itself, or left a process behind
  Aborted,          ///< ended by a signal, or with a number that is no state of its own
  Torn,             ///< something shows that is of no version
  NextRunNotWhole,  ///< one of the ways on does not end with 0 and its tree
  Unnamed           ///< failed without an Error line that names a thing
};
inline constexpr std::size_t kWrongs = 6;
[[nodiscard]] std::string_view nameOfWrong(Wrong wrong);

struct Finding {
  Wrong wrong = Wrong::SuccessUntrue;
  std::string text;
};

struct Verdict {
  bool reached = false;
  std::string call;  ///< the call that failed
  std::vector<Finding> findings;
  std::string log;  ///< what the run said
};

/// Lets calls of one flow fail, and looks at what comes of it and at every way on.
class FaultCheck {
 public:
  static constexpr const char* kWatcher = "/run/status-watcher";
  static constexpr std::chrono::seconds kLimit{10};

  /// @param limit what counts as for ever: a run has to end by itself within it.
  FaultCheck(support::PrivateRoot& root, const Flow& flow, std::chrono::seconds limit = kLimit);

  /// How many calls of each kind an undisturbed run makes: one point for each call and error.
  [[nodiscard]] std::vector<FaultPoint> points();
  /// The same for allocations of memory. How many there are differs by some from run to run, for threads take turns.
  [[nodiscard]] std::vector<FaultPoint> allocationPoints();
  [[nodiscard]] Verdict check(const FaultPoint& point);

 private:
  support::FaultOutcome run(const support::Fault& fault);
  void watch(support::FaultyRun& run);
  std::optional<support::RunningProgram> help(support::FaultyRun& run);
  void judgeEnd(const support::Fault& fault, const support::FaultOutcome& outcome, const Machine& left);
  void judgeTree(const Machine& left);
  [[nodiscard]] bool isOfAVersion(const std::string& path, const Item& item) const;
  void judgeWays(const Machine& left);
  std::vector<Finding> waysFrom(const Machine& left);
  std::optional<std::string> goOn(const Way& way, const Machine& left);
  void acceptSettings(const Tree& found, Tree& wanted) const;
  std::string differenceFrom(const Machine& wanted, const Machine& found) const;
  void add(Wrong wrong, const std::string& text) { verdict_.findings.push_back({wrong, text}); }

  support::PrivateRoot& root_;
  const Flow& flow_;
  const std::chrono::seconds limit_;
  MachineStore store_;
  Verdict verdict_;
  std::set<std::string> excused_;  ///< services that the run could not load, and said so, as it should
  /// Many faults come to the same state, from which there is nothing new to see.
  std::unordered_map<std::size_t, std::vector<Finding>> known_;
};

}  // namespace sweep
