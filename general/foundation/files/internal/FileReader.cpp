#include "general/foundation/files/internal/FileReader.h"

#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdint>

namespace foundation {

namespace {

// Small enough to be in the processor's cache still when the visitor gets it.
constexpr std::size_t kPieceBytes = std::size_t{128} * 1024;

}  // namespace

int FileReader::readAll(std::size_t expected) {
  expected_ = expected;
  if (!makeRoom(expected)) {
    return -1;
  }
  while (true) {
    if (used_ == buffer_.memory().size() && !makeRoom(used_)) {
      return -1;
    }
    const int progress = readPiece();
    if (progress <= 0) {
      return progress;
    }
  }
}

// One byte more than the content is what shows the end without another call.
bool FileReader::makeRoom(std::size_t content) {
  if (used_ == 0 && buffer_.memory().size() <= content) {
    buffer_.shrinkTo(0);
  }
  if (content > SIZE_MAX - kPieceBytes || !buffer_.reserve(content / kPieceBytes * kPieceBytes + kPieceBytes)) {
    errno = ENOMEM;
    return false;
  }
  return true;
}

// 1 when there may be more, 0 at the end, -1 for an error.
int FileReader::readPiece() {
  const auto room = buffer_.memory().subspan(used_);
  const auto wanted = room.first(std::min(room.size(), kPieceBytes));
  const ssize_t count = ::read(file_, wanted.data(), wanted.size());
  if (count < 0) {
    return errno == EINTR ? 1 : -1;
  }
  const auto piece = wanted.first(static_cast<std::size_t>(count));
  used_ += piece.size();
  if (visitor_ && !piece.empty()) {
    visitor_(piece);
  }
  const bool complete = used_ == expected_ && piece.size() < wanted.size();
  return piece.empty() || complete ? 0 : 1;
}

}  // namespace foundation
