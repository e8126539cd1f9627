#pragma once

#include <map>
#include <set>
#include <string>
#include <vector>

#include "tests/support/PrivateRoot.h"
#include "tests/support/ProductPair.h"
#include "tests/support/TreeExpectation.h"

namespace tests {

/// What is on a machine before a run.
enum class Start {
  Nothing,  ///< no product
  First,    ///< 1.0, used and edited by the user, one of its components damaged
  Second,   ///< 1.1, used and edited by the user
  Classic,  ///< the older product, used and edited by the user
};

/// What an administrator does about it.
enum class Way {
  First,    ///< installs 1.0
  Second,   ///< installs 1.1
  Removal,  ///< removes through the receipt; where there is none, installs 1.1 before
};

/// Whether some run did not come to its end.
enum class Story {
  Undisturbed,
  Disturbed,
  DisturbedRemoval,  ///< a removal did not come to its end: what the user edited may have gone with it
  RemovedMeanwhile,  ///< some removal may have come to its end, with what the user edited, and an install after it
};

[[nodiscard]] std::string nameOf(Start start);
[[nodiscard]] std::string nameOf(Way way);

/// A private root with both bundles of a ProductPair on volumes, in which starts are made and put back, ways gone, and
/// what comes of it is compared with what was promised. Needs a root with processes. Throws PrivateRootError.
class PairMachine {
 public:
  using Version = ProductPair::Version;

  PairMachine(support::PrivateRoot& root, const ProductPair& pair);
  /// In a root that holds already what `learnt` put into its own.
  PairMachine(support::PrivateRoot& root, const PairMachine& learnt);

  /// Makes a start on a machine that holds no product.
  void begin(Start start);
  /// What the system does when it starts: it loads every job whose property list is in its place.
  void start();
  /// Puts the machine's state aside, and back as often as wanted; by name.
  void keep(const std::string& name);
  void putBack(const std::string& name);

  /// Where the bundle lies, seen from inside.
  [[nodiscard]] static std::string bundleInRoot(Version version);
  [[nodiscard]] static std::vector<std::string> installCommand(Version version);
  [[nodiscard]] static std::vector<std::string> removeCommand();
  [[nodiscard]] support::Outcome install(Version version) { return root_.run(installCommand(version)); }
  [[nodiscard]] support::Outcome remove() { return root_.run(removeCommand()); }
  /// Goes a way to its end; the outcome of the last run.
  [[nodiscard]] support::Outcome go(Way way);
  [[nodiscard]] bool hasReceipt() const;

  /// Whether the settings that the user edited before are in their place.
  [[nodiscard]] bool settingsAreTheUsers() const;
  /// The user edits his settings once more; from now on they are expected so.
  void editSettings(const std::string& content);
  /// The user has not edited more than the start says; for the next story.
  void forgetEdits() { editedSettings_.clear(); }

  /// Waits until no process is left but those that were there at first; throws when one stays.
  void waitUntilQuiet() const;
  /// What is not as promised after a way was gone to its end: items, services, the receipt, the program's last run, and
  /// what a run must not leave; a line each, empty when all is well.
  [[nodiscard]] std::string whatIsWrong(Start start, Way way, Story story) const;
  /// What no moment of any run may show: torn items, half a receipt, lost files of the user's; a line each.
  [[nodiscard]] std::string whatIsTorn(Start start, bool removes) const {
    return tornItems(start) + whatIsLost(start, removes);
  }
  /// Items that are as neither version has them.
  [[nodiscard]] std::string tornItems(Start start) const;
  /// Half a receipt, and files of the user's that are neither in their place nor kept.
  [[nodiscard]] std::string whatIsLost(Start start, bool removes) const;
  /// Whether the next run is told that this one did not come to its end.
  [[nodiscard]] bool hasJournal() const;
  /// The tree alone.
  [[nodiscard]] support::TreeExpectation expected(Start start, Way way, Story story) const;

 private:
  using Snapshot = support::Snapshot;

  void furnish();
  void logIn();
  void learnReceipts();
  void use(Start start);
  [[nodiscard]] Snapshot machine() const;
  [[nodiscard]] std::map<std::string, support::SnapshotEntry> usersFiles(Start start) const;
  void expectModifiableFiles(support::TreeExpectation& tree, Start start, Version version, Story story) const;
  void expectUsersThings(support::TreeExpectation& tree, Start start, Way way, Story story) const;
  void expectRemoved(support::TreeExpectation& tree, Start start, Story story) const;
  [[nodiscard]] std::string wrongServices(Way way) const;
  [[nodiscard]] std::string wrongReceipt(Way way) const;
  [[nodiscard]] std::string leftovers() const;
  [[nodiscard]] std::string tornReceipt() const;
  [[nodiscard]] std::string lostFiles(Start start) const;
  [[nodiscard]] std::set<std::string> processes() const;

  support::PrivateRoot& root_;
  const ProductPair& pair_;
  Snapshot empty_;
  std::map<Version, Snapshot> receipts_;
  std::set<std::string> ownProcesses_;
  std::string editedSettings_;
};

}  // namespace tests
