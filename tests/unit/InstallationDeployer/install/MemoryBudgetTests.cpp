#include <gtest/gtest.h>

#include <atomic>
#include <cstddef>
#include <utility>
#include <vector>

#include "InstallationDeployer/install/MemoryBudget.h"
#include "general/foundation/Thread.h"

namespace deployer {
namespace {

using foundation::NamedThread;

/// Whether several threads that use an idle budget ever have more of it than it has.
bool isEverExceeded(MemoryBudget& budget) {
  std::atomic<std::size_t> used = 0;
  std::atomic<bool> exceeded = false;
  {
    std::vector<NamedThread> threads;
    threads.reserve(4);
    for (std::size_t thread = 0; thread < 4; ++thread) {
      threads.emplace_back("user", [&, thread] {
        for (std::size_t round = 0; round < 1000; ++round) {
          const std::size_t wanted = 1 + (thread + round) % budget.bytes();
          const auto grant = budget.acquire(wanted);
          exceeded = exceeded || (used += wanted) > budget.bytes();
          used -= wanted;
        }
      });
    }
  }
  return exceeded;
}

TEST(MemoryBudget, WhatIsInUseNeverExceedsTheBudget) {
  MemoryBudget budget(10);
  EXPECT_FALSE(isEverExceeded(budget));
}

TEST(MemoryBudget, MoreThanTheBudgetIsGrantedWhenNobodyElseUsesAny) {
  MemoryBudget budget(10);
  { const auto grant = budget.acquire(1000); }
  EXPECT_FALSE(isEverExceeded(budget)) << "only what was taken is given back";
}

TEST(MemoryBudget, AGrantThatMovedIsGivenBackOnce) {
  MemoryBudget budget(10);
  {
    auto first = budget.acquire(6);
    MemoryBudget::Grant second = std::move(first);
    second.release();
  }
  EXPECT_FALSE(isEverExceeded(budget));
}

}  // namespace
}  // namespace deployer
