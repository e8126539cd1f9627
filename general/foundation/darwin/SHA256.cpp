#include "general/foundation/SHA256.h"

#include <CommonCrypto/CommonDigest.h>

#include <algorithm>
#include <limits>

namespace foundation {

struct SHA256::State {
  CC_SHA256_CTX context;
};

SHA256::SHA256() : state_(std::make_unique<State>()) { CC_SHA256_Init(&state_->context); }

SHA256::~SHA256() = default;

void SHA256::update(std::span<const std::byte> piece) {
  // A length is 32 bits wide there.
  while (!piece.empty()) {
    const auto length = std::min<std::size_t>(piece.size(), std::numeric_limits<CC_LONG>::max());
    CC_SHA256_Update(&state_->context, piece.data(), static_cast<CC_LONG>(length));
    piece = piece.subspan(length);
  }
}

SHA256::Digest SHA256::finish() {
  Digest digest;
  CC_SHA256_Final(reinterpret_cast<unsigned char*>(digest.data()), &state_->context);
  CC_SHA256_Init(&state_->context);
  return digest;
}

}  // namespace foundation
