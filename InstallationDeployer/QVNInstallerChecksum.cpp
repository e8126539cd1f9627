#include "InstallationDeployer/QVNInstallerChecksum.h"

namespace deployer {

std::string QVNInstallerChecksum::generateSHA256(std::span<const std::byte> data) {
  foundation::SHA256 hash;
  hash.update(data);
  return textForDigest(hash.finish());
}

std::string QVNInstallerChecksum::textForDigest(const foundation::SHA256::Digest& digest) {
  constexpr std::string_view kDigits = "0123456789abcdef";
  std::string text;
  text.reserve(2 * digest.size());
  for (const std::byte byte : digest) {
    text += kDigits[std::to_integer<std::size_t>(byte >> 4)];
    text += kDigits[std::to_integer<std::size_t>(byte & std::byte{0x0F})];
  }
  return text;
}

}  // namespace deployer
