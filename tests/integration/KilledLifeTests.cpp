#include "tests/integration/ManyMoments.h"
#include "tests/integration/ProductLife.h"

namespace tests {
namespace {

using support::KilledRun;
using support::KillMoment;
using support::SnapshotEntry;

/// Kills an upgrade or a removal, the engine or its receipt process, at changes that it makes to what names show or
/// what attributes they have; looks; and lets the next run finish.
class KilledLife : public ProductLife, public ::testing::WithParamInterface<KillMoment::When> {
 protected:
  [[nodiscard]] std::optional<std::string> whyImpossible() override {
    const auto reason = ProductLife::whyImpossible();
    return reason ? reason : KilledRun::whyImpossible();
  }

  static bool isTemporary(const std::string& path) {
    return path.find("/.com.corvane.installer.") != std::string::npos || path.find("/Guard/temp") != std::string::npos;
  }
  /// The machine but for what is being made or put aside.
  support::Snapshot visible() {
    support::Snapshot all = machine();
    std::erase_if(all, [](const SnapshotEntry& entry) { return isTemporary(entry.path); });
    return all;
  }
  /// Every item that shows is one of the old or of the new tree, whole and with its attributes.
  void expectOnlyWhole(const support::Snapshot& oldTree, const support::Snapshot& newTree) {
    for (const SnapshotEntry& entry : visible()) {
      EXPECT_TRUE(std::ranges::find(oldTree, entry) != oldTree.end() ||
                  std::ranges::find(newTree, entry) != newTree.end())
          << entry;
    }
  }

  void beginWithFirstVersion() {
    beginAgain();
    installFirstVersion();
  }
  /// Kills a run at moments spread evenly over it. `prepare` makes the state that it starts from, `look` sees what is
  /// left of it.
  template <class Prepare, class Look>
  void atEveryMoment(const std::vector<std::string>& arguments, const std::optional<std::string>& child,
                     Prepare prepare, Look look) {
    killAtManyMoments(
        GetParam(), child, arguments, prepare, [&] { return &root(); },
        [&](const support::Outcome& killed) {
          EXPECT_TRUE(noEngineIsLeft()) << enginesRunning();
          look(killed);
        });
  }

  void expectUpgradeSurvives(const std::optional<std::string>& child) {
    beginWithFirstVersion();
    const support::Snapshot oldTree = visible();
    deliverNewBundle();
    ASSERT_EQ(install().exitCode, 0);
    const support::Snapshot newTree = visible();
    atEveryMoment(
        {kEngine, "--install"}, child,
        [&] {
          beginWithFirstVersion();
          deliverNewBundle();
        },
        [&](const support::Outcome& killed) {
          expectOnlyWhole(oldTree, newTree);
          EXPECT_EQ(root().readFile(kConfiguration), "edited by the user");
          EXPECT_TRUE(root().exists(kReceiptEngine));
          if (child) {
            // At the end of the run the receipt is needed no more.
            const bool finished = difference(visible(), newTree).empty();
            EXPECT_EQ(killed.exitCode, finished ? 0 : 1) << killed.standardError;
          }
          const auto next = install();
          EXPECT_EQ(next.exitCode, 0) << next.standardError;
          EXPECT_EQ(difference(visible(), newTree), "");
          EXPECT_TRUE(noEngineIsLeft()) << enginesRunning();
        });
  }
};

TEST_P(KilledLife, AKilledUpgradeIsFinishedByTheNextRun) { expectUpgradeSurvives(std::nullopt); }

TEST_P(KilledLife, AnUpgradeWhoseReceiptIsKilledFailsAndIsFinishedByTheNextRun) {
  expectUpgradeSurvives(std::string(kReceiptEngine));
}

TEST_P(KilledLife, AKilledRemovalIsFinishedByTheNextOneAndNothingIsInTheWayOfAnInstall) {
  beginAgain();
  const support::Snapshot before = visible();
  installFirstVersion();
  const support::Snapshot installed = visible();
  bool sawReceipt = false;
  bool sawNone = false;
  atEveryMoment(
      {kReceiptEngine, "--remove"}, std::nullopt, [this] { beginWithFirstVersion(); },
      [&](const support::Outcome&) {
        expectOnlyWhole(installed, before);
        // The receipt's engine is the last that goes: as long as something else is left, it can be run again.
        const bool hasReceipt = root().exists(kReceiptEngine);
        (hasReceipt ? sawReceipt : sawNone) = true;
        if (hasReceipt) {
          const auto next = removeProduct();
          EXPECT_EQ(next.exitCode, 0) << next.standardError;
        }
        support::Snapshot left = visible();
        std::erase_if(left,
                      [](const SnapshotEntry& entry) { return entry.path == "/Library/Application Support/Corvane"; });
        EXPECT_EQ(difference(left, before), "");
        deliverBundle();
        const auto again = install();
        EXPECT_EQ(again.exitCode, 0) << again.standardError;
        root().writeFile(kConfiguration, "edited by the user");
        EXPECT_EQ(difference(machine(), installed), "");
      });
  EXPECT_TRUE(sawReceipt);
  EXPECT_TRUE(sawNone);
}

INSTANTIATE_TEST_SUITE_P(AtManyChanges, KilledLife,
                         ::testing::Values(KillMoment::When::Before, KillMoment::When::After), nameOfMoment);

}  // namespace
}  // namespace tests
