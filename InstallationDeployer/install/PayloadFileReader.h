#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <string>

#include "InstallationDeployer/install/MemoryBudget.h"
#include "general/foundation/Result.h"
#include "general/foundation/SHA256.h"
#include "general/foundation/files/FileBuffer.h"

namespace deployer {

/// Reads whole files into one private buffer and computes their checksum on the way, while each piece is still in the
/// processor's cache. Reuses its buffer from file to file. For one thread.
class PayloadFileReader {
 public:
  /// The bytes of one file, nobody else's to change, and their checksum. Must be gone before the next read.
  class Content {
   public:
    ~Content();
    Content(Content&& other) noexcept;
    Content& operator=(Content&&) = delete;
    Content(const Content&) = delete;
    Content& operator=(const Content&) = delete;

    [[nodiscard]] std::span<const std::byte> bytes() const { return bytes_; }
    [[nodiscard]] const std::string& checksum() const { return checksum_; }

   private:
    friend class PayloadFileReader;
    Content(PayloadFileReader& reader, MemoryBudget::Grant grant);

    PayloadFileReader* reader_;
    MemoryBudget::Grant grant_;
    std::span<const std::byte> bytes_;
    std::string checksum_;
  };

  /// @param keptBytes memory the reader keeps between files; larger files take theirs out of the budget.
  PayloadFileReader(MemoryBudget& budget, std::size_t keptBytes);

  /// May wait for memory that other readers use. Errors: those of foundation::files::read().
  /// @param isOutside the file lies where others may put links: see foundation::files::readGuarded(), whose errors
  ///   come then.
  [[nodiscard]] foundation::Result<Content> read(const std::string& path, bool isOutside = false);

 private:
  [[nodiscard]] foundation::Result<Content> readUpTo(std::uint64_t mostBytes, const std::string& path, bool isOutside,
                                                     MemoryBudget::Grant grant);
  [[nodiscard]] foundation::Result<std::span<const std::byte>> readBytes(std::uint64_t mostBytes,
                                                                         const std::string& path, bool isOutside);
  [[nodiscard]] std::size_t sizeOf(const std::string& path) const;

  MemoryBudget& budget_;
  std::size_t keptBytes_;
  foundation::FileBuffer buffer_;
  foundation::SHA256 hash_;
};

}  // namespace deployer
