#include "tests/sweep/FaultPoint.h"

#include <algorithm>
#include <cstdint>
#include <map>
#include <set>
#include <sstream>
#include <stdexcept>
#include <utility>

namespace sweep {
namespace {

using support::EngineRole;

std::optional<EngineRole> roleNamed(const std::string& name) {
  for (const EngineRole role : {EngineRole::Engine, EngineRole::Receipt, EngineRole::Nested}) {
    if (support::nameOfRole(role) == name) {
      return role;
    }
  }
  return std::nullopt;
}

/// FNV-1a: the same on every machine.
std::uint64_t hashOf(const std::string& text) {
  std::uint64_t sum = 14695981039346656037U;
  for (const char letter : text) {
    sum = (sum ^ static_cast<unsigned char>(letter)) * 1099511628211U;
  }
  return sum;
}

}  // namespace

const support::CallKind& kindNamed(const std::string& name) {
  const auto kind = std::ranges::find(support::callKinds(), name, &support::CallKind::name);
  if (kind == support::callKinds().end()) {
    throw std::invalid_argument("no kind of calls is named " + name);
  }
  return *kind;
}

std::string FaultPoint::text() const {
  std::ostringstream text;
  text << flow << ' ' << support::nameOfRole(role) << ' ' << kind << ' ' << number << ' '
       << support::nameOfError(error);
  return text.str();
}

std::optional<FaultPoint> FaultPoint::fromText(const std::string& text) {
  std::istringstream words(text);
  FaultPoint point;
  std::string role;
  std::string error;
  if (!(words >> point.flow >> role >> point.kind >> point.number >> error) || !roleNamed(role) ||
      !support::errorNamed(error)) {
    return std::nullopt;
  }
  point.role = *roleNamed(role);
  point.error = *support::errorNamed(error);
  return point;
}

support::Fault FaultPoint::fault() const {
  support::Fault made{{}, role, number, error, kind == kAllocation};
  if (!made.isAllocation) {
    made.calls = kindNamed(kind).numbers;
  }
  return made;
}

void mix(std::vector<FaultPoint>& points) {
  std::map<std::pair<std::uint64_t, std::string>, FaultPoint> mixed;
  for (const FaultPoint& point : points) {
    const std::string text = point.text();
    mixed.emplace(std::pair(hashOf(text), text), point);
  }
  points.clear();
  for (const auto& [order, point] : mixed) {
    points.push_back(point);
  }
}

std::vector<FaultPoint> firstOfEachKind(const std::vector<FaultPoint>& points) {
  std::set<std::pair<std::string, EngineRole>> seen;
  std::vector<FaultPoint> chosen;
  for (const FaultPoint& point : points) {
    if (seen.emplace(point.kind, point.role).second) {
      chosen.push_back(point);
    }
  }
  return chosen;
}

}  // namespace sweep
