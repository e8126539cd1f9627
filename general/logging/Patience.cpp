#include "general/logging/Patience.h"

#include <poll.h>

#include <cerrno>

namespace logging {

namespace {

// A full pipe may still have room for less than a page at its end.
constexpr std::size_t kProofOfAReader = 4096;

}  // namespace

bool Patience::waitToWrite(int descriptor) {
  using Clock = std::chrono::steady_clock;
  const auto left = std::chrono::ceil<std::chrono::milliseconds>(whole_ - spent_);
  if (left.count() <= 0) {
    return false;
  }
  const auto start = Clock::now();
  pollfd watched{descriptor, POLLOUT, 0};
  const int ready = poll(&watched, 1, static_cast<int>(left.count()));
  const int number = errno;
  spent_ += Clock::now() - start;
  return ready > 0 || (ready < 0 && number == EINTR);
}

void Patience::take(std::size_t bytes) {
  taken_ += spent_.count() > 0 ? bytes : 0;
  if (taken_ >= kProofOfAReader) {
    renew();
  }
}

}  // namespace logging
