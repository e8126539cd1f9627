#pragma once

#include <cstdint>
#include <optional>
#include <string>

namespace support {

/// A file that is a block device as long as this object or a mount uses it, and not a moment longer: the system lets it
/// go by itself, also when the process is killed. Throws PrivateRootError.
class LoopDevice {
 public:
  explicit LoopDevice(const std::string& image);
  ~LoopDevice();
  LoopDevice(const LoopDevice&) = delete;
  LoopDevice& operator=(const LoopDevice&) = delete;

  [[nodiscard]] const std::string& path() const { return path_; }

  /// Why files cannot be devices here; nothing when they can.
  [[nodiscard]] static std::optional<std::string> whyImpossible();

 private:
  std::string path_;
  int descriptor_ = -1;
};

/// Why no file system of that type can be made and mounted here; nothing when it can.
[[nodiscard]] std::optional<std::string> whyNoFileSystem(const std::string& fileSystem);
/// Makes a file of that size with a file system in it, by its own mkfs. Throws PrivateRootError.
void makeImage(const std::string& image, const std::string& fileSystem, std::uint64_t sizeBytes);

/// Copies an image at one moment, holes as holes: what is being written meanwhile makes it begin again. Throws
/// PrivateRootError.
void copyImage(const std::string& from, const std::string& to);

}  // namespace support
