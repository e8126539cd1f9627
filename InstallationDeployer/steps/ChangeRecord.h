#pragma once

#include <functional>
#include <memory>
#include <set>
#include <string>
#include <string_view>
#include <vector>

#include "general/foundation/Result.h"
#include "general/foundation/propertylist/PropertyList.h"

namespace deployer {

/// What a run's steps tell of their changes, so that whoever comes after an interrupted run can finish what is owed;
/// and what an earlier, interrupted run left to this one. Belongs to the main thread.
class ChangeRecord {
 public:
  using Names = std::vector<std::string>;

  virtual ~ChangeRecord() = default;

  /// Components that an interrupted run may have left half changed. They are planned, whatever their versions say.
  [[nodiscard]] virtual Names damagedComponents() const = 0;
  /// What the product's receipt says is installed: components and versions.
  virtual void noteInstalled(const foundation::PropertyList& componentsAndVersions) = 0;

  /// To be called before anything of these components is stopped, removed or written. It is written down on the disk,
  /// and then everything that an interrupted run left half changed is taken away. False, and an error in the log: then
  /// nothing may be changed. What was announced before costs nothing.
  [[nodiscard]] virtual bool begin(const Names& components) = 0;
  /// Something is done: "stopped", "removed", "installed" …
  virtual void note(std::string_view what, const Names& components) = 0;
  /// Everything is as it should be, and on the disk: nothing is owed any more. False, and an error in the log, when
  /// that cannot be written down.
  [[nodiscard]] virtual bool finish() = 0;

  /// Paths of the user's files of which the cache holds a copy that is still to be put back, whoever made it.
  [[nodiscard]] virtual const Names& owedFiles() const = 0;
  /// The cache holds a copy of the file at this path.
  /// @param fromElsewhere the copy is of another file than the one at the path.
  virtual void noteOwedFile(const std::string& path, bool fromElsewhere) = 0;
  /// Keeps the runs of other products from filling and emptying the cache, which all share, while the result lives.
  /// Waits for who has it. Null, and an error in the log, when it cannot be had. Nothing else is waited for meanwhile.
  [[nodiscard]] virtual std::shared_ptr<const void> lockCache() = 0;
  /// Whether the run of another product has copies in the cache.
  [[nodiscard]] virtual foundation::Result<bool> sharesCache() const = 0;
  /// Paths of modifiable files that an install writes although it would leave them to their user: an interrupted run
  /// took them away. None before begin().
  [[nodiscard]] virtual const std::set<std::string, std::less<>>& modifiableFilesToWrite() const = 0;
};

}  // namespace deployer
