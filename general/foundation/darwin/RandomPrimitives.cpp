#include "general/foundation/RandomPrimitives.h"

#include <stdlib.h>

namespace foundation {

void fillWithRandomBytes(std::span<std::byte> memory) { arc4random_buf(memory.data(), memory.size()); }

}  // namespace foundation
