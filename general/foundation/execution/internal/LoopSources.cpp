#include "general/foundation/execution/internal/LoopSources.h"

#include <poll.h>

#include <algorithm>
#include <cerrno>
#include <thread>
#include <utility>

namespace foundation {

namespace {

using std::chrono::milliseconds;
using TimePoint = LoopSources::Clock::time_point;

// Where the system cannot wait for descriptors.
constexpr milliseconds kPauseWithoutPoll{10};

TimePoint later(TimePoint start, milliseconds interval) {
  if (interval >= std::chrono::duration_cast<milliseconds>(TimePoint::max() - start)) {
    return TimePoint::max();
  }
  return start + std::max(interval, milliseconds::zero());
}

std::shared_ptr<const LoopSources::Handler> share(LoopSources::Handler handler) {
  return std::make_shared<const LoopSources::Handler>(std::move(handler));
}

void call(const LoopSources::Handler& handler) {
  if (handler) {
    handler();
  }
}

}  // namespace

/// Keeps inner turns from a timer whose handler runs.
class LoopSources::RunningMark {
 public:
  RunningMark(std::map<Number, Timer>& timers, Number source) : timers_(timers), source_(source) { set(true); }
  ~RunningMark() { set(false); }
  RunningMark(const RunningMark&) = delete;
  RunningMark& operator=(const RunningMark&) = delete;

 private:
  void set(bool running) {
    if (const auto timer = timers_.find(source_); timer != timers_.end()) {
      timer->second.running = running;
    }
  }
  std::map<Number, Timer>& timers_;
  Number source_;
};

LoopSources::Number LoopSources::addTimer(milliseconds interval, bool repeats, Handler handler) {
  timers_.emplace(++last_, Timer{later(Clock::now(), interval), interval, repeats, false, share(std::move(handler))});
  return last_;
}

LoopSources::Number LoopSources::addDescriptor(int descriptor, short events, Handler handler) {
  watches_.emplace(++last_, Watch{descriptor, events, share(std::move(handler))});
  return last_;
}

void LoopSources::remove(Number source) {
  // Out of the maps before it is destroyed: what a handler holds may remove further sources.
  const auto timer = timers_.extract(source);
  const auto watch = watches_.extract(source);
}

TimePoint LoopSources::nextDue() const {
  TimePoint next = TimePoint::max();
  for (const auto& [source, timer] : timers_) {
    if (!timer.running) {
      next = std::min(next, timer.due);
    }
  }
  return next;
}

LoopSources::Ready LoopSources::wait(int waker, int patience) const {
  std::vector<pollfd> watched{{waker, POLLIN, 0}};
  std::vector<Number> sources;
  for (const auto& [source, watch] : watches_) {
    watched.push_back({watch.descriptor, watch.events, 0});
    sources.push_back(source);
  }
  const int found = poll(watched.data(), static_cast<nfds_t>(watched.size()), patience);
  if (found < 0 && errno != EINTR) {
    // The system cannot wait. Handlers find out themselves what is ready.
    std::this_thread::sleep_for(std::min(kPauseWithoutPoll, milliseconds(patience)));
    return {true, std::move(sources)};
  }
  const bool polled = found > 0;
  Ready ready{watched.front().revents != 0, {}};
  for (std::size_t i = 0; polled && i < sources.size(); ++i) {
    if (watched[i + 1].revents != 0) {
      ready.watches.push_back(sources[i]);
    }
  }
  return ready;
}

bool LoopSources::serveTimers(const LoopTurn& turn) {
  const TimePoint now = Clock::now();
  std::vector<std::pair<TimePoint, Number>> due;
  for (const auto& [source, timer] : timers_) {
    if (timer.due <= now && !timer.running) {
      due.emplace_back(timer.due, source);
    }
  }
  std::sort(due.begin(), due.end());
  bool served = false;
  for (const auto& [moment, source] : due) {
    if (!turn.isStale() && timers_.contains(source)) {
      serveTimer(source, now);
      served = true;
    }
  }
  return served;
}

void LoopSources::serveTimer(Number source, TimePoint now) {
  Timer& timer = timers_.at(source);
  const SharedHandler handler = timer.handler;
  if (!timer.repeats) {
    timers_.erase(source);
    call(*handler);
    return;
  }
  timer.due = later(timer.due, timer.interval);
  if (timer.due <= now) {
    timer.due = later(now, timer.interval);
  }
  const RunningMark mark(timers_, source);
  call(*handler);
}

bool LoopSources::serveWatches(const std::vector<Number>& ready, const LoopTurn& turn) {
  bool served = false;
  for (const Number source : ready) {
    const auto watch = watches_.find(source);
    if (!turn.isStale() && watch != watches_.end()) {
      const SharedHandler handler = watch->second.handler;
      call(*handler);
      served = true;
    }
  }
  return served;
}

}  // namespace foundation
