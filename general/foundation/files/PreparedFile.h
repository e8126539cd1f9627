#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <string>

#include "general/foundation/Descriptor.h"
#include "general/foundation/Result.h"
#include "general/foundation/files/FileAttributes.h"

namespace foundation {

/// A file that is written in full and carries its final attributes, but that no name shows yet.
///
/// Preparing may run on any thread, ahead of time: it works also while the destination's folder does not exist yet, as
/// long as one of its parents does. Publishing is an atomic replace: the file gets its name in one step, instead of a
/// file or link that has it; the folder must exist by then. Where the file system allows it the prepared file has no
/// name at all, so a killed process leaves nothing behind; elsewhere it has an unpredictable temporary name (see
/// TemporaryNames.h). Dropping a prepared file unpublished discards it. Every prepared file keeps one descriptor open,
/// so whoever prepares ahead bounds how many.
class PreparedFile {
 public:
  /// Where files wait whose folder does not exist yet. Kept from file to file by who prepares many, so that the nearest
  /// folder is looked for once per missing folder and not once per file. For one thread.
  struct WaitingPlace {
    std::string missingFolder;
    std::string nearestFolder;
  };

  /// @param attributes absent ones are the process's owner and group and mode 0644.
  [[nodiscard]] static Result<PreparedFile> prepare(const std::string& destination, std::span<const std::byte> content,
                                                    const FileAttributes& attributes);
  [[nodiscard]] static Result<PreparedFile> prepare(const std::string& destination, std::span<const std::byte> content,
                                                    const FileAttributes& attributes, WaitingPlace& place);
  PreparedFile(PreparedFile&& other) noexcept;
  PreparedFile& operator=(PreparedFile&& other) noexcept;
  PreparedFile(const PreparedFile&) = delete;
  PreparedFile& operator=(const PreparedFile&) = delete;
  ~PreparedFile();

  /// Puts what is written on the disk.
  [[nodiscard]] Status flush();
  /// Errors: those of writing; 512 with errno EXDEV when the destination's folder turned out to lie on another file
  /// system than the parent that existed at preparation (prepare it again then).
  [[nodiscard]] Status publish() &&;

 private:
  PreparedFile(std::string destination, Descriptor file, std::string temporaryPath);
  [[nodiscard]] int giveName();
  [[nodiscard]] int replaceTaken();
  [[nodiscard]] int copyToTemporaryName();
  void discard() noexcept;

  std::string destination_;
  Descriptor file_;            // the file while it has no name
  std::string temporaryPath_;  // its temporary name while it has one, else empty
};

}  // namespace foundation
