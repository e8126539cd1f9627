#pragma once

#include <chrono>
#include <condition_variable>
#include <mutex>

#include "general/foundation/ThreadAnnotations.h"

/// The standard library's mutex and condition with annotations, so that a compiler that analyses threads refuses a
/// guarded member that is touched without its lock. Everything here may be used by any thread.
namespace foundation {

/// Not recursive. Members say which one guards them with CORVANE_GUARDED_BY.
class CORVANE_CAPABILITY("mutex") Mutex {
 public:
  Mutex() = default;
  Mutex(const Mutex&) = delete;
  Mutex& operator=(const Mutex&) = delete;

  void lock() CORVANE_ACQUIRE() { mutex_.lock(); }
  void unlock() CORVANE_RELEASE() { mutex_.unlock(); }

 private:
  friend class Condition;
  std::mutex mutex_;
};

/// Holds a mutex for as long as it lives.
class CORVANE_SCOPED_CAPABILITY MutexLock {
 public:
  explicit MutexLock(Mutex& mutex) CORVANE_ACQUIRE(mutex) : mutex_(mutex) { mutex_.lock(); }
  ~MutexLock() CORVANE_RELEASE() { mutex_.unlock(); }
  MutexLock(const MutexLock&) = delete;
  MutexLock& operator=(const MutexLock&) = delete;

 private:
  Mutex& mutex_;
};

/// What threads sleep on until another one has changed what a mutex guards.
class Condition {
 public:
  /// Lets go of the mutex while it sleeps and holds it again when it returns. It may return although nobody woke it,
  /// so callers ask again in a loop what they wait for.
  void wait(Mutex& mutex) CORVANE_REQUIRES(mutex) {
    std::unique_lock held(mutex.mutex_, std::adopt_lock);
    condition_.wait(held);
    held.release();
  }
  /// The same until a point in time at most; false once that is reached.
  bool waitUntil(Mutex& mutex, std::chrono::steady_clock::time_point deadline) CORVANE_REQUIRES(mutex) {
    std::unique_lock held(mutex.mutex_, std::adopt_lock);
    const bool isInTime = condition_.wait_until(held, deadline) == std::cv_status::no_timeout;
    held.release();
    return isInTime;
  }
  void notifyOne() { condition_.notify_one(); }
  void notifyAll() { condition_.notify_all(); }

 private:
  std::condition_variable condition_;
};

}  // namespace foundation
