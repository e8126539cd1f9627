#include "general/foundation/execution/RunLoop.h"

#include <poll.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <condition_variable>
#include <deque>
#include <limits>
#include <map>
#include <mutex>
#include <optional>
#include <thread>
#include <utility>
#include <vector>

#include "general/foundation/execution/Pipe.h"

namespace foundation {

namespace {

using std::chrono::milliseconds;
using TimePoint = RunLoop::Clock::time_point;

// How long to wait at most where the system had no pipe left to be woken through.
constexpr milliseconds kWaitWithoutWaker{50};

TimePoint later(TimePoint start, milliseconds interval) {
  if (interval >= std::chrono::duration_cast<milliseconds>(TimePoint::max() - start)) {
    return TimePoint::max();
  }
  return start + std::max(interval, milliseconds::zero());
}

/// Rounded up, so that what is due then is due indeed.
int millisecondsUntil(TimePoint moment) {
  const TimePoint now = RunLoop::Clock::now();
  if (moment <= now) {
    return 0;
  }
  const auto wait = std::chrono::ceil<milliseconds>(moment - now).count();
  return static_cast<int>(std::min<milliseconds::rep>(wait, std::numeric_limits<int>::max()));
}

/// Interrupts a poll from another thread. A wake-up that comes while nobody polls ends the next poll.
class Waker {
 public:
  Waker() : pipe_(makePipe()) {
    if (pipe_ && (!setNonBlocking(pipe_->readEnd) || !setNonBlocking(pipe_->writeEnd))) {
      pipe_.reset();
    }
  }

  [[nodiscard]] int descriptor() const { return pipe_ ? pipe_->readEnd.number() : -1; }

  void wake() const {
    if (pipe_) {
      // A full pipe means that a wake-up is on its way already.
      [[maybe_unused]] const ssize_t written = write(pipe_->writeEnd.number(), "", 1);
    }
  }

  void clear() const {
    std::array<char, 64> bytes{};
    while (pipe_ && read(pipe_->readEnd.number(), bytes.data(), bytes.size()) > 0) {
    }
  }

 private:
  std::optional<Pipe> pipe_;
};

/// Work that other threads hand over, in order.
class Inbox {
 public:
  /// False when the loop's thread has ended before the work was done, or at once when it need not be awaited.
  bool add(RunLoop::Handler work, bool wait, const Waker& waker) {
    const auto item = std::make_shared<Item>(Item{std::move(work), State::Waiting});
    std::unique_lock lock(mutex_);
    if (ended_) {
      return false;
    }
    items_.push_back(item);
    waker.wake();
    if (wait) {
      changed_.wait(lock, [&] { return item->state != State::Waiting; });
    }
    return item->state != State::Dropped;
  }

  [[nodiscard]] std::size_t size() {
    const std::lock_guard lock(mutex_);
    return items_.size();
  }

  /// Runs the oldest piece of work, if there is any.
  void serveOne() {
    std::shared_ptr<Item> item;
    {
      const std::lock_guard lock(mutex_);
      if (items_.empty()) {
        return;
      }
      item = std::move(items_.front());
      items_.pop_front();
    }
    const Completion completion(*this, *item);
    // Gone before its owner goes on: what it holds may belong to the owner.
    const RunLoop::Handler work = std::move(item->work);
    if (work) {
      work();
    }
  }

  void end() {
    std::deque<std::shared_ptr<Item>> dropped;
    const std::lock_guard lock(mutex_);
    ended_ = true;
    dropped.swap(items_);
    for (const auto& item : dropped) {
      item->state = State::Dropped;
    }
    changed_.notify_all();
  }

  [[nodiscard]] bool hasEnded() {
    const std::lock_guard lock(mutex_);
    return ended_;
  }

 private:
  enum class State { Waiting, Done, Dropped };
  struct Item {
    RunLoop::Handler work;
    State state;
  };

  /// Tells who waits, however the work ends.
  class Completion {
   public:
    Completion(Inbox& inbox, Item& item) : inbox_(inbox), item_(item) {}
    ~Completion() {
      const std::lock_guard lock(inbox_.mutex_);
      item_.state = State::Done;
      inbox_.changed_.notify_all();
    }
    Completion(const Completion&) = delete;
    Completion& operator=(const Completion&) = delete;

   private:
    Inbox& inbox_;
    Item& item_;
  };

  std::mutex mutex_;
  std::condition_variable changed_;
  std::deque<std::shared_ptr<Item>> items_;
  bool ended_ = false;
};

}  // namespace

class RunLoop::Implementation {
 public:
  SourceId addTimer(milliseconds interval, bool repeats, Handler handler) {
    timers_.emplace(++lastSource_,
                    Timer{later(Clock::now(), interval), interval, repeats, false, share(std::move(handler))});
    return lastSource_;
  }

  SourceId addDescriptor(int descriptor, Interest interest, Handler handler) {
    const short events = interest == Interest::Readable ? POLLIN : POLLOUT;
    watches_.emplace(++lastSource_, Watch{descriptor, events, share(std::move(handler))});
    return lastSource_;
  }

  void removeSource(SourceId source) {
    timers_.erase(source);
    watches_.erase(source);
  }

  bool runUntil(TimePoint deadline) {
    if (timers_.empty() && watches_.empty() && inbox_.size() == 0) {
      return false;
    }
    const std::uint64_t turn = ++turns_;
    while (true) {
      const std::vector<SourceId> ready = waitUntil(deadline);
      const bool woken = woken_.exchange(false);
      const bool worked = serveWork(turn);
      const bool timed = serveTimers(turn);
      const bool delivered = serveWatches(ready, turn);
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
  // Shared with the turn that runs it, so that a handler may remove its own source.
  using SharedHandler = std::shared_ptr<const Handler>;
  struct Timer {
    TimePoint due;
    milliseconds interval;
    bool repeats;
    bool running;
    SharedHandler handler;
  };
  struct Watch {
    int descriptor;
    short events;
    SharedHandler handler;
  };

  static SharedHandler share(Handler handler) { return std::make_shared<const Handler>(std::move(handler)); }

  static void call(const Handler& handler) {
    if (handler) {
      handler();
    }
  }

  /// Waits for whatever comes first and returns the sources whose descriptors are ready.
  std::vector<SourceId> waitUntil(TimePoint deadline) {
    std::vector<pollfd> watched{{waker_.descriptor(), POLLIN, 0}};
    std::vector<SourceId> sources;
    for (const auto& [source, watch] : watches_) {
      watched.push_back({watch.descriptor, watch.events, 0});
      sources.push_back(source);
    }
    const bool polled = poll(watched.data(), static_cast<nfds_t>(watched.size()), patience(deadline)) > 0;
    // Before the work is looked at: a wake-up for work that comes later must stay for the next poll.
    if (watched.front().revents != 0) {
      waker_.clear();
    }
    std::vector<SourceId> ready;
    for (std::size_t i = 0; polled && i < sources.size(); ++i) {
      if (watched[i + 1].revents != 0) {
        ready.push_back(sources[i]);
      }
    }
    return ready;
  }

  int patience(TimePoint deadline) {
    if (woken_ || inbox_.size() > 0) {
      return 0;
    }
    TimePoint end = deadline;
    for (const auto& [source, timer] : timers_) {
      if (!timer.running) {
        end = std::min(end, timer.due);
      }
    }
    if (waker_.descriptor() < 0) {
      end = std::min(end, Clock::now() + kWaitWithoutWaker);
    }
    return millisecondsUntil(end);
  }

  // What a turn found out is stale once a handler has turned the loop itself; the next turn then looks again.
  [[nodiscard]] bool isStale(std::uint64_t turn) const { return turns_ != turn; }

  bool serveWork(std::uint64_t turn) {
    // What the work hands over in its turn comes after the sources have had theirs.
    const std::size_t waiting = inbox_.size();
    for (std::size_t i = 0; i < waiting && !isStale(turn); ++i) {
      inbox_.serveOne();
    }
    return waiting > 0;
  }

  bool serveTimers(std::uint64_t turn) {
    const TimePoint now = Clock::now();
    std::vector<std::pair<TimePoint, SourceId>> due;
    for (const auto& [source, timer] : timers_) {
      if (timer.due <= now && !timer.running) {
        due.emplace_back(timer.due, source);
      }
    }
    std::sort(due.begin(), due.end());
    bool served = false;
    for (const auto& [moment, source] : due) {
      if (!isStale(turn) && timers_.contains(source)) {
        serveTimer(source, now);
        served = true;
      }
    }
    return served;
  }

  void serveTimer(SourceId source, TimePoint now) {
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

  bool serveWatches(const std::vector<SourceId>& ready, std::uint64_t turn) {
    bool served = false;
    for (const SourceId source : ready) {
      const auto watch = watches_.find(source);
      if (!isStale(turn) && watch != watches_.end()) {
        const SharedHandler handler = watch->second.handler;
        call(*handler);
        served = true;
      }
    }
    return served;
  }

  /// Keeps inner turns from a timer whose handler runs.
  class RunningMark {
   public:
    RunningMark(std::map<SourceId, Timer>& timers, SourceId source) : timers_(timers), source_(source) { set(true); }
    ~RunningMark() { set(false); }
    RunningMark(const RunningMark&) = delete;
    RunningMark& operator=(const RunningMark&) = delete;

   private:
    void set(bool running) {
      if (const auto timer = timers_.find(source_); timer != timers_.end()) {
        timer->second.running = running;
      }
    }
    std::map<SourceId, Timer>& timers_;
    SourceId source_;
  };

  const std::thread::id owner_ = std::this_thread::get_id();
  Waker waker_;
  Inbox inbox_;
  std::atomic<bool> woken_ = false;

  // Of the owning thread alone.
  std::map<SourceId, Timer> timers_;
  std::map<SourceId, Watch> watches_;
  SourceId lastSource_ = 0;
  std::uint64_t turns_ = 0;
};

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

RunLoop::SourceId RunLoop::addTimer(milliseconds interval, bool repeats, Handler handler) {
  return implementation_->addTimer(interval, repeats, std::move(handler));
}

RunLoop::SourceId RunLoop::addDescriptor(int descriptor, Interest interest, Handler handler) {
  return implementation_->addDescriptor(descriptor, interest, std::move(handler));
}

void RunLoop::removeSource(SourceId source) { implementation_->removeSource(source); }

bool RunLoop::runUntil(Clock::time_point deadline) { return implementation_->runUntil(deadline); }

bool RunLoop::perform(Handler work, bool wait) { return implementation_->perform(std::move(work), wait); }

void RunLoop::wakeUp() { implementation_->wakeUp(); }

}  // namespace foundation
