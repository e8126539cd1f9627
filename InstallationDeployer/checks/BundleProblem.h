#pragma once

#include <cstdint>
#include <map>
#include <string>
#include <string_view>
#include <vector>

#include "general/foundation/Mutex.h"
#include "general/foundation/Result.h"

namespace deployer {

/// Something about a bundle for which an install would fail. Texts are as they were found and not fit to be printed
/// before they are escaped.
struct BundleProblem {
  enum class Kind {
    Missing,     ///< the file is not there
    Unreadable,  ///< it is there, but cannot be read
    Malformed,   ///< its content is not as it must be
    Checksum,    ///< its content is not what the manifest says
    Space,       ///< the machine has too little of it
  };

  Kind kind = Kind::Malformed;
  std::string file;           ///< its path
  std::string what;           ///< what is wrong, without the name of the file
  std::string component;      ///< which one the file belongs to; empty when it is not a component's
  std::string expected = {};  ///< checksum, or bytes of space; empty for the other kinds
  std::string found = {};     ///< the same
};

/// The name of a kind, for programs.
[[nodiscard]] std::string_view nameOf(BundleProblem::Kind kind);
/// The problem of a file that could not be read, missing or otherwise.
[[nodiscard]] BundleProblem problemOfReading(const std::string& path, const std::string& component,
                                             const foundation::Error& error);

/// The beginning of a text that may be of any length, with a mark where something was cut off.
[[nodiscard]] std::string shortened(std::string text);

/// The problems found, of which the first ones are kept and all are counted: a hostile bundle may have any number. May
/// be used by several threads.
class BundleProblems {
 public:
  static constexpr std::size_t kMostKept = 20;

  /// Keeps the beginning of what is wrong only.
  /// @param place where in the bundle's order it belongs.
  void add(std::uint64_t place, BundleProblem problem);

  [[nodiscard]] std::uint64_t count() const;
  /// In the bundle's order, whoever found them.
  [[nodiscard]] std::vector<BundleProblem> first() const;

 private:
  mutable foundation::Mutex mutex_;
  std::uint64_t count_ CORVANE_GUARDED_BY(mutex_) = 0;
  std::multimap<std::uint64_t, BundleProblem> kept_ CORVANE_GUARDED_BY(mutex_);
};

}  // namespace deployer
