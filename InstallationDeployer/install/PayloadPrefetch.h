#pragma once

#include <atomic>
#include <condition_variable>
#include <cstddef>
#include <functional>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

#include "InstallationDeployer/install/MemoryBudget.h"
#include "InstallationDeployer/install/PayloadFileReader.h"
#include "general/foundation/Thread.h"
#include "general/foundation/files/FileAttributes.h"
#include "general/foundation/files/PreparedFile.h"

namespace deployer {

/// A file of the payload and what it becomes.
struct PayloadFile {
  std::string source;
  std::string destination;
  std::string checksum;
  foundation::FileAttributes attributes;
};

/// Prepares the payload files of one list ahead of time, on helper threads and on the owner's thread instead of
/// waiting: reads, verifies and writes them, with their attributes, under no name. Their owner takes them in the order
/// of the list and publishes them; nothing shows before.
///
/// Preparing ahead is a chance, never a verdict: whatever fails here is done again by the owner when its turn comes, so
/// that failures show in order and a folder that is missing yet is there by then. How far the helpers run ahead is
/// bounded. takeNext() belongs to the owner's thread; destruction throws away what was not taken.
class PayloadPrefetch {
 public:
  /// Tells which file an index of the list stands for; nothing when it must not be prepared ahead. Called on any
  /// thread.
  using Chooser = std::function<std::optional<PayloadFile>(std::size_t)>;
  struct Prepared {
    foundation::PreparedFile file;
    std::string destination;
  };

  /// Starts the helpers, fewer when the system does not give as many.
  /// @param count length of the list.
  /// @param reader what the owner's thread reads with; it outlives this.
  /// @param keptBytes memory each helper keeps for its buffer; see PayloadFileReader.
  PayloadPrefetch(std::size_t count, Chooser chooser, unsigned helpers, PayloadFileReader& reader,
                  MemoryBudget& allowance, std::size_t keptBytes);
  ~PayloadPrefetch();
  PayloadPrefetch(const PayloadPrefetch&) = delete;
  PayloadPrefetch& operator=(const PayloadPrefetch&) = delete;

  /// The file of the next index, from 0 on, waiting for a helper that is busy with it; nothing when it was not to be
  /// prepared or could not be.
  [[nodiscard]] std::optional<Prepared> takeNext();
  /// Throws away what is prepared and prepares no more; from now on the caller does everything itself. Waits for
  /// nobody.
  void giveUp();

 private:
  /// Written by the thread that claimed its index until `ready`, then the owner's until it is taken.
  struct Slot {
    std::atomic<bool> ready = false;
    std::optional<Prepared> prepared;
  };

  void help(MemoryBudget& allowance, std::size_t keptBytes);
  [[nodiscard]] std::optional<std::size_t> claim();
  [[nodiscard]] std::optional<std::size_t> claimWithoutWaiting();
  [[nodiscard]] bool hasRoomFor(std::size_t index) const;
  void process(std::size_t index, PayloadFileReader& reader, foundation::PreparedFile::WaitingPlace& place);
  [[nodiscard]] std::optional<Prepared> prepare(std::size_t index, PayloadFileReader& reader,
                                                foundation::PreparedFile::WaitingPlace& place) const;
  void waitFor(std::size_t index);
  [[nodiscard]] std::optional<Prepared> release(std::size_t index);
  [[nodiscard]] Slot& slot(std::size_t index) { return slots_[index % slots_.size()]; }

  const std::size_t count_;
  const Chooser chooser_;
  PayloadFileReader& ownersReader_;
  foundation::PreparedFile::WaitingPlace ownersPlace_;
  std::vector<Slot> slots_;
  std::atomic<std::size_t> next_ = 0;   // everything below was claimed by somebody
  std::atomic<std::size_t> taken_ = 0;  // everything below was taken
  std::atomic<std::size_t> awaited_;    // the index that the owner sleeps for
  std::atomic<bool> stopping_ = false;

  // Threads meet here only to sleep and to be woken.
  std::mutex mutex_;
  std::condition_variable delivered_;
  std::condition_variable roomMade_;
  std::vector<foundation::NamedThread> threads_;
};

}  // namespace deployer
