#include "general/foundation/ThreadPrimitives.h"

#include <pthread.h>

namespace foundation {

namespace {

constexpr std::size_t kLongestKernelName = 63;

}  // namespace

void setSystemThreadName(const std::string& name) { pthread_setname_np(name.substr(0, kLongestKernelName).c_str()); }

}  // namespace foundation
