#include "InstallationDeployer/steps/FilePreparation.h"

#include <algorithm>
#include <exception>
#include <limits>
#include <system_error>
#include <utility>

namespace deployer {

using foundation::PreparedFile;

namespace {

// Every prepared file holds a descriptor, and processes may have as few as 256.
constexpr std::size_t kFilesAhead = 64;
// Waking a thread for every file costs as much as preparing a small one. The owner sleeps until this many are ready,
// and helpers that are too far ahead until there is room for as many. Well below half of kFilesAhead, so that nobody
// sleeps for what only a sleeper can do.
constexpr std::size_t kFilesPerWaking = 16;
static_assert(kFilesAhead >= 3 * kFilesPerWaking);

constexpr std::size_t kNothingAwaited = std::numeric_limits<std::size_t>::max();

}  // namespace

FilePreparation::FilePreparation(std::size_t count, Chooser chooser, unsigned helpers, BufferAllowance& allowance,
                                 std::size_t keptBytes)
    : count_(count), chooser_(std::move(chooser)), slots_(kFilesAhead), awaited_(kNothingAwaited) {
  threads_.reserve(helpers);
  try {
    for (unsigned helper = 0; helper < helpers; ++helper) {
      threads_.emplace_back("file preparation " + std::to_string(helper + 1),
                            [this, &allowance, keptBytes] { run(allowance, keptBytes); });
    }
  } catch (const std::system_error&) {
    // Those that could be started do the work, or else the owner does.
  }
}

FilePreparation::~FilePreparation() {
  giveUp();
  threads_.clear();
}

void FilePreparation::giveUp() {
  stopping_ = true;
  {
    const std::lock_guard lock(mutex_);
    roomMade_.notify_all();
  }
  for (Slot& prepared : slots_) {
    if (prepared.ready) {
      prepared.prepared.reset();
    }
  }
}

std::optional<FilePreparation::Prepared> FilePreparation::takeNext() {
  const std::size_t index = taken_;
  std::size_t unclaimed = index;
  if (stopping_ || next_.compare_exchange_strong(unclaimed, index + 1)) {
    taken_ = index + 1;
    return std::nullopt;
  }
  if (!slot(index).ready) {
    waitFor(std::min(index + kFilesPerWaking, count_) - 1);
    waitFor(index);
  }
  return release(index);
}

void FilePreparation::waitFor(std::size_t index) {
  awaited_ = index;
  {
    std::unique_lock lock(mutex_);
    delivered_.wait(lock, [&] { return slot(index).ready.load(); });
  }
  awaited_ = kNothingAwaited;
}

std::optional<FilePreparation::Prepared> FilePreparation::release(std::size_t index) {
  Slot& turn = slot(index);
  std::optional<Prepared> prepared = std::exchange(turn.prepared, std::nullopt);
  turn.ready = false;
  taken_ = index + 1;
  if (taken_ % kFilesPerWaking == 0) {
    const std::lock_guard lock(mutex_);
    roomMade_.notify_all();
  }
  return prepared;
}

void FilePreparation::run(BufferAllowance& allowance, std::size_t keptBytes) {
  std::optional<PayloadFileReader> reader;
  PreparedFile::WaitingPlace place;
  while (const auto index = claim()) {
    std::optional<Prepared> prepared;
    try {
      if (!reader) {
        reader.emplace(allowance, keptBytes);
      }
      prepared = prepare(*index, *reader, place);
    } catch (const std::exception&) {
      // Out of memory: the owner tries again when the file's turn comes.
    }
    deliver(*index, std::move(prepared));
  }
}

std::optional<std::size_t> FilePreparation::claim() {
  const std::size_t index = next_++;
  if (index >= count_) {
    return std::nullopt;
  }
  if (!hasRoomFor(index)) {
    std::unique_lock lock(mutex_);
    roomMade_.wait(lock, [&] { return stopping_ || hasRoomFor(index); });
  }
  return stopping_ ? std::nullopt : std::optional(index);
}

bool FilePreparation::hasRoomFor(std::size_t index) const { return index < taken_ + slots_.size(); }

std::optional<FilePreparation::Prepared> FilePreparation::prepare(std::size_t index, PayloadFileReader& reader,
                                                                  PreparedFile::WaitingPlace& place) const {
  auto file = chooser_(index);
  if (!file) {
    return std::nullopt;
  }
  const auto content = reader.read(file->source);
  if (!content || content->checksum() != file->checksum) {
    return std::nullopt;
  }
  auto prepared = PreparedFile::prepare(file->destination, content->bytes(), file->attributes, place);
  if (!prepared) {
    return std::nullopt;
  }
  return Prepared{std::move(prepared).value(), std::move(file->destination)};
}

void FilePreparation::deliver(std::size_t index, std::optional<Prepared> prepared) {
  Slot& delivered = slot(index);
  if (!stopping_) {
    delivered.prepared = std::move(prepared);
  }
  delivered.ready = true;
  if (awaited_ == index) {
    const std::lock_guard lock(mutex_);
    delivered_.notify_one();
  }
}

}  // namespace deployer
