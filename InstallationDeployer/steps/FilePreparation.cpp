#include "InstallationDeployer/steps/FilePreparation.h"

#include <algorithm>
#include <exception>
#include <system_error>
#include <utility>

namespace deployer {

using foundation::PreparedFile;

namespace {

// Every prepared file holds a descriptor, and processes may have as few as 256.
constexpr std::size_t kFilesAhead = 64;

}  // namespace

FilePreparation::FilePreparation(std::size_t count, Chooser chooser, unsigned helpers, BufferAllowance& allowance,
                                 std::size_t keptBytes)
    : count_(count), chooser_(std::move(chooser)), slots_(kFilesAhead) {
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
  std::vector<Slot> discarded(slots_.size());
  {
    const std::lock_guard lock(mutex_);
    stopping_ = true;
    discarded.swap(slots_);
  }
  roomMade_.notify_all();
}

std::optional<FilePreparation::Prepared> FilePreparation::takeNext() {
  std::optional<Prepared> prepared;
  {
    std::unique_lock lock(mutex_);
    if (stopping_) {
      return std::nullopt;
    }
    Slot& turn = slot(taken_);
    if (taken_ < next_) {
      delivered_.wait(lock, [&] { return turn.ready; });
    }
    prepared = std::exchange(turn, {}).prepared;
    ++taken_;
    next_ = std::max(next_, taken_);
  }
  roomMade_.notify_one();
  return prepared;
}

void FilePreparation::run(BufferAllowance& allowance, std::size_t keptBytes) {
  try {
    PayloadFileReader reader(allowance, keptBytes);
    while (const auto index = claim()) {
      deliver(*index, prepare(*index, reader));
    }
  } catch (const std::exception&) {
    // Out of memory before the first claim: the others, or the owner, do the work.
  }
}

std::optional<std::size_t> FilePreparation::claim() {
  std::unique_lock lock(mutex_);
  roomMade_.wait(lock, [this] { return stopping_ || next_ >= count_ || next_ < taken_ + slots_.size(); });
  if (stopping_ || next_ >= count_) {
    return std::nullopt;
  }
  return next_++;
}

std::optional<FilePreparation::Prepared> FilePreparation::prepare(std::size_t index, PayloadFileReader& reader) const {
  try {
    auto file = chooser_(index);
    if (!file) {
      return std::nullopt;
    }
    const auto content = reader.read(file->source);
    if (!content || content->checksum() != file->checksum) {
      return std::nullopt;
    }
    auto prepared = PreparedFile::prepare(file->destination, content->bytes(), file->attributes);
    if (!prepared) {
      return std::nullopt;
    }
    return Prepared{std::move(prepared).value(), std::move(file->destination)};
  } catch (const std::exception&) {
    return std::nullopt;
  }
}

void FilePreparation::deliver(std::size_t index, std::optional<Prepared> prepared) {
  {
    const std::lock_guard lock(mutex_);
    if (stopping_) {
      return;
    }
    slot(index) = {true, std::move(prepared)};
  }
  delivered_.notify_one();
}

}  // namespace deployer
