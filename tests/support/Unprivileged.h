#pragma once

#include <unistd.h>

#include <cstdlib>

namespace tests {

/// Without the rights of root while it lives, so that permissions count.
class Unprivileged {
 public:
  Unprivileged() : before_(geteuid()) { changed_ = before_ != 0 || seteuid(kNobody) == 0; }
  ~Unprivileged() {
    if (before_ == 0 && seteuid(0) != 0) {
      std::abort();
    }
  }
  Unprivileged(const Unprivileged&) = delete;
  Unprivileged& operator=(const Unprivileged&) = delete;
  [[nodiscard]] bool changed() const { return changed_; }

 private:
  static constexpr uid_t kNobody = 65534;
  uid_t before_;
  bool changed_;
};

}  // namespace tests
