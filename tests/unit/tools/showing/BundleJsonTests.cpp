#include "tests/unit/tools/showing/ShownBundle.h"
#include "tools/showing/BundleJson.h"

namespace {

class BundleJson : public tests::ShownBundle {};

TEST_F(BundleJson, HoldsWhatTheManifestsSayAsNumbersAndTexts) {
  buildSomethingToTell();
  const std::string json = bundletool::jsonOf(read());
  EXPECT_TRUE(problems_.none());
  EXPECT_NE(json.find("\"mode\": 2541"), std::string::npos) << json;
  EXPECT_NE(json.find("\"target\": \"file\""), std::string::npos);
  EXPECT_NE(json.find("\"numberOfFiles\": 3"), std::string::npos);
}

TEST_F(BundleJson, HoldsNoControlCharacterOfABundle) {
  buildSomethingHostile();
  expectHarmless(bundletool::jsonOf(read()));
}

}  // namespace
