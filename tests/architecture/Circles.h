#pragma once

#include <set>
#include <string>
#include <vector>

#include "tests/architecture/ProductTree.h"

namespace architecture {

/// Everything that can be reached from a name, the name itself only through a circle.
std::set<std::string> reachedFrom(const Graph& graph, const std::string& start);

/// The circles of a graph: for each, all names that reach each other.
std::vector<std::set<std::string>> circlesOf(const Graph& graph);

/// "a, b and c": names in a message.
std::string listed(const std::set<std::string>& names);

}  // namespace architecture
