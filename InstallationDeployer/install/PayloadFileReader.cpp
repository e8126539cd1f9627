#include "InstallationDeployer/install/PayloadFileReader.h"

#include <utility>

#include "InstallationDeployer/QVNInstallerChecksum.h"
#include "general/foundation/files/FileManager.h"
#include "general/foundation/files/GuardedReading.h"

namespace deployer {

using foundation::Result;
namespace files = foundation::files;

PayloadFileReader::Content::Content(PayloadFileReader& reader, MemoryBudget::Grant grant)
    : reader_(&reader), grant_(std::move(grant)) {}

PayloadFileReader::Content::Content(Content&& other) noexcept
    : reader_(std::exchange(other.reader_, nullptr)),
      grant_(std::move(other.grant_)),
      bytes_(other.bytes_),
      checksum_(std::move(other.checksum_)) {}

PayloadFileReader::Content::~Content() {
  // The memory leaves the process before others may take as much.
  if (reader_ != nullptr) {
    reader_->buffer_.shrinkTo(reader_->keptBytes_);
  }
}

PayloadFileReader::PayloadFileReader(MemoryBudget& budget, std::size_t keptBytes)
    : budget_(budget), keptBytes_(keptBytes) {}

Result<PayloadFileReader::Content> PayloadFileReader::read(const std::string& path, bool isOutside) {
  auto content = readUpTo(keptBytes_, path, isOutside, {});
  if (content || content.error().code != foundation::kReadTooLarge) {
    return content;
  }
  return readUpTo(UINT64_MAX, path, isOutside, budget_.acquire(sizeOf(path)));
}

Result<PayloadFileReader::Content> PayloadFileReader::readUpTo(std::uint64_t mostBytes, const std::string& path,
                                                               bool isOutside, MemoryBudget::Grant grant) {
  Content content(*this, std::move(grant));
  const auto bytes = readBytes(mostBytes, path, isOutside);
  content.checksum_ = QVNInstallerChecksum::textForDigest(hash_.finish());
  if (!bytes) {
    return bytes.error();
  }
  content.bytes_ = *bytes;
  return content;
}

Result<std::span<const std::byte>> PayloadFileReader::readBytes(std::uint64_t mostBytes, const std::string& path,
                                                                bool isOutside) {
  const auto hash = [this](std::span<const std::byte> piece) { hash_.update(piece); };
  if (!isOutside) {
    return files::read(path, buffer_, hash, mostBytes);
  }
  const auto guarded = files::readGuarded(path, buffer_, hash, mostBytes);
  return guarded ? Result(guarded->bytes) : guarded.error();
}

std::size_t PayloadFileReader::sizeOf(const std::string& path) const {
  const auto attributes = files::attributesOfItem(path);
  // A link says nothing about the size of what it leads to.
  return attributes && attributes->type == foundation::FileType::Regular ? attributes->size : budget_.bytes();
}

}  // namespace deployer
