#include <gtest/gtest.h>

#include <string>
#include <string_view>

#include "general/foundation/Hexadecimal.h"
#include "general/foundation/SHA256.h"

using foundation::SHA256;
using foundation::hexadecimal::lowerCase;

namespace {

void feed(SHA256& hash, std::string_view text) { hash.update(std::as_bytes(std::span(text))); }

}  // namespace

TEST(SHA256, GivesTheStandardDigests) {
  SHA256 hash;
  EXPECT_EQ(lowerCase(hash.finish()), "e3b0c44298fc1c149afbf4c8996fb92427ae41e4649b934ca495991b7852b855");
  feed(hash, "abc");
  EXPECT_EQ(lowerCase(hash.finish()), "ba7816bf8f01cfea414140de5dae2223b00361a396177a9cb410ff61f20015ad");
  feed(hash, "abcdbcdecdefdefgefghfghighijhijkijkljklmklmnlmnomnopnopq");
  EXPECT_EQ(lowerCase(hash.finish()), "248d6a61d20638b8e5c026930c3e6039a33ce45964ff2167f6ecedd419db06c1");
}

TEST(SHA256, StartsOverAfterADigest) {
  SHA256 hash;
  feed(hash, "other");
  static_cast<void>(hash.finish());
  feed(hash, "abc");
  EXPECT_EQ(lowerCase(hash.finish()), "ba7816bf8f01cfea414140de5dae2223b00361a396177a9cb410ff61f20015ad");
}

TEST(SHA256, TheSizeOfThePiecesDoesNotMatter) {
  const std::string million(1'000'000, 'a');
  for (const std::size_t size : {std::size_t{1}, std::size_t{63}, std::size_t{64}, std::size_t{131'072}}) {
    SHA256 hash;
    for (std::size_t position = 0; position < million.size(); position += size) {
      feed(hash, std::string_view(million).substr(position, size));
    }
    EXPECT_EQ(lowerCase(hash.finish()), "cdc76e5c9914fb9281a1c7e284d73e67f1809a48a497200e046d39ccc7112cd0") << size;
  }
}
