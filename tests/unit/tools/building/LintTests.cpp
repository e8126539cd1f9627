#include <sys/stat.h>

#include <string>
#include <vector>

#include "tests/unit/tools/PackagerFixture.h"

namespace {

class Lint : public tests::PackagerFixture {
 protected:
  /// The staged items that a build warns of by a name.
  std::vector<std::string> warnedOf(const std::string& name) {
    EXPECT_TRUE(build(true));
    std::vector<std::string> files;
    for (const bundletool::Problem& problem : warnings(name)) {
      files.push_back(problem.file);
    }
    return files;
  }
  /// Silenced by its name, nothing of the kind is told.
  bool canBeSilenced(const std::string& name) {
    describe("SilencedWarnings", array({PropertyList(name)}));
    const bool isSilent = warnedOf(name).empty();
    describe("SilencedWarnings", {});
    return isSilent;
  }
  void stageWithMode(const std::string& below, mode_t mode) {
    stage(below, "x");
    ASSERT_EQ(chmod(staged(below).c_str(), mode), 0);
  }
};

using Files = std::vector<std::string>;

TEST_F(Lint, WarnsOfProgramsThatRunWithOtherRights) {
  stageWithMode("opt/plain", 0755);
  EXPECT_EQ(warnedOf("set-id"), Files{});
  stageWithMode("opt/setgid", 02755);
  stageWithMode("opt/setuid", 04755);
  EXPECT_EQ(warnedOf("set-id"), (Files{staged("opt/setgid"), staged("opt/setuid")}));
  EXPECT_TRUE(canBeSilenced("set-id"));
}

TEST_F(Lint, WarnsOfWhatEverybodyMayWrite) {
  stageWithMode("opt/shared/f", 0644);
  ASSERT_EQ(chmod(staged("opt/shared").c_str(), 01777), 0);
  EXPECT_EQ(warnedOf("writable-by-all"), Files{});
  stageWithMode("opt/open", 0646);
  ASSERT_EQ(chmod(staged("opt/shared").c_str(), 0777), 0);
  EXPECT_EQ(warnedOf("writable-by-all"), (Files{staged("opt/open"), staged("opt/shared")}));
  EXPECT_TRUE(canBeSilenced("writable-by-all"));
}

TEST_F(Lint, WarnsOfFilesAmongThoseOfTheSystem) {
  for (const char* const below : {"usr/local/bin/x", "Library/LaunchDaemons/x.plist", "opt/x", "etcetera/x"}) {
    stage(below, "x");
  }
  EXPECT_EQ(warnedOf("system-folders"), Files{});
  for (const char* const below : {"etc/x", "top", "usr/bin/x"}) {
    stage(below, "x");
  }
  EXPECT_EQ(warnedOf("system-folders"), (Files{staged("etc/x"), staged("top"), staged("usr/bin/x")}));
  EXPECT_TRUE(canBeSilenced("system-folders"));
}

TEST_F(Lint, WarnsOfAProductInItsOwnReceipt) {
  const std::string place = "Library/Application Support/Corvane/";
  stage(place + "P/Installer.app2/x", "x");
  stage(place + "Q/Installer.app/x", "x");
  EXPECT_EQ(warnedOf("own-receipt"), Files{});
  stage(place + "P/Installer.app/x", "x");
  EXPECT_EQ(warnedOf("own-receipt"), (Files{staged(place + "P/Installer.app"), staged(place + "P/Installer.app/x")}));
  EXPECT_TRUE(canBeSilenced("own-receipt"));
}

}  // namespace
