#include <gtest/gtest.h>
#include <pthread.h>

#include <array>
#include <string>
#include <thread>
#include <utility>

#include "general/foundation/Thread.h"

namespace {

using foundation::currentThreadName;
using foundation::NamedThread;
using foundation::setCurrentThreadName;

std::string systemsName() {
  std::array<char, 64> name{};
  pthread_getname_np(pthread_self(), name.data(), name.size());
  return name.data();
}

TEST(Thread, HasNoNameUntilItGetsOne) {
  std::thread([] { EXPECT_EQ(currentThreadName(), ""); }).join();
}

TEST(Thread, KeepsItsFullNameAndGivesTheSystemWhatItTakes) {
  std::thread([] {
    setCurrentThreadName("status server thread");
    EXPECT_EQ(currentThreadName(), "status server thread");
    EXPECT_TRUE(currentThreadName().starts_with(systemsName()));
    EXPECT_GE(systemsName().size(), 15U);
  }).join();
}

TEST(Thread, HasANameOfItsOwn) {
  setCurrentThreadName("mine");
  std::thread([] { setCurrentThreadName("other"); }).join();
  EXPECT_EQ(currentThreadName(), "mine");
}

TEST(NamedThread, NamesItselfBeforeItsBodyRuns) {
  std::string seen;
  NamedThread thread("worker", [&seen] { seen = currentThreadName(); });
  thread.join();
  EXPECT_EQ(seen, "worker");
}

TEST(NamedThread, IsJoinedOnDestruction) {
  bool ran = false;
  {
    const NamedThread thread("worker", [&ran] { ran = true; });
  }
  EXPECT_TRUE(ran);
}

TEST(NamedThread, CanBeMovedAndJoinedTwice) {
  bool ran = false;
  NamedThread first("worker", [&ran] { ran = true; });
  NamedThread second(std::move(first));
  second.join();
  second.join();
  EXPECT_TRUE(ran);
}

}  // namespace
