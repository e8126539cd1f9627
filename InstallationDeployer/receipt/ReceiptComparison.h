#pragma once

#include <cstdint>
#include <string>
#include <string_view>

#include "general/foundation/files/FileBuffer.h"

namespace deployer {

/// Compares a receipt that was staged with the bundle that it is a copy of. What is not as it is in the bundle is an
/// error in the log, with the reason. Used by one thread.
class ReceiptComparison {
 public:
  ReceiptComparison(std::string bundle, std::string receipt);

  /// Whether a file has the same bytes in both.
  /// @param relativePath below the roots of both.
  [[nodiscard]] bool isSame(const std::string& relativePath);
  /// The same for a file that the bundle need not have; a folder in its place is none.
  [[nodiscard]] bool isSameIfPresent(const std::string& relativePath);
  /// Whether a folder of the bundle is in the receipt, too, with all folders and regular files in it, of the same
  /// sizes. A folder that the bundle does not have need not be there.
  [[nodiscard]] bool holdsFolder(const std::string& relativeFolder) const;
  /// The same without what lies in the folder.
  [[nodiscard]] bool holdsFolderItself(const std::string& relativeFolder) const;

 private:
  [[nodiscard]] bool holdsItem(const std::string& relativePath) const;
  [[nodiscard]] bool isCopiedFolder(const std::string& relativeFolder) const;
  [[nodiscard]] bool isCopiedFile(const std::string& relativePath, std::uint64_t size) const;
  [[nodiscard]] std::string inBundle(const std::string& relativePath) const;
  [[nodiscard]] std::string inReceipt(const std::string& relativePath) const;

  std::string bundle_;
  std::string receipt_;
  foundation::FileBuffer originalBytes_;
  foundation::FileBuffer copiedBytes_;
};

}  // namespace deployer
