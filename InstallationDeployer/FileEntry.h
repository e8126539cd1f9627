#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "general/foundation/files/FileAttributes.h"
#include "general/foundation/files/ItemStatus.h"
#include "general/foundation/propertylist/PropertyList.h"

namespace deployer {

/// Whether a path from a manifest can name an item below a root: it names something, does not climb and holds no NUL. A
/// name that is too long can be given to the system, which refuses it. The root itself can be named as "/" alone.
[[nodiscard]] bool isUsablePath(std::string_view path);

/// Whether a path lies in the folder where newer systems let nobody install. Compared as it stands.
[[nodiscard]] bool liesInSystemFolder(std::string_view path);

/// One entry of a component's list of files, in the words of those who ask. A view: it costs no more than the value it
/// looks at, and what it answers lives as long as it or a copy. May be used by several threads.
///
/// Entries come from outside. A value of the wrong type counts as absent, so every question has an answer; only
/// whether the path can be used must be asked before it is.
class FileEntry {
 public:
  explicit FileEntry(foundation::PropertyList dictionary) : dictionary_(std::move(dictionary)) {}

  /// The entry as the manifest has it, and the value under its path, whatever it is; both for messages.
  [[nodiscard]] const foundation::PropertyList& dictionary() const { return dictionary_; }
  [[nodiscard]] const foundation::PropertyList& listedPath() const;

  /// Where the item goes, as it stands; nothing when it is missing or no text.
  [[nodiscard]] std::optional<std::string_view> path() const { return listedPath().string(); }
  [[nodiscard]] bool hasUsablePath() const;
  /// Whether the path, however it is written, is the root's.
  [[nodiscard]] bool isRoot() const;
  /// Where the item lies once it is installed: an absolute and standardized path. Nothing when the entry's path is
  /// relative or not usable.
  [[nodiscard]] std::optional<std::string> installedPath() const;

  // An entry may claim to be both. Installing takes it for a link, removing for a directory that a link has replaced.
  [[nodiscard]] bool isDirectory() const;
  [[nodiscard]] bool isSymbolicLink() const;
  [[nodiscard]] std::optional<std::string_view> linkTarget() const;

  /// Of the file's content, and its name in the payload.
  [[nodiscard]] std::optional<std::string_view> checksum() const;
  /// Where content that is not in the payload comes from: absolute, or relative to the payload's root.
  [[nodiscard]] std::optional<std::string_view> externalSource() const;
  /// Whether an upgrade compares what is installed with the external source.
  [[nodiscard]] bool checksForExternalChanges() const;

  /// The user or the product may change the file, so it is kept in upgrades and repairs.
  [[nodiscard]] bool isModifiable() const;
  /// The last component of the path stands for all names that fit it.
  [[nodiscard]] bool isWildcard() const;
  /// A directory that is removed with everything in it.
  [[nodiscard]] bool removesContents() const;

  /// Owner, group and permissions. Numbers are cut to 32 bits, permissions to the permission bits.
  [[nodiscard]] foundation::FileAttributes attributes() const;

 private:
  foundation::PropertyList dictionary_;
};

/// The list of files of a component's manifest, in its order; empty when it has none.
[[nodiscard]] std::vector<FileEntry> fileEntriesOf(const foundation::PropertyList& manifest);

/// What an item on disk is like in the words of a file entry, for messages.
[[nodiscard]] foundation::PropertyList dictionaryOf(const foundation::ItemStatus& item);

}  // namespace deployer
