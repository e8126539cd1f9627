#pragma once

#include <cstddef>
#include <span>

#include "general/foundation/files/FileBuffer.h"
#include "general/foundation/files/PieceVisitor.h"

namespace foundation {

/// Reads an open file into a buffer, to its end, whatever its length was said to be. For the sources of this folder.
class FileReader {
 public:
  /// Buffer and visitor outlive the reader.
  FileReader(int file, FileBuffer& buffer, const files::PieceVisitor& visitor)
      : file_(file), buffer_(buffer), visitor_(visitor) {}

  /// @param expected the length the file is said to have.
  /// @return 0, or -1 with errno set.
  int readAll(std::size_t expected);
  [[nodiscard]] std::span<const std::byte> content() const { return buffer_.memory().first(used_); }

 private:
  bool makeRoom(std::size_t content);
  int readPiece();

  int file_;
  FileBuffer& buffer_;
  const files::PieceVisitor& visitor_;
  std::size_t used_ = 0;
  std::size_t expected_ = 0;
};

}  // namespace foundation
