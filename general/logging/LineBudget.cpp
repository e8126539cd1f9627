#include "general/logging/LineBudget.h"

#include <algorithm>
#include <utility>

namespace logging {

namespace {

// Beyond it those are forgotten who have their whole allowance again.
constexpr std::size_t kMostUsersRemembered = 64;

}  // namespace

LineBudget::LineBudget(const Allowance& ofEach, const Allowance& ofAll, Now now)
    : ofEach_(ofEach), ofAll_(ofAll), now_(std::move(now)), all_{ofAll.linesAtOnce, now_()} {}

bool LineBudget::take(std::uint32_t user) {
  const Clock::time_point now = now_();
  if (shares_.size() >= kMostUsersRemembered) {
    forgetTheIdle(now);
  }
  Share& share = shares_.try_emplace(user, Share{ofEach_.linesAtOnce, now}).first->second;
  fill(share, ofEach_, now);
  fill(all_, ofAll_, now);
  if (share.lines < 1 || all_.lines < 1) {
    ++leftOut_;
    return false;
  }
  --share.lines;
  --all_.lines;
  return true;
}

std::size_t LineBudget::takeLeftOut() { return std::exchange(leftOut_, 0); }

void LineBudget::fill(Share& share, const Allowance& allowance, Clock::time_point now) {
  const double seconds = std::chrono::duration<double>(now - share.filled).count();
  share.lines = std::min(allowance.linesAtOnce, share.lines + seconds * allowance.linesPerSecond);
  share.filled = now;
}

void LineBudget::forgetTheIdle(Clock::time_point now) {
  std::erase_if(shares_, [&](const auto& remembered) {
    Share share = remembered.second;
    fill(share, ofEach_, now);
    return share.lines >= ofEach_.linesAtOnce;
  });
}

}  // namespace logging
