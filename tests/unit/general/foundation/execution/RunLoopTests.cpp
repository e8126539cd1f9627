#include <gtest/gtest.h>
#include <sys/resource.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <future>
#include <memory>
#include <stdexcept>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "general/foundation/execution/Pipe.h"
#include "general/foundation/execution/RunLoop.h"
#include "tests/support/NoMemory.h"

namespace {

using foundation::Pipe;
using foundation::RunLoop;
using std::chrono::milliseconds;
using Clock = RunLoop::Clock;

constexpr milliseconds kNever = milliseconds::max();

/// Long enough for any machine; only a broken loop reaches it.
Clock::time_point farAway() { return Clock::now() + std::chrono::minutes(1); }

Pipe openPipe() {
  auto pipe = foundation::makePipe();
  if (!pipe) {
    throw std::runtime_error("no pipe");
  }
  return std::move(*pipe);
}

void fill(const Pipe& pipe) { ASSERT_EQ(write(pipe.writeEnd.number(), "x", 1), 1); }

void drain(const Pipe& pipe) {
  char byte = 0;
  ASSERT_EQ(read(pipe.readEnd.number(), &byte, 1), 1);
}

TEST(RunLoop, EndsWithoutMemory) {
  auto loop = std::make_unique<RunLoop>();
  auto held = std::make_shared<int>(1);
  const std::weak_ptr<int> work = held;
  loop->perform([held = std::move(held)] {}, false);
  {
    // Nobody could catch what is thrown where a thread ends.
    const support::NoMemory noMemory(1);
    loop.reset();
    EXPECT_FALSE(support::NoMemory::wasReached());
  }
  EXPECT_TRUE(work.expired());
}

TEST(RunLoop, ReturnsFalseAtOnceWithoutASourceOrWork) {
  RunLoop loop;
  EXPECT_FALSE(loop.runUntil(Clock::time_point::max()));
}

TEST(RunLoop, ReturnsAtTheDeadlineWhenNothingIsServed) {
  RunLoop loop;
  bool served = false;
  const auto timer = loop.addTimer(std::chrono::hours(1), false, [&] { served = true; });
  const auto deadline = Clock::now() + milliseconds(5);
  EXPECT_TRUE(loop.runUntil(deadline));
  EXPECT_GE(Clock::now(), deadline);
  EXPECT_FALSE(served);
}

TEST(RunLoop, ServesATimerOnceAndForgetsIt) {
  RunLoop loop;
  int served = 0;
  const auto timer = loop.addTimer(milliseconds(1), false, [&] { ++served; });
  EXPECT_TRUE(loop.runUntil(farAway()));
  EXPECT_EQ(served, 1);
  EXPECT_FALSE(loop.runUntil(farAway()));
}

TEST(RunLoop, ServesAPeriodicTimerUntilItIsRemoved) {
  RunLoop loop;
  int served = 0;
  auto timer = loop.addTimer(milliseconds(1), true, [&] { ++served; });
  for (int turn = 1; turn <= 3; ++turn) {
    EXPECT_TRUE(loop.runUntil(farAway()));
    EXPECT_EQ(served, turn);
  }
  timer.reset();
  EXPECT_FALSE(loop.runUntil(farAway()));
}

TEST(RunLoop, DeliversNoTimerBeforeItsTime) {
  RunLoop loop;
  const auto start = Clock::now();
  const auto timer = loop.addTimer(milliseconds(20), false, {});
  EXPECT_TRUE(loop.runUntil(farAway()));
  EXPECT_GE(Clock::now() - start, milliseconds(20));
}

TEST(RunLoop, ServesTimersInTheOrderInWhichTheyAreDue) {
  RunLoop loop;
  std::string order;
  const auto second = loop.addTimer(milliseconds(2), false, [&] { order += 'b'; });
  const auto first = loop.addTimer(milliseconds(1), false, [&] { order += 'a'; });
  while (loop.runUntil(farAway())) {
  }
  EXPECT_EQ(order, "ab");
}

TEST(RunLoop, ServesWhatIsDueAlsoAfterTheDeadline) {
  RunLoop loop;
  bool served = false;
  const auto timer = loop.addTimer(milliseconds(0), false, [&] { served = true; });
  EXPECT_TRUE(loop.runUntil(Clock::time_point::min()));
  EXPECT_TRUE(served);
}

TEST(RunLoop, TakesAnyInterval) {
  RunLoop loop;
  int served = 0;
  auto negative = loop.addTimer(milliseconds(-5), true, [&] { ++served; });
  const auto timer = loop.addTimer(kNever, true, [] { FAIL(); });
  EXPECT_TRUE(loop.runUntil(farAway()));
  negative.reset();
  EXPECT_EQ(served, 1);
  EXPECT_TRUE(loop.runUntil(Clock::now()));
}

TEST(RunLoop, AnEmptyHandlerOnlyWakesTheLoop) {
  RunLoop loop;
  const auto timer = loop.addTimer(milliseconds(1), true, {});
  EXPECT_TRUE(loop.runUntil(farAway()));
}

TEST(RunLoop, ServesAReadableDescriptorWhileItIsReadable) {
  RunLoop loop;
  const Pipe pipe = openPipe();
  int served = 0;
  auto source = loop.addDescriptor(pipe.readEnd.number(), RunLoop::Interest::Readable, [&] { ++served; });
  EXPECT_TRUE(loop.runUntil(Clock::now()));
  EXPECT_EQ(served, 0);
  fill(pipe);
  EXPECT_TRUE(loop.runUntil(farAway()));
  EXPECT_TRUE(loop.runUntil(farAway()));
  EXPECT_EQ(served, 2);
  drain(pipe);
  EXPECT_TRUE(loop.runUntil(Clock::now()));
  EXPECT_EQ(served, 2);
  source.reset();
  EXPECT_FALSE(loop.runUntil(farAway()));
}

TEST(RunLoop, ServesAWritableDescriptor) {
  RunLoop loop;
  const Pipe pipe = openPipe();
  bool served = false;
  const auto source = loop.addDescriptor(pipe.writeEnd.number(), RunLoop::Interest::Writable, [&] { served = true; });
  EXPECT_TRUE(loop.runUntil(farAway()));
  EXPECT_TRUE(served);
}

TEST(RunLoop, ServesADescriptorWhoseOtherEndWentAway) {
  RunLoop loop;
  Pipe pipe = openPipe();
  bool served = false;
  const auto source = loop.addDescriptor(pipe.readEnd.number(), RunLoop::Interest::Readable, [&] { served = true; });
  pipe.writeEnd.reset();
  EXPECT_TRUE(loop.runUntil(farAway()));
  EXPECT_TRUE(served);
}

TEST(RunLoop, AHandlerMayRemoveItsOwnSource) {
  RunLoop loop;
  const auto witness = std::make_shared<int>(0);
  RunLoop::Source timer;
  timer = loop.addTimer(milliseconds(0), true, [&timer, witness] {
    timer.reset();
    ++*witness;
  });
  EXPECT_TRUE(loop.runUntil(farAway()));
  EXPECT_EQ(*witness, 1);
  EXPECT_EQ(witness.use_count(), 1) << "what the handler held is gone with its source";
  EXPECT_FALSE(loop.runUntil(farAway()));
}

TEST(RunLoop, ASourceThatAnotherHandlerRemovedIsNotServed) {
  RunLoop loop;
  const Pipe first = openPipe();
  const Pipe second = openPipe();
  fill(first);
  fill(second);
  int served = 0;
  RunLoop::Source sources[2];
  const auto removeBoth = [&] {
    ++served;
    sources[0].reset();
    sources[1].reset();
  };
  sources[0] = loop.addDescriptor(first.readEnd.number(), RunLoop::Interest::Readable, removeBoth);
  sources[1] = loop.addDescriptor(second.readEnd.number(), RunLoop::Interest::Readable, removeBoth);
  EXPECT_TRUE(loop.runUntil(farAway()));
  EXPECT_EQ(served, 1);
}

TEST(RunLoop, ATimerThatAnotherTimerRemovedIsNotServed) {
  RunLoop loop;
  int served = 0;
  RunLoop::Source timers[2];
  for (RunLoop::Source& timer : timers) {
    timer = loop.addTimer(milliseconds(0), true, [&] {
      ++served;
      timers[0].reset();
      timers[1].reset();
    });
  }
  EXPECT_TRUE(loop.runUntil(farAway()));
  EXPECT_EQ(served, 1);
}

TEST(RunLoop, ASourceIsRemovedWithItsOwner) {
  RunLoop loop;
  const auto witness = std::make_shared<int>(0);
  {
    const RunLoop::Source timer = loop.addTimer(milliseconds(0), true, [witness] { FAIL(); });
    EXPECT_EQ(witness.use_count(), 2);
  }
  EXPECT_EQ(witness.use_count(), 1);
  EXPECT_FALSE(loop.runUntil(farAway()));
}

TEST(RunLoop, ASourceStaysWhenItsOwnerIsMoved) {
  RunLoop loop;
  int served = 0;
  RunLoop::Source first = loop.addTimer(milliseconds(0), true, [&] { ++served; });
  RunLoop::Source second(std::move(first));
  EXPECT_TRUE(second);
  EXPECT_TRUE(loop.runUntil(farAway()));
  RunLoop::Source third;
  EXPECT_FALSE(third);
  third = std::move(second);
  EXPECT_TRUE(loop.runUntil(farAway()));
  EXPECT_EQ(served, 2);
  third.reset();
  EXPECT_FALSE(third);
  EXPECT_FALSE(loop.runUntil(farAway()));
}

TEST(RunLoop, AnOwnerThatIsGivenAnotherSourceRemovesItsFirst) {
  RunLoop loop;
  bool served = false;
  RunLoop::Source timer = loop.addTimer(milliseconds(0), false, [] { FAIL(); });
  timer = loop.addTimer(milliseconds(0), false, [&] { served = true; });
  EXPECT_TRUE(loop.runUntil(farAway()));
  EXPECT_TRUE(served);
  EXPECT_FALSE(loop.runUntil(farAway()));
}

TEST(RunLoop, AnOwnerThatOnlyItsHandlerOwnsGoesWhenItIsGivenAnotherSource) {
  RunLoop loop;
  auto owned = std::make_shared<RunLoop::Source>();
  RunLoop::Source& timer = *owned;
  timer = loop.addTimer(milliseconds(0), true, [owned] { FAIL(); });
  owned.reset();
  timer = loop.addTimer(milliseconds(0), true, [] { FAIL(); });
  EXPECT_FALSE(loop.runUntil(farAway()));
}

TEST(RunLoop, ASourceMayOutliveItsLoop) {
  const auto witness = std::make_shared<int>(0);
  auto loop = std::make_unique<RunLoop>();
  RunLoop::Source timer = loop->addTimer(kNever, true, [witness] { FAIL(); });
  loop.reset();
  EXPECT_EQ(witness.use_count(), 1) << "what the handler held is gone with the loop";
  timer.reset();
  EXPECT_FALSE(timer);
}

TEST(RunLoop, ASourceThatAnotherOneOwnsIsRemovedWithIt) {
  RunLoop loop;
  auto inner = std::make_shared<RunLoop::Source>(loop.addTimer(milliseconds(0), true, [] { FAIL(); }));
  RunLoop::Source outer = loop.addTimer(milliseconds(0), true, [inner] { FAIL(); });
  inner.reset();
  outer.reset();
  EXPECT_FALSE(loop.runUntil(farAway()));
}

TEST(RunLoop, AHandlerMayAddSources) {
  RunLoop loop;
  bool served = false;
  RunLoop::Source added;
  const auto timer = loop.addTimer(milliseconds(0), false,
                                   [&] { added = loop.addTimer(milliseconds(0), false, [&] { served = true; }); });
  EXPECT_TRUE(loop.runUntil(farAway()));
  EXPECT_TRUE(loop.runUntil(farAway()));
  EXPECT_TRUE(served);
}

TEST(RunLoop, AHandlerMayTurnTheLoop) {
  RunLoop loop;
  const Pipe pipe = openPipe();
  std::string order;
  const auto source = loop.addDescriptor(pipe.readEnd.number(), RunLoop::Interest::Readable, [&] {
    drain(pipe);
    order += 'd';
  });
  const auto timer = loop.addTimer(milliseconds(0), false, [&] {
    order += '(';
    fill(pipe);
    EXPECT_TRUE(loop.runUntil(farAway()));
    order += ')';
  });
  EXPECT_TRUE(loop.runUntil(farAway()));
  EXPECT_EQ(order, "(d)");
}

TEST(RunLoop, AnInnerTurnServesTheDescriptorWhoseHandlerRuns) {
  RunLoop loop;
  const Pipe pipe = openPipe();
  int depth = 0;
  const auto source = loop.addDescriptor(pipe.readEnd.number(), RunLoop::Interest::Readable, [&] {
    drain(pipe);
    if (++depth == 1) {
      fill(pipe);
      EXPECT_TRUE(loop.runUntil(farAway()));
      EXPECT_EQ(depth, 2);
    }
  });
  fill(pipe);
  EXPECT_TRUE(loop.runUntil(farAway()));
  EXPECT_EQ(depth, 2);
}

TEST(RunLoop, AnInnerTurnDoesNotServeTheTimerWhoseHandlerRuns) {
  RunLoop loop;
  int depth = 0;
  const auto timer = loop.addTimer(milliseconds(0), true, [&] {
    ASSERT_EQ(++depth, 1);
    EXPECT_TRUE(loop.runUntil(Clock::now() + milliseconds(2)));
    --depth;
  });
  EXPECT_TRUE(loop.runUntil(farAway()));
  EXPECT_TRUE(loop.runUntil(farAway())) << "afterwards it is served again";
}

TEST(RunLoop, WhatAnInnerTurnConsumedIsNotServedFromAnOldLook) {
  RunLoop loop;
  const Pipe first = openPipe();
  const Pipe second = openPipe();
  fill(first);
  fill(second);
  int secondServed = 0;
  bool turned = false;
  const auto ofFirst = loop.addDescriptor(first.readEnd.number(), RunLoop::Interest::Readable, [&] {
    drain(first);
    if (!turned) {
      turned = true;
      EXPECT_TRUE(loop.runUntil(farAway()));
    }
  });
  const auto ofSecond = loop.addDescriptor(second.readEnd.number(), RunLoop::Interest::Readable, [&] {
    ++secondServed;
    drain(second);
  });
  EXPECT_TRUE(loop.runUntil(farAway()));
  EXPECT_EQ(secondServed, 1);
}

TEST(RunLoop, AnExceptionOfAHandlerEndsTheTurnAndLeavesTheLoopUsable) {
  RunLoop loop;
  int served = 0;
  const auto timer = loop.addTimer(milliseconds(0), true, [&] {
    if (++served == 1) {
      throw std::runtime_error("handler");
    }
  });
  EXPECT_THROW(loop.runUntil(farAway()), std::runtime_error);
  EXPECT_TRUE(loop.runUntil(farAway()));
  EXPECT_EQ(served, 2);
}

TEST(RunLoop, RunWhileTurnsAsLongAsTheConditionHolds) {
  RunLoop loop;
  int served = 0;
  const auto timer = loop.addTimer(milliseconds(0), true, [&] { ++served; });
  loop.runWhile([&] { return served < 3; });
  EXPECT_EQ(served, 3);
}

TEST(RunLoop, RunWhileDoesNotTurnAtAllWhenTheConditionDoesNotHold) {
  RunLoop loop;
  const auto timer = loop.addTimer(milliseconds(0), true, [] { FAIL(); });
  loop.runWhile([] { return false; }, [] { FAIL(); });
}

TEST(RunLoop, RunWhileLooksAtItsConditionThoughThereIsNoSource) {
  RunLoop loop;
  int looks = 0;
  loop.runWhile([&] { return ++looks < 2; });
  EXPECT_EQ(looks, 2);
  EXPECT_FALSE(loop.runUntil(farAway())) << "it leaves no source behind";
}

TEST(RunLoop, RunWhileDoesMoreAfterATurnOnlyAsLongAsTheConditionHolds) {
  RunLoop loop;
  bool goesOn = true;
  std::string order;
  const auto timer = loop.addTimer(milliseconds(0), true, [&] {
    order += 't';
    goesOn = order != "tat";
  });
  loop.runWhile([&] { return goesOn; }, [&] { order += 'a'; });
  EXPECT_EQ(order, "tat");
}

TEST(RunLoop, RunWhileLeavesNoSourceBehindWhenAHandlerThrows) {
  RunLoop loop;
  {
    const auto timer = loop.addTimer(milliseconds(0), true, [] { throw std::runtime_error("handler"); });
    EXPECT_THROW(loop.runWhile([] { return true; }), std::runtime_error);
  }
  EXPECT_FALSE(loop.runUntil(farAway()));
}

TEST(RunLoop, CurrentIsOnePerThread) {
  const auto mine = RunLoop::current();
  EXPECT_EQ(RunLoop::current(), mine);
  std::shared_ptr<RunLoop> other;
  std::thread([&] { other = RunLoop::current(); }).join();
  EXPECT_NE(other, mine);
}

/// A thread that turns its loop until it is told to stop.
class LoopThread {
 public:
  LoopThread() {
    std::promise<std::shared_ptr<RunLoop>> made;
    auto loop = made.get_future();
    thread_ = std::thread([this, &made] {
      const auto own = RunLoop::current();
      const auto timer = own->addTimer(kNever, true, {});
      made.set_value(own);
      while (!stopping_) {
        own->runUntil(farAway());
      }
    });
    loop_ = loop.get();
  }
  ~LoopThread() { stop(); }
  LoopThread(const LoopThread&) = delete;
  LoopThread& operator=(const LoopThread&) = delete;

  [[nodiscard]] RunLoop& loop() { return *loop_; }
  [[nodiscard]] std::thread::id id() const { return thread_.get_id(); }
  void stop() {
    stopping_ = true;
    loop_->wakeUp();
    if (thread_.joinable()) {
      thread_.join();
    }
  }

 private:
  std::atomic<bool> stopping_ = false;
  std::shared_ptr<RunLoop> loop_;
  std::thread thread_;
};

TEST(RunLoop, PerformWithWaitReturnsWhenTheWorkIsDoneOnTheLoopsThread) {
  LoopThread thread;
  std::thread::id ranOn;
  EXPECT_TRUE(thread.loop().perform([&] { ranOn = std::this_thread::get_id(); }, true));
  EXPECT_EQ(ranOn, thread.id());
}

TEST(RunLoop, PerformDestroysTheWorkBeforeItReturns) {
  LoopThread thread;
  const auto witness = std::make_shared<int>(0);
  EXPECT_TRUE(thread.loop().perform([witness] { ++*witness; }, true));
  EXPECT_EQ(*witness, 1);
  EXPECT_EQ(witness.use_count(), 1);
}

TEST(RunLoop, PerformWithoutWaitRunsTheWorkInOrder) {
  LoopThread thread;
  std::vector<int> order;
  for (int i = 0; i < 100; ++i) {
    EXPECT_TRUE(thread.loop().perform([&order, i] { order.push_back(i); }, false));
  }
  EXPECT_TRUE(thread.loop().perform({}, true));
  ASSERT_EQ(order.size(), 100U);
  for (int i = 0; i < 100; ++i) {
    EXPECT_EQ(order[static_cast<std::size_t>(i)], i);
  }
}

TEST(RunLoop, LosesNoWakeUpOfManyThreads) {
  LoopThread thread;
  constexpr int kRounds = 500;
  int done = 0;
  std::vector<std::thread> callers;
  callers.reserve(3);
  for (int i = 0; i < 3; ++i) {
    callers.emplace_back([&] {
      for (int round = 0; round < kRounds; ++round) {
        EXPECT_TRUE(thread.loop().perform([&done] { ++done; }, true));
      }
    });
  }
  for (std::thread& caller : callers) {
    caller.join();
  }
  thread.stop();
  EXPECT_EQ(done, 3 * kRounds);
}

TEST(RunLoop, PerformWithWaitOnTheOwnThreadRunsAtOnce) {
  RunLoop loop;
  bool ran = false;
  EXPECT_TRUE(loop.perform([&] { ran = true; }, true));
  EXPECT_TRUE(ran);
}

TEST(RunLoop, PerformWithoutWaitOnTheOwnThreadRunsInTheNextTurn) {
  RunLoop loop;
  bool ran = false;
  EXPECT_TRUE(loop.perform([&] { ran = true; }, false));
  EXPECT_FALSE(ran);
  EXPECT_TRUE(loop.runUntil(farAway())) << "work alone is enough for a turn";
  EXPECT_TRUE(ran);
  EXPECT_FALSE(loop.runUntil(farAway()));
}

TEST(RunLoop, WorkThatHandsOverMoreWorkDoesNotStarveTheSources) {
  RunLoop loop;
  int work = 0;
  bool served = false;
  RunLoop::Handler again = [&] {
    ++work;
    EXPECT_TRUE(loop.perform(again, false));
  };
  EXPECT_TRUE(loop.perform(again, false));
  const auto timer = loop.addTimer(milliseconds(0), false, [&] { served = true; });
  EXPECT_TRUE(loop.runUntil(farAway()));
  EXPECT_TRUE(served);
  EXPECT_EQ(work, 1);
}

TEST(RunLoop, PerformReturnsFalseAfterTheThreadHasEnded) {
  std::shared_ptr<RunLoop> loop;
  std::thread([&] { loop = RunLoop::current(); }).join();
  EXPECT_FALSE(loop->perform([] { FAIL(); }, false));
  EXPECT_FALSE(loop->perform([] { FAIL(); }, true));
}

TEST(RunLoop, TheEndOfTheThreadReleasesWhoWaitsForWorkThatNeverRan) {
  std::promise<std::shared_ptr<RunLoop>> made;
  std::promise<void> mayEnd;
  std::thread thread([&] {
    made.set_value(RunLoop::current());
    mayEnd.get_future().wait();
  });
  const auto loop = made.get_future().get();
  auto waiting = std::async(std::launch::async, [&] { return loop->perform([] { FAIL(); }, true); });
  mayEnd.set_value();
  EXPECT_FALSE(waiting.get());
  thread.join();
}

TEST(RunLoop, WakeUpEndsAWaitingTurn) {
  RunLoop loop;
  const auto timer = loop.addTimer(kNever, false, {});
  std::thread waker([&] { loop.wakeUp(); });
  EXPECT_TRUE(loop.runUntil(Clock::time_point::max()));
  waker.join();
}

TEST(RunLoop, AWakeUpBetweenTurnsEndsTheNextOneOnly) {
  RunLoop loop;
  const auto timer = loop.addTimer(kNever, false, {});
  loop.wakeUp();
  loop.wakeUp();
  EXPECT_TRUE(loop.runUntil(Clock::time_point::max()));
  const auto deadline = Clock::now() + milliseconds(2);
  EXPECT_TRUE(loop.runUntil(deadline));
  EXPECT_GE(Clock::now(), deadline);
}

TEST(RunLoop, WorksWithoutDescriptorsToWakeIt) {
  rlimit previous{};
  ASSERT_EQ(getrlimit(RLIMIT_NOFILE, &previous), 0);
  rlimit none = previous;
  none.rlim_cur = 3;
  ASSERT_EQ(setrlimit(RLIMIT_NOFILE, &none), 0);
  const auto loop = std::make_unique<RunLoop>();
  setrlimit(RLIMIT_NOFILE, &previous);
  const auto timer = loop->addTimer(kNever, false, {});
  bool ran = false;
  std::thread other([&] { EXPECT_TRUE(loop->perform([&] { ran = true; }, true)); });
  EXPECT_TRUE(loop->runUntil(farAway()));
  other.join();
  EXPECT_TRUE(ran);
}

}  // namespace
