#include "InstallationDeployer/install/PayloadPrefetch.h"

#include <exception>
#include <limits>
#include <string>
#include <system_error>
#include <utility>

namespace deployer {

using foundation::PreparedFile;

namespace {

// Every prepared file holds a descriptor, and processes may have as few as 256.
constexpr std::size_t kFilesAhead = 64;
// Waking a thread for every file costs as much as preparing a small one: helpers that are too far ahead sleep until
// there is room for this many.
constexpr std::size_t kFilesPerWaking = 16;

constexpr std::size_t kNothingAwaited = std::numeric_limits<std::size_t>::max();

}  // namespace

PayloadPrefetch::PayloadPrefetch(std::size_t count, Decider decider, unsigned helpers, PayloadFileReader& reader,
                                 MemoryBudget& budget, std::size_t keptBytes)
    : count_(count),
      decide_(std::move(decider)),
      ownersReader_(reader),
      slots_(kFilesAhead),
      awaited_(kNothingAwaited) {
  threads_.reserve(helpers);
  try {
    for (unsigned helper = 0; helper < helpers; ++helper) {
      threads_.emplace_back("file preparation " + std::to_string(helper + 1),
                            [this, &budget, keptBytes] { help(budget, keptBytes); });
    }
  } catch (const std::system_error&) {
    // Those that could be started do the work, or else the owner does.
  }
}

PayloadPrefetch::~PayloadPrefetch() {
  giveUp();
  threads_.clear();
}

void PayloadPrefetch::giveUp() {
  stopping_ = true;
  {
    const foundation::MutexLock lock(mutex_);
    roomMade_.notifyAll();
  }
  for (Slot& done : slots_) {
    if (done.ready) {
      done.turn.reset();
    }
  }
}

PayloadPrefetch::Turn PayloadPrefetch::takeNext() {
  const std::size_t index = taken_;
  if (stopping_) {
    taken_ = index + 1;
    return {decide_(index), std::nullopt};
  }
  while (!slot(index).ready) {
    if (const auto claimed = claimWithoutWaiting()) {
      process(*claimed, ownersReader_, ownersPlace_);
    } else {
      waitFor(index);
    }
  }
  auto turn = release(index);
  return turn ? *std::move(turn) : Turn{decide_(index), std::nullopt};
}

void PayloadPrefetch::waitFor(std::size_t index) {
  awaited_ = index;
  {
    const foundation::MutexLock lock(mutex_);
    while (!slot(index).ready) {
      delivered_.wait(mutex_);
    }
  }
  awaited_ = kNothingAwaited;
}

std::optional<PayloadPrefetch::Turn> PayloadPrefetch::release(std::size_t index) {
  Slot& done = slot(index);
  auto turn = std::exchange(done.turn, std::nullopt);
  done.ready = false;
  taken_ = index + 1;
  if (taken_ % kFilesPerWaking == 0) {
    const foundation::MutexLock lock(mutex_);
    roomMade_.notifyAll();
  }
  return turn;
}

void PayloadPrefetch::help(MemoryBudget& budget, std::size_t keptBytes) {
  try {
    PayloadFileReader reader(budget, keptBytes);
    PreparedFile::WaitingPlace place;
    while (const auto index = claim()) {
      process(*index, reader, place);
    }
  } catch (const std::exception&) {
    // Too little memory to begin with, so nothing is claimed: the others do the work.
  }
}

std::optional<std::size_t> PayloadPrefetch::claim() {
  const std::size_t index = next_++;
  if (index >= count_) {
    return std::nullopt;
  }
  if (!hasRoomFor(index)) {
    const foundation::MutexLock lock(mutex_);
    while (!stopping_ && !hasRoomFor(index)) {
      roomMade_.wait(mutex_);
    }
  }
  return stopping_ ? std::nullopt : std::optional(index);
}

std::optional<std::size_t> PayloadPrefetch::claimWithoutWaiting() {
  std::size_t index = next_;
  while (index < count_ && hasRoomFor(index)) {
    if (next_.compare_exchange_weak(index, index + 1)) {
      return index;
    }
  }
  return std::nullopt;
}

bool PayloadPrefetch::hasRoomFor(std::size_t index) const { return index < taken_ + slots_.size(); }

void PayloadPrefetch::process(std::size_t index, PayloadFileReader& reader, PreparedFile::WaitingPlace& place) {
  std::optional<Turn> turn;
  try {
    turn = Turn{decide_(index), std::nullopt};
    turn->prepared = prepare(turn->action, reader, place);
  } catch (const std::exception&) {
    // Out of memory: the owner tries again when the file's turn comes.
  }
  Slot& done = slot(index);
  if (!stopping_) {
    done.turn = std::move(turn);
  }
  done.ready = true;
  if (awaited_ == index) {
    const foundation::MutexLock lock(mutex_);
    delivered_.notifyOne();
  }
}

std::optional<PreparedFile> PayloadPrefetch::prepare(const InstallAction& action, PayloadFileReader& reader,
                                                     PreparedFile::WaitingPlace& place) {
  // What an earlier entry may install, or another rule decides about, waits for its turn.
  if (action.kind != InstallAction::Kind::PayloadFile) {
    return std::nullopt;
  }
  const auto content = reader.read(action.source);
  if (!content || content->checksum() != action.entry.checksum()) {
    return std::nullopt;
  }
  auto prepared = PreparedFile::prepare(action.destination, content->bytes(), action.entry.attributes(), place);
  const bool isReady = prepared && (!action.isFlushed || prepared->flush());
  return isReady ? std::optional(std::move(prepared).value()) : std::nullopt;
}

}  // namespace deployer
