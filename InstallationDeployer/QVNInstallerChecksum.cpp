#include "InstallationDeployer/QVNInstallerChecksum.h"

#include "general/foundation/Hexadecimal.h"

namespace deployer {

std::string QVNInstallerChecksum::generateSHA256(std::span<const std::byte> data) {
  foundation::SHA256 hash;
  hash.update(data);
  return textForDigest(hash.finish());
}

std::string QVNInstallerChecksum::textForDigest(const foundation::SHA256::Digest& digest) {
  return foundation::hexadecimal::lowerCase(digest);
}

}  // namespace deployer
