#include "tests/architecture/Circles.h"

#include <algorithm>

namespace architecture {

std::set<std::string> reachedFrom(const Graph& graph, const std::string& start) {
  std::set<std::string> reached;
  std::vector<std::string> open = {start};
  while (!open.empty()) {
    const auto found = graph.find(open.back());
    open.pop_back();
    if (found == graph.end()) {
      continue;
    }
    for (const std::string& next : found->second) {
      if (reached.insert(next).second) {
        open.push_back(next);
      }
    }
  }
  return reached;
}

std::vector<std::set<std::string>> circlesOf(const Graph& graph) {
  std::map<std::string, std::set<std::string>> reached;
  for (const auto& [name, targets] : graph) {
    reached[name] = reachedFrom(graph, name);
  }
  std::vector<std::set<std::string>> circles;
  for (const auto& [name, others] : reached) {
    std::set<std::string> circle;
    std::ranges::copy_if(others, std::inserter(circle, circle.end()), [&, &from = name](const std::string& other) {
      const auto back = reached.find(other);
      return back != reached.end() && back->second.contains(from);
    });
    // Each name of a circle finds the same one: the first of them reports it.
    if (!circle.empty() && *circle.begin() == name) {
      circles.push_back(circle);
    }
  }
  return circles;
}

std::string listed(const std::set<std::string>& names) {
  std::string text;
  for (const std::string& name : names) {
    const bool first = name == *names.begin();
    const bool last = name == *names.rbegin();
    text += (first ? "" : last ? " and " : ", ") + name;
  }
  return text;
}

}  // namespace architecture
