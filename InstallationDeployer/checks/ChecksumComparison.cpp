#include "InstallationDeployer/checks/ChecksumComparison.h"

#include <exception>
#include <optional>
#include <span>
#include <string>
#include <system_error>

#include "InstallationDeployer/QVNInstallerChecksum.h"
#include "general/foundation/SHA256.h"
#include "general/foundation/Thread.h"
#include "general/foundation/files/FileBuffer.h"
#include "general/foundation/files/FileManager.h"

namespace deployer {

using foundation::Result;
namespace files = foundation::files;

/// For one thread.
class ChecksumReader {
 public:
  explicit ChecksumReader(CheckProgress& progress) : progress_(progress) {}

  Result<std::string> checksumOf(const std::string& path) {
    const auto read = files::readInPieces(path, buffer_, [this](std::span<const std::byte> piece) {
      hash_.update(piece);
      progress_.advance(piece.size());
      return !progress_.isStopped();
    });
    std::string checksum = QVNInstallerChecksum::textForDigest(hash_.finish());
    return read ? Result<std::string>(std::move(checksum)) : Result<std::string>(read.error());
  }

 private:
  CheckProgress& progress_;
  foundation::FileBuffer buffer_;
  foundation::SHA256 hash_;
};

void ChecksumComparison::run() {
  std::exception_ptr failure;
  const auto help = [&] {
    try {
      work();
    } catch (...) {
      failure = std::current_exception();
    }
  };
  {
    std::optional<foundation::NamedThread> helper;
    try {
      helper.emplace("bundle check helper", help);
    } catch (const std::system_error&) {
      // One thread does it, too.
    }
    work();
  }
  if (failure) {
    std::rethrow_exception(failure);
  }
}

void ChecksumComparison::work() {
  ChecksumReader reader(progress_);
  for (std::size_t index = next_++; index < payload_.files().size() && !progress_.isStopped(); index = next_++) {
    compare(index, reader);
  }
}

void ChecksumComparison::compare(std::size_t index, ChecksumReader& reader) {
  const PayloadFiles::File& file = payload_.files()[index];
  const InstallAction action = payload_.actionFor(file);
  const auto found = reader.checksumOf(action.source);
  if (progress_.isStopped()) {
    return;
  }
  const std::string& component = payload_.componentOf(file);
  if (!found) {
    problems_.add(firstPlace_ + index, problemOfReading(action.source, component, found.error()));
    return;
  }
  const std::string expected(action.entry.checksum().value_or(""));
  if (*found != expected) {
    problems_.add(firstPlace_ + index,
                  {.kind = BundleProblem::Kind::Checksum,
                   .file = action.source,
                   .what = "is damaged: its checksum is another one (it becomes " + action.destination + ")",
                   .component = component,
                   .expected = expected,
                   .found = *found});
  }
}

}  // namespace deployer
