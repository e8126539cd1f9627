#include <sys/syscall.h>

#include <map>
#include <sstream>

#include "tests/integration/EngineInRoot.h"
#include "tests/integration/ManyMoments.h"
#include "tests/support/KilledRun.h"

namespace tests {
namespace {

using support::KilledRun;
using support::KillMoment;
using support::SnapshotEntry;

/// Kills the engine at every moment at which it changes what names show or what attributes they have, and looks.
class KilledInstall : public EngineInRoot, public ::testing::WithParamInterface<KillMoment::When> {
 protected:
  [[nodiscard]] std::optional<std::string> whyImpossible() override {
    const auto reason = EngineInRoot::whyImpossible();
    return reason ? reason : KilledRun::whyImpossible();
  }
  void prepare() override {
    bundle().stageDirectory("Core", "/Library/Guard", 0750, 501, 20);
    bundle().stageDirectory("Core", "/Library/Guard/private", 0700, 501, 20);
    bundle().stageFile("Core", "/Library/Guard/private/secret", "secret", 0600, 501, 20);
    bundle().stageFile("Core", "/Library/Guard/helper", "set-id", 04755, 0, 80);
    bundle().stageLink("Core", "/Library/Guard/current", "private", 501, 20);
    bundle().addComponent("Core", "1.0", kProduct,
                          dictionary({{"ListOfFiles", array({dictionary({{"Path", "/Library/Guard/licence"},
                                                                         {"ExternalSourcePath", "/etc/licence"},
                                                                         {"NSFileOwnerAccountID", 0},
                                                                         {"NSFileGroupOwnerAccountID", 80},
                                                                         {"NSFilePosixPermissions", 0640}})})}}));
    bundle().stageFile("Tools", "/opt/tools/one", "one", 0755, 0, 80);
    bundle().stageFile("Tools", "/opt/tools/two", "two", 0644, 501, 80);
    bundle().addComponent("Tools", "1.0", kProduct);
    bundle().setOptions(dictionary({{"ReceiptHasPayloadContents", false}}));
  }
  void prepareRoot() {
    makeRoot();
    deliverBundle();
    root().writeFile("/etc/licence", "licensed");
  }
  support::Snapshot installed() {
    support::Snapshot all = root().snapshot("/Library");
    const support::Snapshot more = root().snapshot("/opt");
    all.insert(all.end(), more.begin(), more.end());
    return all;
  }
  /// What stands in one snapshot only.
  static std::string difference(const support::Snapshot& found, const support::Snapshot& wanted) {
    std::ostringstream text;
    for (const SnapshotEntry& entry : found) {
      if (std::ranges::find(wanted, entry) == wanted.end()) {
        text << "too much: " << entry << "\n";
      }
    }
    for (const SnapshotEntry& entry : wanted) {
      if (std::ranges::find(found, entry) == found.end()) {
        text << "missing: " << entry << "\n";
      }
    }
    return text.str();
  }
  static bool isTemporary(const std::string& path) {
    return path.find("/.com.corvane.installer.") != std::string::npos || path.find("/Guard/temp") != std::string::npos;
  }
};

TEST_P(KilledInstall, ShowsNoHalfFileAndTheNextRunSucceeds) {
  prepareRoot();
  ASSERT_EQ(install().exitCode, 0);
  const support::Snapshot complete = installed();
  std::map<std::string, SnapshotEntry> expected;
  for (const SnapshotEntry& entry : complete) {
    expected.emplace(entry.path, entry);
  }

  KillMoment moment;
  moment.calls = KilledRun::nameAndAttributeChanges();
  moment.when = GetParam();
  bool reached = true;
  for (moment.number = 1; reached; ++moment.number) {
    SCOPED_TRACE("killed at change " + std::to_string(moment.number));
    prepareRoot();
    const auto killed = KilledRun::run(root(), {kEngine, "--install"}, moment);
    reached = killed.reached;
    for (const SnapshotEntry& entry : installed()) {
      if (isTemporary(entry.path)) {
        continue;
      }
      const auto wanted = expected.find(entry.path);
      ASSERT_NE(wanted, expected.end()) << entry;
      EXPECT_EQ(entry, wanted->second);
    }
    const bool hadReceipt = root().exists(kReceipt);
    const auto second = install();
    ASSERT_EQ(second.exitCode, 0) << second.standardError;
    // Over a finished receipt an install finds nothing to do, and writes no receipt that would sweep.
    support::Snapshot after = installed();
    std::erase_if(after, [&](const SnapshotEntry& entry) { return hadReceipt && isTemporary(entry.path); });
    EXPECT_EQ(difference(after, complete), "");
    if (HasFailure()) {
      return;
    }
  }
  EXPECT_GT(moment.number, 20U);
}

INSTANTIATE_TEST_SUITE_P(AtEveryChange, KilledInstall,
                         ::testing::Values(KillMoment::When::Before, KillMoment::When::After), nameOfMoment);

}  // namespace
}  // namespace tests
