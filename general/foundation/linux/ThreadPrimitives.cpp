#include "general/foundation/ThreadPrimitives.h"

#include <pthread.h>

namespace foundation {

namespace {

constexpr std::size_t kLongestKernelName = 15;

}  // namespace

void setSystemThreadName(const std::string& name) {
  pthread_setname_np(pthread_self(), name.substr(0, kLongestKernelName).c_str());
}

}  // namespace foundation
