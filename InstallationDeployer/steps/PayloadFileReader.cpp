#include "InstallationDeployer/steps/PayloadFileReader.h"

#include <utility>

#include "InstallationDeployer/QVNInstallerChecksum.h"
#include "general/foundation/FileManager.h"

namespace deployer {

using foundation::Result;
namespace files = foundation::files;

PayloadFileReader::Content::Content(PayloadFileReader& reader, BufferAllowance::Grant grant)
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

PayloadFileReader::PayloadFileReader(BufferAllowance& allowance, std::size_t keptBytes)
    : allowance_(allowance), keptBytes_(keptBytes) {}

Result<PayloadFileReader::Content> PayloadFileReader::read(const std::string& path) {
  Content content(*this, grantFor(path));
  const auto bytes = files::read(path, buffer_, [this](std::span<const std::byte> piece) { hash_.update(piece); });
  content.checksum_ = QVNInstallerChecksum::textForDigest(hash_.finish());
  if (!bytes) {
    return bytes.error();
  }
  content.bytes_ = *bytes;
  return content;
}

BufferAllowance::Grant PayloadFileReader::grantFor(const std::string& path) {
  const auto attributes = files::attributesOfItem(path);
  if (!attributes) {
    return {};
  }
  if (attributes->type != foundation::FileType::Regular) {
    // A link says nothing about the size of what it leads to.
    return allowance_.acquire(allowance_.bytes());
  }
  return attributes->size <= keptBytes_ ? BufferAllowance::Grant() : allowance_.acquire(attributes->size);
}

}  // namespace deployer
