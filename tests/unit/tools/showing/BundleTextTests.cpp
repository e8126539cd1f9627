#include "tests/unit/tools/showing/ShownBundle.h"
#include "tools/showing/BundleText.h"

namespace {

constexpr const char* kDigestOfAbc = "ba7816bf8f01cfea414140de5dae2223b00361a396177a9cb410ff61f20015ad";

class BundleText : public tests::ShownBundle {};

TEST_F(BundleText, TellsProductsPhasesComponentsAndFiles) {
  buildSomethingToTell();
  const std::string text = bundletool::textOf(read());
  EXPECT_TRUE(problems_.none());
  for (const char* part : {"Product P\n  LocalPayload: Core\n", "Component Core, version 1, 13 bytes, 3 entries\n",
                           "  Daemons: svcd\n", "  Executable: /opt/file -x y  (ExecuteOnInstall)\n",
                           "  RebuildKextCache\n", "-rwsr-xr-x", "/opt/link -> file\n", kDigestOfAbc}) {
    EXPECT_NE(text.find(part), std::string::npos) << part << "\nis not in\n" << text;
  }
}

TEST_F(BundleText, LetsNoControlCharacterOfABundleReachTheTerminal) {
  buildSomethingHostile();
  expectHarmless(bundletool::textOf(read()));
}

}  // namespace
