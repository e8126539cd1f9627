#include <gtest/gtest.h>

#include <cstddef>
#include <span>
#include <string_view>

#include "InstallationDeployer/QVNInstallerChecksum.h"

namespace deployer {
namespace {

TEST(Checksum, OfNothingIsTheDigestOfNothing) {
  EXPECT_EQ(QVNInstallerChecksum::generateSHA256({}),
            "e3b0c44298fc1c149afbf4c8996fb92427ae41e4649b934ca495991b7852b855");
}

TEST(Checksum, OfAbcIsTheKnownDigestInLowerCase) {
  const std::string_view text = "abc";
  EXPECT_EQ(QVNInstallerChecksum::generateSHA256(std::as_bytes(std::span(text))),
            "ba7816bf8f01cfea414140de5dae2223b00361a396177a9cb410ff61f20015ad");
}

TEST(Checksum, OfADigestIsThatOfTheBytes) {
  const auto bytes = std::as_bytes(std::span(std::string_view("abc")));
  foundation::SHA256 hash;
  hash.update(bytes.first(1));
  hash.update(bytes.subspan(1));
  EXPECT_EQ(QVNInstallerChecksum::textForDigest(hash.finish()), QVNInstallerChecksum::generateSHA256(bytes));
}

}  // namespace
}  // namespace deployer
