// The low-level functions: they compute and nothing else, while the library's newer interface loads providers by a
// configuration file and the environment.
#define OPENSSL_SUPPRESS_DEPRECATED

#include "general/foundation/SHA256.h"

#include <openssl/sha.h>

namespace foundation {

struct SHA256::State {
  SHA256_CTX context;
};

SHA256::SHA256() : state_(std::make_unique<State>()) { SHA256_Init(&state_->context); }

SHA256::~SHA256() = default;

void SHA256::update(std::span<const std::byte> piece) { SHA256_Update(&state_->context, piece.data(), piece.size()); }

SHA256::Digest SHA256::finish() {
  Digest digest;
  SHA256_Final(reinterpret_cast<unsigned char*>(digest.data()), &state_->context);
  SHA256_Init(&state_->context);
  return digest;
}

}  // namespace foundation
