#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <string>
#include <vector>

#include "general/foundation/Result.h"
#include "general/foundation/files/FileAttributes.h"
#include "general/foundation/files/FileBuffer.h"
#include "general/foundation/files/FileSystemAttributes.h"
#include "general/foundation/files/ItemStatus.h"
#include "general/foundation/files/PieceVisitor.h"

/// Work on files. Every failure is an Error of kFileErrorDomain with the codes of Error.h; a path that holds a NUL or
/// is too long is an error of its own, never a shorter path. All functions may be called from any thread.
namespace foundation::files {

/// Follows links: a link that leads nowhere does not exist. False also when nobody can tell, so only for callers that
/// go on to do what would fail then; where nothing being there has a meaning, ask for the presence.
[[nodiscard]] bool exists(const std::string& path);
/// Whether something lies at the path. Follows links: one that leads nowhere or in circles is nothing, and so is what
/// no item can be named by. Whatever else kept the system from looking (memory, descriptors, a device) is an error.
[[nodiscard]] Result<bool> presence(const std::string& path);
/// Does not follow a link: describes the link itself.
[[nodiscard]] Result<ItemStatus> attributesOfItem(const std::string& path);
/// As attributesOfItem, but follows links.
[[nodiscard]] Result<ItemStatus> attributesOfTarget(const std::string& path);
/// Names in the directory, without "." and "..", sorted by their bytes so that every run does the same.
[[nodiscard]] Result<std::vector<std::string>> contentsOfDirectory(const std::string& path);
/// The text of a link, not resolved.
[[nodiscard]] Result<std::string> destinationOfSymbolicLink(const std::string& path);
[[nodiscard]] Result<std::string> currentDirectory();

/// Creates a directory with these attributes whatever the umask. With `withParents`, missing parents are created with
/// the same attributes, and an existing directory (or a link to one) is success and stays as it is. A new directory
/// shows under its name only once its attributes are set.
[[nodiscard]] Status createDirectory(const std::string& path, bool withParents, const FileAttributes& attributes);
/// Creates a link with this text, with the owner and group given from the moment it shows. Fails with 516 when
/// anything, even a dangling link, has the name.
[[nodiscard]] Status createSymbolicLink(const std::string& path, const std::string& target,
                                        const FileAttributes& attributes);
/// Removes an item; a directory goes with all its content. Links are removed, never followed, also when someone swaps a
/// directory for a link meanwhile. Other file systems mounted below are not entered.
[[nodiscard]] Status removeItem(const std::string& path);
/// The same; nothing to remove is success.
[[nodiscard]] Status removeItemIfPresent(const std::string& path);
/// Renames an item on one file system. Fails with 516 when the new name is taken.
[[nodiscard]] Status moveItem(const std::string& from, const std::string& to);
/// Lets two items of one file system change places in one step. Not every file system can.
[[nodiscard]] Status exchangeItems(const std::string& one, const std::string& other);
/// Owner and group first, then permissions (a change of owner clears set-id bits), then the date. Follows links
/// of the effective user; a link of anybody else is an error, for it may lead where no change was asked for.
[[nodiscard]] Status setAttributes(const FileAttributes& attributes, const std::string& path);
/// Whether links have permissions of their own; elsewhere they only report some.
[[nodiscard]] bool linksHavePermissions();
/// Owner, group and (where the system has such a thing) permissions of a link itself.
[[nodiscard]] Status setLinkAttributes(const FileAttributes& attributes, const std::string& path);

/// Reads a regular file whole into the buffer. Anything else (folder, pipe, device) is an error at once: it never
/// waits. The bytes live in the buffer until its next use.
/// @param mostBytes a file that is larger is an error with the code 263, before anything of it is read.
[[nodiscard]] Result<std::span<const std::byte>> read(const std::string& path, FileBuffer& buffer,
                                                      const PieceVisitor& visitor = {},
                                                      std::uint64_t mostBytes = UINT64_MAX);
/// The same, but a link at the end of the path is an error and not followed.
[[nodiscard]] Result<std::span<const std::byte>> readItself(const std::string& path, FileBuffer& buffer);
/// The same for small files, as a string.
[[nodiscard]] Result<std::string> readText(const std::string& path);
/// Shows a regular file of any length piece by piece, in order, with no more of it in the buffer than the piece at
/// hand; fails as read() does. Returns when the reader has had all of it or wants no more.
[[nodiscard]] Status readInPieces(const std::string& path, FileBuffer& buffer, const PieceReader& reader);
/// The length in bytes of a regular file that can be opened for reading; fails as read() does.
[[nodiscard]] Result<std::uint64_t> lengthOfReadableFile(const std::string& path);
/// Replaces the file's content in one step (an atomic replace): a reader sees all of the old or all of the new. A link
/// in the way is replaced, not followed. The attributes are set before the name shows the file; absent ones are the
/// process's owner and group and mode 0644.
[[nodiscard]] Status writeAtomically(std::span<const std::byte> content, const std::string& path,
                                     const FileAttributes& attributes = {});

/// The same, durably: the content is on the disk before the name shows it, and the name is when this returns.
[[nodiscard]] Status writeDurably(std::span<const std::byte> content, const std::string& path,
                                  const FileAttributes& attributes = {});

/// Adds to the end of a regular file that exists; a link is an error.
[[nodiscard]] Status append(std::span<const std::byte> content, const std::string& path);

[[nodiscard]] Result<FileSystemAttributes> attributesOfFileSystem(const std::string& path);

/// Puts everything written to the file system that holds the path on the disk; returns when it is there.
[[nodiscard]] Status flushFileSystem(const std::string& path);
/// Puts one file, or the names in one folder, on the disk; follows links.
[[nodiscard]] Status flushItem(const std::string& path);

}  // namespace foundation::files
