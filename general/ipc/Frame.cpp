#include "general/ipc/Frame.h"

#include <utility>

namespace ipc {

std::string framed(std::string_view content) {
  std::string frame;
  frame.reserve(kFrameHeaderSize + content.size());
  for (int shift = 24; shift >= 0; shift -= 8) {
    frame.push_back(static_cast<char>((content.size() >> shift) & 0xffU));
  }
  return frame.append(content);
}

void FrameReader::append(std::string_view bytes) {
  buffer_.erase(0, std::exchange(read_, 0));
  buffer_.append(bytes);
}

std::optional<std::string> FrameReader::next() {
  const auto size = announcedSize();
  if (!size || isBroken() || unread() - kFrameHeaderSize < *size) {
    return std::nullopt;
  }
  std::string content = buffer_.substr(read_ + kFrameHeaderSize, *size);
  read_ += kFrameHeaderSize + *size;
  return content;
}

bool FrameReader::isBroken() const {
  const auto size = announcedSize();
  return size && (*size == 0 || *size > maximumSize_);
}

std::optional<std::size_t> FrameReader::announcedSize() const {
  if (unread() < kFrameHeaderSize) {
    return std::nullopt;
  }
  std::size_t size = 0;
  for (std::size_t i = 0; i < kFrameHeaderSize; ++i) {
    size = (size << 8U) | static_cast<unsigned char>(buffer_[read_ + i]);
  }
  return size;
}

}  // namespace ipc
