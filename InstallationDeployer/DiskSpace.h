#pragma once

#include <cstdint>

#include "general/foundation/propertylist/PropertyList.h"

namespace deployer {

/// Space on disk that several things need together, in bytes. Sizes come from outside and may be any number: sums stop
/// at the ends of the range instead of wrapping round.
class DiskSpace {
 public:
  void add(std::int64_t bytes);
  /// What the receipt of the bundle with this index takes, with the payload where receipts keep it.
  void addReceipt(const foundation::PropertyList& index);
  [[nodiscard]] std::int64_t required() const { return required_; }
  [[nodiscard]] bool fitsInto(std::int64_t freeBytes) const { return freeBytes >= required_; }
  /// A size of the system as a signed number.
  [[nodiscard]] static std::int64_t signedSize(std::uint64_t bytes);

 private:
  std::int64_t required_ = 0;
};

}  // namespace deployer
