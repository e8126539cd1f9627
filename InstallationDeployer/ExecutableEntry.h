#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "general/foundation/propertylist/PropertyList.h"

namespace deployer {

/// One entry of a component's list of executables, which may be applications. A view, like FileEntry; a value of the
/// wrong type counts as absent.
class ExecutableEntry {
 public:
  explicit ExecutableEntry(foundation::PropertyList dictionary) : dictionary_(std::move(dictionary)) {}

  /// The values as the manifest has them, whatever they are; for messages.
  [[nodiscard]] const foundation::PropertyList& listedPath() const;
  [[nodiscard]] const foundation::PropertyList& listedArguments() const;

  /// Empty when it is missing or no text.
  [[nodiscard]] std::string_view path() const { return listedPath().text(); }
  /// None when there is no list. Nothing when what is there is no list of texts: a program must not run without
  /// arguments that it was meant to get.
  [[nodiscard]] std::optional<std::vector<std::string>> arguments() const;
  [[nodiscard]] bool isApplication() const;
  /// Whether an install runs it.
  [[nodiscard]] bool runsOnInstall() const;
  /// Whether only the first install runs it; an application with this mark is never ended.
  [[nodiscard]] bool runsOnce() const;
  /// Of an application; empty when it is missing or no text.
  [[nodiscard]] std::string_view bundleIdentifier() const;

 private:
  foundation::PropertyList dictionary_;
};

}  // namespace deployer
