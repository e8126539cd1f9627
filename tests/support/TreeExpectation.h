#pragma once

#include <map>
#include <set>
#include <string>
#include <vector>

#include "tests/support/Snapshot.h"

namespace support {

/// A tree as it should be, where some items may have one of several shapes or may be missing.
class TreeExpectation {
 public:
  TreeExpectation() = default;
  explicit TreeExpectation(const Snapshot& exactly);

  /// The item must be there, and exactly so.
  void require(const SnapshotEntry& entry);
  /// One more shape that the item may have.
  void allow(const SnapshotEntry& entry);
  /// The item may be missing as well.
  void allowMissing(const std::string& path);
  /// The item must not be there.
  void forbid(const std::string& path);

  /// What is not as it should be: a line for each item, which names it and what it has instead of what; empty when
  /// everything is.
  [[nodiscard]] std::string differences(const Snapshot& found) const;
  /// Whether an item of this shape may be found.
  [[nodiscard]] bool allows(const SnapshotEntry& entry) const;

 private:
  std::map<std::string, std::vector<SnapshotEntry>> shapes_;
  std::set<std::string> mayBeMissing_;
};

/// What one item has instead of what the other has: "mode 0644 instead of 0640"; empty when they are equal.
[[nodiscard]] std::string differenceOf(const SnapshotEntry& found, const SnapshotEntry& wanted);

}  // namespace support
