#pragma once

#include <sys/resource.h>

#include <stdexcept>

namespace tests {

/// While it lives, this process can open nothing: every new descriptor is refused with EMFILE. What is open stays so.
class NoDescriptors {
 public:
  NoDescriptors() {
    if (getrlimit(RLIMIT_NOFILE, &before_) != 0) {
      throw std::runtime_error("cannot ask for the limit of descriptors");
    }
    set(0);
  }
  ~NoDescriptors() { set(before_.rlim_cur); }
  NoDescriptors(const NoDescriptors&) = delete;
  NoDescriptors& operator=(const NoDescriptors&) = delete;

 private:
  void set(rlim_t most) const {
    const rlimit limit{most, before_.rlim_max};
    setrlimit(RLIMIT_NOFILE, &limit);
  }

  rlimit before_{};
};

}  // namespace tests
