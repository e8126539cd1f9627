#include <gtest/gtest.h>
#include <sys/syscall.h>

#include <optional>
#include <string>

#include "tests/integration/ReceiptInRoot.h"
#include "tests/support/KilledRun.h"

namespace {

using support::KilledRun;
using support::KillMoment;
using support::Snapshot;

/// Kills the step at changes that it makes to what names show, and looks at the receipt that is left.
class KilledReceipt : public tests::ReceiptInRoot {
 protected:
  [[nodiscard]] std::optional<std::string> whyImpossible() override {
    const auto reason = ReceiptInRoot::whyImpossible();
    return reason ? reason : KilledRun::whyImpossible();
  }
  bool killedAt(const KillMoment& moment) { return KilledRun::run(root(), command("write-receipt"), moment).reached; }
  void forgetReceipts() { ASSERT_TRUE(root().shell("rm -rf '" + kLocation + "'").succeeded()); }
};

TEST_F(KilledReceipt, TheReceiptIsTheOldOrTheNewOneWheneverTheRunIsKilledAndTheNextRunSucceeds) {
  ASSERT_EQ(writeReceipt().standardOutput, kSucceeded);
  const Snapshot complete = root().snapshot(kLocation);
  const Snapshot newReceipt = receipt();
  forgetReceipts();
  makeOldReceipt();
  const Snapshot oldReceipt = receipt();
  KillMoment moment;
  moment.calls = KilledRun::nameAndAttributeChanges();
  bool sawOld = false;
  bool sawNew = false;
  for (moment.number = 1;; ++moment.number) {
    forgetReceipts();
    makeOldReceipt();
    if (!killedAt(moment)) {
      break;
    }
    const Snapshot left = receipt();
    sawOld = sawOld || left == oldReceipt;
    sawNew = sawNew || left == newReceipt;
    ASSERT_TRUE(left == oldReceipt || left == newReceipt) << "killed at change " << moment.number << ":\n"
                                                          << support::listing(left);
    ASSERT_EQ(writeReceipt().standardOutput, kSucceeded);
    ASSERT_EQ(receipt(), newReceipt);
    ASSERT_FALSE(root().exists(kTemporary));
  }
  EXPECT_TRUE(sawOld);
  EXPECT_TRUE(sawNew);
}

TEST_F(KilledReceipt, TheDataIsOnDiskBeforeTheReceiptShowsAndTheFolderBeforeTheStepSucceeds) {
  KillMoment moment;
  moment.calls = {SYS_syncfs};
  moment.number = 1;
  ASSERT_TRUE(killedAt(moment));
  EXPECT_FALSE(root().exists(kReceipt));
  EXPECT_TRUE(root().exists(kStaging + "/Contents/MacOS/Installer"));
  moment.number = 2;
  ASSERT_TRUE(killedAt(moment));
  EXPECT_TRUE(root().exists(kReceipt + "/Contents/MacOS/Installer"));
  EXPECT_FALSE(root().exists(kTemporary));
}

}  // namespace
