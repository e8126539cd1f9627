#pragma once

#include <optional>
#include <string>
#include <vector>

#include "tests/support/CallKinds.h"
#include "tests/support/FaultyRun.h"

namespace sweep {

/// One failing call of one flow, or one failing allocation of memory.
struct FaultPoint {
  static constexpr const char* kAllocation = "allocation";  ///< the kind that is none of calls; fails with ENOMEM

  std::string flow;
  std::string kind;
  support::EngineRole role = support::EngineRole::Engine;
  unsigned long number = 0;
  int error = 0;

  /// "upgrade engine rename 12 EIO", as the sweep takes it to repeat it.
  [[nodiscard]] std::string text() const;
  [[nodiscard]] static std::optional<FaultPoint> fromText(const std::string& text);
  /// Throws std::invalid_argument when no kind of calls has the name.
  [[nodiscard]] support::Fault fault() const;
};

/// Puts points into an order that has a bit of everything from its beginning on, the same every time.
void mix(std::vector<FaultPoint>& points);
/// The first point of each kind of call and role, of points that were mixed.
[[nodiscard]] std::vector<FaultPoint> firstOfEachKind(const std::vector<FaultPoint>& points);
/// The kind of a point. Throws std::invalid_argument when there is none of that name.
[[nodiscard]] const support::CallKind& kindNamed(const std::string& name);

}  // namespace sweep
