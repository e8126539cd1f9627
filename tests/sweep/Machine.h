#pragma once

#include <sys/stat.h>

#include <cstddef>
#include <functional>
#include <map>
#include <memory>
#include <set>
#include <string>
#include <string_view>

#include "tests/support/PrivateRoot.h"

namespace sweep {

/// One item with everything by which two trees are told apart, and its time, which a copy keeps.
struct Item {
  char type = '?';  ///< d, - or l; s for a socket of which only the name is left
  mode_t mode = 0;
  uid_t user = 0;
  gid_t group = 0;
  std::shared_ptr<const std::string> content;  ///< of a file; of a link its target
  timespec written{};

  [[nodiscard]] std::string_view text() const { return content ? std::string_view(*content) : std::string_view(); }
  friend bool operator==(const Item& one, const Item& other) {
    return one.type == other.type && one.mode == other.mode && one.user == other.user && one.group == other.group &&
           (one.content == other.content || one.text() == other.text());
  }
};

/// By path inside.
using Tree = std::map<std::string, Item>;

/// What one has and the other has not, at most some lines of it; empty when they are equal.
[[nodiscard]] std::string difference(const Tree& found, const Tree& wanted);

/// Everything of a machine that runs change: the files, and the services that launchd has been told to load.
struct Machine {
  Tree tree;
  std::set<std::string> services;  ///< property lists that are loaded, by path

  /// Of the content, for finding equal states.
  [[nodiscard]] std::size_t hash() const;
};

/// Takes machines out of a private root and puts them back in.
class MachineStore {
 public:
  explicit MachineStore(support::PrivateRoot& root) : root_(root) {}

  /// Makes the root's machine this one, and forgets what launchctl was called for.
  void put(const Machine& machine);
  /// The root's machine, when it was `before` with the last put().
  [[nodiscard]] Machine take(const Machine& before);

 private:
  void takeItem(const std::string& inside, Tree& tree);
  void putItem(const std::string& inside, const Item& item);
  std::shared_ptr<const std::string> shared(std::string content);

  support::PrivateRoot& root_;
  /// Big contents that many machines have, by size.
  std::multimap<std::size_t, std::shared_ptr<const std::string>> contents_;
};

/// The services that are loaded after these calls of launchctl.
[[nodiscard]] std::set<std::string> servicesAfter(std::set<std::string> loaded,
                                                  const std::vector<support::RecordedCall>& calls);

}  // namespace sweep
