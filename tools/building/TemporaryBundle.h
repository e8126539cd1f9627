#pragma once

#include <string>

#include "general/foundation/Result.h"

namespace bundletool {

/// A bundle in the making, in a folder of its own beside where it will lie. Removed with everything in it unless it was
/// published.
class TemporaryBundle {
 public:
  /// @param output an existing folder.
  [[nodiscard]] static foundation::Result<TemporaryBundle> make(const std::string& output);
  TemporaryBundle(TemporaryBundle&& other) noexcept;
  TemporaryBundle& operator=(TemporaryBundle&&) = delete;
  TemporaryBundle(const TemporaryBundle&) = delete;
  TemporaryBundle& operator=(const TemporaryBundle&) = delete;
  ~TemporaryBundle();

  [[nodiscard]] const std::string& path() const { return path_; }
  /// Gives the bundle its final name by one rename (atomic replace): nobody sees half of it. With `replace`, what has
  /// that name goes away as a whole; when the bundle cannot be put in its place it stays.
  [[nodiscard]] foundation::Status publish(const std::string& destination, bool replace);

 private:
  explicit TemporaryBundle(std::string path) : path_(std::move(path)) {}

  std::string path_;
};

}  // namespace bundletool
