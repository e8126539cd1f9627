#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <set>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "InstallationDeployer/FileEntry.h"
#include "general/foundation/Result.h"
#include "general/foundation/propertylist/PropertyList.h"

namespace deployer {

/// The manifest of a component whose files a run takes away or puts in place. While the run is not over, any of them
/// may be there or not.
struct JournaledManifest {
  enum class Role {
    Removed,  ///< of what was installed before the run
    Placed,   ///< of what the run installs
  };
  std::string component;
  Role role = Role::Removed;
  /// Whether modifiable files are removed or written, too: in a removal for good, and in a first install.
  bool withModifiableFiles = false;
  foundation::PropertyList document;  ///< the bytes of the manifest's file

  /// Nil when the bytes are no property list.
  [[nodiscard]] foundation::PropertyList content() const;
  friend bool operator==(const JournaledManifest&, const JournaledManifest&) = default;
};

/// Something that a run did.
struct JournalNote {
  std::string what;  ///< "stopped", "removed", …
  std::vector<std::string> components;
  friend bool operator==(const JournalNote&, const JournalNote&) = default;
};

/// What one run writes down before it changes the first thing of a product, and what it did since. Whoever finds it
/// knows every file, service and setting that may be half changed. A plain value.
struct ChangeJournal {
  enum class Operation { Install, Remove };

  Operation operation = Operation::Install;
  std::string product;
  std::string bundlePath;
  int process = 0;  ///< of the run
  /// When that process was started, to tell it from a later one of its number; nothing when the system did not say.
  std::optional<std::int64_t> processStart;
  double begunAt = 0;                       ///< seconds since the first instant of 2001, UTC
  bool treatedAsUpdate = false;             ///< of another product
  foundation::PropertyList versionsBefore;  ///< components and versions as the receipt reports them; nil without one
  foundation::PropertyList versionsAfter;   ///< those of the bundle; nil in a removal
  std::vector<JournaledManifest> manifests;
  std::vector<std::string> owedFiles;  ///< paths of the user's files of which the cache holds a copy
  /// Those of them that were copied from elsewhere: what lies at their path is not what was copied.
  std::vector<std::string> owedFromElsewhere;
  std::vector<JournalNote> notes;

  /// The names of all components, each once, in the order of the manifests.
  [[nodiscard]] std::vector<std::string> components() const;
  /// Keeps what an earlier run left undone: this run owes it, too.
  void adopt(const ChangeJournal& earlier);
  void add(JournaledManifest manifest);

  /// One line for people: what was interrupted, when and how far it had come.
  [[nodiscard]] std::string description() const;

  /// The journal without its notes, as bytes.
  [[nodiscard]] foundation::Result<std::string> document() const;
  /// Reads what document() and documentOf() wrote, one after the other. A note that was not written whole ends the
  /// reading; anything else that is not as it should be is an error of code 259.
  [[nodiscard]] static foundation::Result<ChangeJournal> parse(std::span<const std::byte> bytes);
  [[nodiscard]] static foundation::Result<std::string> documentOf(const JournalNote& note);
};

}  // namespace deployer
