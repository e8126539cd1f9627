#pragma once

#include <functional>
#include <set>
#include <string>

#include "InstallationDeployer/FileEntry.h"
#include "general/foundation/files/FileAttributes.h"

namespace deployer {

/// What is to be done with one file entry when its component is installed, and with which paths.
struct InstallAction {
  enum class Kind {
    Keep,               ///< the user or the product may have changed the file: it stays as it is
    Skip,               ///< it lies where newer systems let nobody install
    Link,               ///< to be made once the component's other items are there
    Directory,          ///< `destination`
    ExternalDirectory,  ///< `destination`, emptied and filled with what lies in `source`
    PayloadFile,        ///< `source` becomes `destination`
    ExternalFile,       ///< the same, if there is a `source`
    Refuse,             ///< the entry cannot be installed: `refusal` is the message
  };

  Kind kind;
  FileEntry entry;
  std::string destination = {};
  std::string source = {};
  std::string refusal = {};
  /// `source` lies outside the bundle, where others may have put links.
  bool isOutside = false;
  bool isFlushed = false;  ///< the file's content reaches the disk before its name shows
};

/// What the entries of one component share when they are installed, and the one place that decides what is done with
/// each. It decides by what the entry says and never looks at the disk, where an earlier entry may change something
/// yet. Used by any thread.
struct InstallRules {
  std::string component;                           ///< its name
  std::string source;                              ///< the payload's root
  std::string destination;                         ///< the root that the entries' paths are appended to
  foundation::FileAttributes directoryAttributes;  ///< of directories that no entry describes
  bool keepsModifiableFiles = false;
  std::set<std::string, std::less<>> modifiableFilesToWrite = {};  ///< paths of those that are not kept all the same
  /// Paths of files that wait elsewhere to be put back. Nothing that a power cut left empty may stand in their place:
  /// the next run would take it for what the user made since.
  std::set<std::string, std::less<>> owedFiles = {};
  bool skipsSystemFolder = false;

  [[nodiscard]] InstallAction decide(const FileEntry& entry) const;
  /// The same for an entry that is taken for a directory or a file, whatever else it claims to be.
  [[nodiscard]] InstallAction decideCopy(const FileEntry& entry) const;

 private:
  [[nodiscard]] bool liesOutside(const std::string& path) const;
  [[nodiscard]] InstallAction decideDirectory(const FileEntry& entry, std::string path) const;
  [[nodiscard]] InstallAction decideFile(const FileEntry& entry, std::string path) const;
};

}  // namespace deployer
