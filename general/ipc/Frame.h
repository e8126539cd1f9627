#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace ipc {

/// The length that precedes each frame's content: 32 bits, the most significant byte first.
inline constexpr std::size_t kFrameHeaderSize = 4;

/// The content with its length before it. The content is shorter than 2^32 bytes.
[[nodiscard]] std::string framed(std::string_view content);

/// Cuts what arrives on a connection into frames. Nothing is reserved for a length before its bytes have come.
class FrameReader {
 public:
  /// @param maximumSize of one frame's content; a longer one breaks the connection.
  explicit FrameReader(std::size_t maximumSize) : maximumSize_(maximumSize) {}

  void append(std::string_view bytes);
  /// The content of the next frame that is complete.
  [[nodiscard]] std::optional<std::string> next();
  /// A frame was announced that is empty or too long; nothing that follows can be understood.
  [[nodiscard]] bool isBroken() const;

 private:
  [[nodiscard]] std::optional<std::size_t> announcedSize() const;
  [[nodiscard]] std::size_t unread() const { return buffer_.size() - read_; }

  std::size_t maximumSize_;
  std::string buffer_;
  std::size_t read_ = 0;  // of the buffer, by next()
};

}  // namespace ipc
