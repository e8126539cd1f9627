#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <map>

namespace logging {

/// How many lines others may cause in the log: so many at once, and so many a second in the long run, for each of them
/// and for all together. What goes beyond is left out and counted. Use from one thread.
class LineBudget {
 public:
  using Clock = std::chrono::steady_clock;
  using Now = std::function<Clock::time_point()>;
  struct Allowance {
    double linesAtOnce;
    double linesPerSecond;
  };

  LineBudget(const Allowance& ofEach, const Allowance& ofAll, Now now = &Clock::now);

  /// Whether a line that this user causes may be written.
  [[nodiscard]] bool take(std::uint32_t user);
  /// How many may not have been since this was asked last.
  [[nodiscard]] std::size_t takeLeftOut();

 private:
  struct Share {
    double lines;
    Clock::time_point filled;
  };

  static void fill(Share& share, const Allowance& allowance, Clock::time_point now);
  void forgetTheIdle(Clock::time_point now);

  const Allowance ofEach_;
  const Allowance ofAll_;
  const Now now_;
  Share all_;
  std::map<std::uint32_t, Share> shares_;
  std::size_t leftOut_ = 0;
};

}  // namespace logging
