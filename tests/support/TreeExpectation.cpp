#include "tests/support/TreeExpectation.h"

#include <algorithm>
#include <sstream>

namespace support {
namespace {

std::string octal(mode_t mode) {
  std::ostringstream text;
  text << '0' << std::oct << mode;
  return text.str();
}

void compare(std::string& text, const char* what, const std::string& found, const std::string& wanted) {
  if (found != wanted) {
    text += (text.empty() ? "" : ", ") + std::string(what) + " " + found + " instead of " + wanted;
  }
}

}  // namespace

std::string differenceOf(const SnapshotEntry& found, const SnapshotEntry& wanted) {
  std::string text;
  compare(text, "type", std::string(1, found.type), std::string(1, wanted.type));
  compare(text, "owner", std::to_string(found.user), std::to_string(wanted.user));
  compare(text, "group", std::to_string(found.group), std::to_string(wanted.group));
  compare(text, "mode", octal(found.mode), octal(wanted.mode));
  if (found.type == wanted.type) {
    compare(text, "size", std::to_string(found.size), std::to_string(wanted.size));
    compare(text, "content", found.checksum, wanted.checksum);
    compare(text, "target", found.target, wanted.target);
  }
  return text;
}

TreeExpectation::TreeExpectation(const Snapshot& exactly) {
  for (const SnapshotEntry& entry : exactly) {
    require(entry);
  }
}

void TreeExpectation::require(const SnapshotEntry& entry) {
  shapes_[entry.path] = {entry};
  mayBeMissing_.erase(entry.path);
}

void TreeExpectation::allow(const SnapshotEntry& entry) { shapes_[entry.path].push_back(entry); }

void TreeExpectation::allowMissing(const std::string& path) { mayBeMissing_.insert(path); }

void TreeExpectation::forbid(const std::string& path) {
  shapes_.erase(path);
  mayBeMissing_.erase(path);
}

bool TreeExpectation::allows(const SnapshotEntry& entry) const {
  const auto shapes = shapes_.find(entry.path);
  return shapes != shapes_.end() && std::ranges::find(shapes->second, entry) != shapes->second.end();
}

std::string TreeExpectation::differences(const Snapshot& found) const {
  std::string text;
  std::set<std::string> seen;
  for (const SnapshotEntry& entry : found) {
    seen.insert(entry.path);
    const auto shapes = shapes_.find(entry.path);
    if (shapes == shapes_.end()) {
      text += entry.path + ": should not be there (type " + std::string(1, entry.type) + ")\n";
    } else if (!allows(entry)) {
      text += entry.path + ": " + differenceOf(entry, shapes->second.back()) + "\n";
    }
  }
  for (const auto& [path, shapes] : shapes_) {
    if (!seen.contains(path) && !mayBeMissing_.contains(path)) {
      text += path + ": missing\n";
    }
  }
  return text;
}

}  // namespace support
