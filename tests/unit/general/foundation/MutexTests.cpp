#include <gtest/gtest.h>

#include "general/foundation/Mutex.h"
#include "general/foundation/Thread.h"

using namespace foundation;

namespace {

// A number that several threads count up, and that one of them waits for.
class Counter {
 public:
  void countUp() {
    {
      const MutexLock lock(mutex_);
      ++count_;
    }
    changed_.notifyAll();
  }
  int waitFor(int least) {
    const MutexLock lock(mutex_);
    while (count_ < least) {
      changed_.wait(mutex_);
    }
    return count_;
  }

 private:
  Mutex mutex_;
  Condition changed_;
  int count_ CORVANE_GUARDED_BY(mutex_) = 0;
};

constexpr int kSteps = 2000;

void countUpOften(Counter& counter) {
  for (int step = 0; step < kSteps; ++step) {
    counter.countUp();
  }
}

}  // namespace

TEST(Mutex, NothingIsLostThatThreadsDoUnderIt) {
  Counter counter;
  NamedThread one("one", [&] { countUpOften(counter); });
  NamedThread other("other", [&] { countUpOften(counter); });
  one.join();
  other.join();
  EXPECT_EQ(counter.waitFor(0), 2 * kSteps);
}

TEST(Mutex, WhoWaitsHoldsItAgainAndSeesWhatWasWaitedFor) {
  Counter counter;
  const NamedThread waker("waker", [&] { countUpOften(counter); });
  EXPECT_GE(counter.waitFor(kSteps), kSteps);
}
