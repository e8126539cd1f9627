#include "general/foundation/execution/RunLoop.h"

#include <poll.h>

#include <algorithm>
#include <atomic>
#include <thread>
#include <utility>
#include <vector>

#include "general/foundation/execution/Deadline.h"
#include "general/foundation/execution/internal/LoopInbox.h"
#include "general/foundation/execution/internal/LoopSources.h"
#include "general/foundation/execution/internal/LoopWaker.h"

namespace foundation {

namespace {

using std::chrono::milliseconds;
using TimePoint = RunLoop::Clock::time_point;

// How long to wait at most where the system had no pipe left to be woken through.
constexpr milliseconds kWaitWithoutWaker{50};

}  // namespace

class RunLoop::Implementation {
 public:
  [[nodiscard]] Source addTimer(milliseconds interval, bool repeats, Handler handler) {
    return {sources_, sources_->addTimer(interval, repeats, std::move(handler))};
  }

  [[nodiscard]] Source addDescriptor(int descriptor, Interest interest, Handler handler) {
    const short events = interest == Interest::Readable ? POLLIN : POLLOUT;
    return {sources_, sources_->addDescriptor(descriptor, events, std::move(handler))};
  }

  bool runUntil(TimePoint deadline) {
    if (sources_->isEmpty() && inbox_.size() == 0) {
      return false;
    }
    const LoopTurn turn(turns_);
    while (true) {
      const std::vector<LoopSources::Number> ready = waitUntil(deadline);
      const bool woken = woken_.exchange(false);
      const bool worked = serveWork(turn);
      const bool timed = sources_->serveTimers(turn);
      const bool delivered = sources_->serveWatches(ready, turn);
      if (woken || worked || timed || delivered || Clock::now() >= deadline) {
        return true;
      }
    }
  }

  bool perform(Handler work, bool wait) {
    if (wait && owner_ == std::this_thread::get_id() && !inbox_.hasEnded()) {
      if (work) {
        work();
      }
      return true;
    }
    return inbox_.add(std::move(work), wait, waker_);
  }

  void wakeUp() {
    woken_ = true;
    waker_.wake();
  }

  void end() { inbox_.end(); }

 private:
  /// Waits for whatever comes first and returns the sources whose descriptors are ready.
  std::vector<LoopSources::Number> waitUntil(TimePoint deadline) {
    LoopSources::Ready ready = sources_->wait(waker_.descriptor(), patience(deadline));
    // Before the work is looked at: a wake-up for work that comes later must stay for the next poll.
    if (ready.woken) {
      waker_.clear();
    }
    return std::move(ready.watches);
  }

  int patience(TimePoint deadline) {
    if (woken_ || inbox_.size() > 0) {
      return 0;
    }
    TimePoint end = std::min(deadline, sources_->nextDue());
    if (waker_.descriptor() < 0) {
      end = std::min(end, Clock::now() + kWaitWithoutWaker);
    }
    return millisecondsUntil(end);
  }

  bool serveWork(const LoopTurn& turn) {
    // What the work hands over in its turn comes after the sources have had theirs.
    const std::size_t waiting = inbox_.size();
    for (std::size_t i = 0; i < waiting && !turn.isStale(); ++i) {
      inbox_.serveOne();
    }
    return waiting > 0;
  }

  const std::thread::id owner_ = std::this_thread::get_id();
  LoopWaker waker_;
  LoopInbox inbox_;
  std::atomic<bool> woken_ = false;

  // Of the owning thread alone.
  const std::shared_ptr<LoopSources> sources_ = std::make_shared<LoopSources>();
  std::uint64_t turns_ = 0;
};

RunLoop::Source::Source(const std::shared_ptr<LoopSources>& sources, std::uint64_t number)
    : sources_(sources), number_(number) {}

RunLoop::Source::~Source() { reset(); }

RunLoop::Source::Source(Source&& other) noexcept
    : sources_(std::move(other.sources_)), number_(std::exchange(other.number_, 0)) {}

RunLoop::Source& RunLoop::Source::operator=(Source&& other) noexcept {
  if (this != &other) {
    // Goes last: removing it destroys its handler, which may own this object.
    const Source earlier(std::move(*this));
    sources_ = std::move(other.sources_);
    number_ = std::exchange(other.number_, 0);
  }
  return *this;
}

void RunLoop::Source::reset() {
  // Forgotten first: removing destroys the handler, which may own this object.
  const auto sources = std::exchange(sources_, {}).lock();
  const std::uint64_t number = std::exchange(number_, 0);
  if (sources) {
    sources->remove(number);
  }
}

RunLoop::RunLoop() : implementation_(std::make_unique<Implementation>()) {}

RunLoop::~RunLoop() { implementation_->end(); }

std::shared_ptr<RunLoop> RunLoop::current() {
  struct LoopOfThread {
    std::shared_ptr<RunLoop> loop = std::make_shared<RunLoop>();
    LoopOfThread() = default;
    ~LoopOfThread() { loop->implementation_->end(); }
    LoopOfThread(const LoopOfThread&) = delete;
    LoopOfThread& operator=(const LoopOfThread&) = delete;
  };
  thread_local const LoopOfThread own;
  return own.loop;
}

RunLoop::Source RunLoop::addTimer(milliseconds interval, bool repeats, Handler handler) {
  return implementation_->addTimer(interval, repeats, std::move(handler));
}

RunLoop::Source RunLoop::addDescriptor(int descriptor, Interest interest, Handler handler) {
  return implementation_->addDescriptor(descriptor, interest, std::move(handler));
}

bool RunLoop::runUntil(Clock::time_point deadline) { return implementation_->runUntil(deadline); }

void RunLoop::runWhile(const Predicate& condition, const Handler& afterTurn) {
  // Ends every turn in time, and gives the loop something to wait for when it has nothing else.
  const Source look = addTimer(kTurn, true, {});
  while (condition()) {
    runUntil(Clock::time_point::max());
    if (afterTurn && condition()) {
      afterTurn();
    }
  }
}

bool RunLoop::perform(Handler work, bool wait) { return implementation_->perform(std::move(work), wait); }

void RunLoop::wakeUp() { implementation_->wakeUp(); }

}  // namespace foundation
