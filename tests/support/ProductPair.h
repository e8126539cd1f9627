#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "general/foundation/propertylist/PropertyList.h"
#include "tests/support/BundleMaker.h"
#include "tests/support/Snapshot.h"

namespace tests {

/// Two versions of the product "Guard" between which every kind of change is found that two versions can have, and an
/// older product, "Guard Classic", that left no receipt and counts as an earlier version of it.
///
///   1.0  Core 1.0, Tools 1.0, Legacy 1.0        1.1  Core 1.1, Tools 1.0, Extra 1.0
///
/// What they consist of is a table, from which the bundles are made and from which tests know the tree that each
/// version has; no run of an engine is asked for that.
class ProductPair {
 public:
  enum class Version { First, Second };  ///< 1.0 and 1.1

  static constexpr const char* kProduct = "Guard";
  static constexpr const char* kFolder = "/Library/Guard";
  /// The file that both versions and the older product let the user change.
  static constexpr const char* kSettings = "/Library/Guard/guard.conf";
  /// Of 1.0 alone, of 1.1 alone, and of the older product alone.
  static constexpr const char* kFirstSettings = "/Library/Guard/first.conf";
  static constexpr const char* kSecondSettings = "/Library/Guard/second.conf";
  static constexpr const char* kClassicSettings = "/Library/Guard/classic.conf";
  /// Rules, which the older product lets the user change by a wildcard, and both versions one by one.
  static constexpr const char* kRules = "/Library/Guard/rules";
  static constexpr const char* kDefaultRule = "/Library/Guard/rules/default.rule";
  static constexpr const char* kOwnRule = "/Library/Guard/rules/mine.rule";
  /// A folder of 1.0 alone, and what the user keeps in it.
  static constexpr const char* kOwnNote = "/Library/Guard/kept-directory/of-the-user";
  /// A folder of 1.0 alone that goes with its content, and what the product made in it.
  static constexpr const char* kMadeInCache = "/Library/Guard/cache/made";
  /// An item of Tools, which is the same in both versions.
  static constexpr const char* kTool = "/Library/Guard/tools/one";
  /// By this the older product is detected.
  static constexpr const char* kClassicProgram = "/Library/Guard/classic";
  /// Where the files that come from outside the bundle come from.
  static constexpr const char* kLicence = "/etc/licence";
  /// Written by the product's program, one line a run: the version.
  static constexpr const char* kProgramRuns = "/var/log/guard-runs";
  /// While this exists the product's program ends with 7.
  static constexpr const char* kProgramFails = "/etc/guard-fails";
  /// While this exists the product's program waits for a line in it.
  static constexpr const char* kProgramWaits = "/run/guard-waits";

  explicit ProductPair(const std::string& engine);

  [[nodiscard]] const BundleMaker& bundle(Version version) const {
    return version == Version::First ? first_ : second_;
  }
  [[nodiscard]] static std::string versionText(Version version) { return version == Version::First ? "1.0" : "1.1"; }
  [[nodiscard]] static Version other(Version version) {
    return version == Version::First ? Version::Second : Version::First;
  }

  /// The names of the kinds of change, each with the paths below kFolder that show it.
  [[nodiscard]] static std::vector<std::string> kindsOfChange();
  /// Every item of a first installation, sorted by path: with the content of modifiable files as it is delivered.
  [[nodiscard]] static support::Snapshot tree(Version version);
  /// Every item of the older product, as it is delivered.
  [[nodiscard]] static support::Snapshot classicTree();
  [[nodiscard]] static std::string classicContent(const std::string& path);
  /// The paths of every file that some version lets the user change.
  [[nodiscard]] static std::vector<std::string> modifiableFiles();
  /// The labels of the daemons and agents.
  [[nodiscard]] static std::vector<std::string> jobs(Version version);
  [[nodiscard]] static std::string classicJob() { return "com.corvane.guard.classic"; }

 private:
  BundleMaker first_;
  BundleMaker second_;
};

}  // namespace tests
