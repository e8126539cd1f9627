#pragma once

#include <cstddef>
#include <span>
#include <string>

#include "general/foundation/SHA256.h"

namespace deployer {

/// The text form of a file's checksum, the same when manifests are written and when files are checked against them.
class QVNInstallerChecksum {
 public:
  /// SHA-256 of the bytes as 64 lowercase hexadecimal digits. No bytes, or no file, give the digest of nothing.
  [[nodiscard]] static std::string generateSHA256(std::span<const std::byte> data);
  /// The text for a digest that was computed piece by piece.
  [[nodiscard]] static std::string textForDigest(const foundation::SHA256::Digest& digest);
};

}  // namespace deployer
