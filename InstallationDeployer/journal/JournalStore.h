#pragma once

#include <optional>
#include <string>
#include <string_view>

#include "InstallationDeployer/journal/ChangeJournal.h"
#include "general/foundation/Result.h"

namespace deployer {

/// Where journals lie: one file per product. Only root can look into it. It survives restarts.
inline constexpr std::string_view kJournalFolder = "/var/db/com.corvane.installer";

/// The journals on disk. One run at a time changes a product, so nobody else writes the journal that a run uses.
/// Used by one thread.
class JournalStore {
 public:
  explicit JournalStore(std::string folder = std::string(kJournalFolder)) : folder_(std::move(folder)) {}

  /// The journal's file, for messages.
  [[nodiscard]] std::string pathFor(std::string_view product) const;

  /// Nothing when there is none; an error of code 259 for one that makes no sense.
  [[nodiscard]] foundation::Result<std::optional<ChangeJournal>> read(std::string_view product) const;
  /// Writes the journal, without notes, in the place of an older one. In one step, and it is on the disk on return. The
  /// folder is made when it is missing, and it is an error when others than root can look into it.
  [[nodiscard]] foundation::Status write(const ChangeJournal& journal) const;
  /// Adds a note to the product's journal. Not flushed: a note that a power cut takes is done again.
  [[nodiscard]] foundation::Status append(std::string_view product, const JournalNote& note) const;
  /// In one step; none is success.
  [[nodiscard]] foundation::Status remove(std::string_view product) const;
  /// Keeps the product's journal under another name, where no run looks for it, and puts this one in its place. At no
  /// moment is there none. @return the new path.
  [[nodiscard]] foundation::Result<std::string> setAsideFor(const ChangeJournal& successor) const;

  /// Whether the journal of any other product says that the cache holds files of the user. One that makes no sense
  /// counts as one that does.
  [[nodiscard]] foundation::Result<bool> anotherOwesFiles(std::string_view product) const;

 private:
  [[nodiscard]] foundation::Status makeFolder() const;

  std::string folder_;
};

}  // namespace deployer
