#pragma once

#include <atomic>
#include <cstddef>
#include <functional>
#include <optional>
#include <vector>

#include "InstallationDeployer/InstallAction.h"
#include "InstallationDeployer/install/MemoryBudget.h"
#include "InstallationDeployer/install/PayloadFileReader.h"
#include "general/foundation/Mutex.h"
#include "general/foundation/Thread.h"
#include "general/foundation/files/PreparedFile.h"

namespace deployer {

/// The prefetch of one component: decides what is to be done with each entry of its list, and reads, verifies and
/// writes the payload files, with their attributes, under no name. Helper threads do it ahead of time, and so does the
/// owner's thread instead of waiting for them. The owner takes the entries in the order of the list; nothing shows
/// before.
///
/// Preparing ahead is a chance, never a verdict: whatever fails here is done again by the owner when its turn comes, so
/// that failures show in order and a folder that is missing yet is there by then. How many files the helpers run ahead
/// of the owner is bounded (back-pressure), and so is what they hold in memory (the memory budget). takeNext() and
/// giveUp() belong to the owner's thread; destruction throws away what was not taken.
class PayloadPrefetch {
 public:
  /// Decides about the entry at an index of the list. Called on any thread.
  using Decider = std::function<InstallAction(std::size_t)>;
  /// An entry whose turn has come.
  struct Turn {
    InstallAction action;
    std::optional<foundation::PreparedFile> prepared;  ///< the payload file, ready to be published
  };

  /// Starts the helpers, fewer when the system does not give as many.
  /// @param count length of the list.
  /// @param reader what the owner's thread reads with; it outlives this.
  /// @param keptBytes memory each helper keeps for its buffer; see PayloadFileReader.
  PayloadPrefetch(std::size_t count, Decider decider, unsigned helpers, PayloadFileReader& reader, MemoryBudget& budget,
                  std::size_t keptBytes);
  ~PayloadPrefetch();
  PayloadPrefetch(const PayloadPrefetch&) = delete;
  PayloadPrefetch& operator=(const PayloadPrefetch&) = delete;

  /// The next entry of the list, from the first on, waiting for a helper that is busy with it. Without a file when the
  /// entry is none of the payload, or could not be prepared.
  [[nodiscard]] Turn takeNext();
  /// Throws away what is prepared and prepares no more; from now on entries come without files. Waits for nobody.
  void giveUp();

 private:
  /// Written by the thread that claimed its index until `ready`, then the owner's until it is taken.
  struct Slot {
    std::atomic<bool> ready = false;
    std::optional<Turn> turn;  // nothing when there was too little memory for it
  };

  void help(MemoryBudget& budget, std::size_t keptBytes);
  [[nodiscard]] std::optional<std::size_t> claim();
  [[nodiscard]] std::optional<std::size_t> claimWithoutWaiting();
  [[nodiscard]] bool hasRoomFor(std::size_t index) const;
  void process(std::size_t index, PayloadFileReader& reader, foundation::PreparedFile::WaitingPlace& place);
  [[nodiscard]] static std::optional<foundation::PreparedFile> prepare(const InstallAction& action,
                                                                       PayloadFileReader& reader,
                                                                       foundation::PreparedFile::WaitingPlace& place);
  void waitFor(std::size_t index);
  [[nodiscard]] std::optional<Turn> release(std::size_t index);
  [[nodiscard]] Slot& slot(std::size_t index) { return slots_[index % slots_.size()]; }

  const std::size_t count_;
  const Decider decide_;
  PayloadFileReader& ownersReader_;
  foundation::PreparedFile::WaitingPlace ownersPlace_;
  std::vector<Slot> slots_;
  std::atomic<std::size_t> next_ = 0;   // everything below was claimed by somebody
  std::atomic<std::size_t> taken_ = 0;  // everything below was taken
  std::atomic<std::size_t> awaited_;    // the index that the owner sleeps for
  std::atomic<bool> stopping_ = false;

  // Threads meet here only to sleep and to be woken.
  foundation::Mutex mutex_;
  foundation::Condition delivered_;
  foundation::Condition roomMade_;
  std::vector<foundation::NamedThread> threads_;
};

/// Tries once more without the prefetch, if there is one: it holds descriptors and space that an entry may be short of
/// when its turn comes.
template <class Attempt>
[[nodiscard]] auto withSpareResources(std::optional<PayloadPrefetch>& prefetch, const Attempt& attempt)
    -> decltype(attempt()) {
  auto result = attempt();
  if (result || !prefetch) {
    return result;
  }
  prefetch->giveUp();
  return attempt();
}

}  // namespace deployer
