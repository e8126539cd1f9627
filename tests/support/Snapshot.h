#pragma once

#include <sys/types.h>

#include <cstdint>
#include <iosfwd>
#include <string>
#include <vector>

namespace support {

/// One item of a tree, with everything that two equal trees have in common (times are not among it).
struct SnapshotEntry {
  std::string path;  ///< as seen inside the private root
  char type = '?';   ///< as ls shows it: d, -, l, p, s, c, b
  mode_t mode = 0;   ///< the twelve permission bits
  uid_t user = 0;
  gid_t group = 0;
  std::uint64_t size = 0;  ///< of files and links; 0 for everything else
  std::string target;      ///< of a link
  std::string checksum;    ///< of a regular file: SHA-256 in hexadecimal

  bool operator==(const SnapshotEntry&) const = default;
};

/// The letter of a kind of item, as ls shows it.
[[nodiscard]] char typeLetter(mode_t mode);

/// Prints an entry in one line; tests print snapshots with it when two differ.
std::ostream& operator<<(std::ostream& stream, const SnapshotEntry& entry);

using Snapshot = std::vector<SnapshotEntry>;

/// Everything at and below `path` (of the directory `outside`), sorted by path, links not followed and other
/// file systems mounted below not entered. Empty when there is nothing.
[[nodiscard]] Snapshot takeSnapshot(const std::string& outside, const std::string& path);
/// What one has and the other has not, one line each; empty when they are equal.
[[nodiscard]] std::string difference(const Snapshot& found, const Snapshot& wanted);
/// For people: mode, owner, group, size, path; one line each, checksums left out.
[[nodiscard]] std::string listing(const Snapshot& snapshot);

}  // namespace support
