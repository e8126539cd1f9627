#include "tests/unit/tools/PackagerFixture.h"

namespace {

using foundation::PropertyList;

/// Each test names the file and the key that the message must name.
class BundleDescription : public tests::PackagerFixture {};

TEST_F(BundleDescription, IsAcceptedAsThePackagerWroteIt) { EXPECT_TRUE(build()); }

TEST_F(BundleDescription, IsRefusedWhenItIsMissing) {
  bundletool::Problems problems;
  static_cast<void>(bundletool::readDescription(path("none.plist"), problems));
  ASSERT_EQ(problems.errors().size(), 1U);
  EXPECT_EQ(problems.errors()[0].text(),
            path("none.plist") + ": the description is missing; create it or correct the path");
}

TEST_F(BundleDescription, IsRefusedWhenItDoesNotParseOrIsNoDictionary) {
  for (const char* content : {"", "<plist><dict>", "<plist version=\"1.0\"><array/></plist>", "bplist00"}) {
    bundletool::Problems problems;
    static_cast<void>(bundletool::readDescription(folder_.write("bad.plist", content), problems));
    ASSERT_EQ(problems.errors().size(), 1U) << content;
    EXPECT_EQ(problems.errors()[0].file, path("bad.plist"));
  }
}

TEST_F(BundleDescription, RefusesUnknownKeysAtEveryLevel) {
  describe("Componets", 1);
  EXPECT_TRUE(refuses("D.plist", "Componets", "unknown"));
  describe("Componets", {});
  describeCore("Versoin", "1");
  EXPECT_TRUE(refuses("D.plist", "Components[0].Versoin", "unknown"));
  describeCore("Versoin", {});
  describe("Options", dictionary({{"Else", 1}}));
  EXPECT_TRUE(refuses("D.plist", "Options.Else", "unknown"));
  describe("Options", {});
  describe("ExternalTools", array({dictionary({{"Else", 1}})}));
  EXPECT_TRUE(refuses("D.plist", "ExternalTools[0].Else", "unknown"));
}

TEST_F(BundleDescription, RefusesMissingKeysAndWrongTypes) {
  for (const char* key : {"Name", "Version", "StagedFolder", "Products"}) {
    const PropertyList before = description_;
    describeCore(key, {});
    EXPECT_TRUE(refuses("D.plist", "Components[0]." + std::string(key), "missing"));
    describeCore(key, 7);
    EXPECT_TRUE(refuses("D.plist", "Components[0]." + std::string(key), "wrong kind"));
    description_ = before;
  }
  describe("Components", array({"text"}));
  EXPECT_TRUE(refuses("D.plist", "Components[0]", "wrong kind"));
  describe("Components", "text");
  EXPECT_TRUE(refuses("D.plist", "Components", "wrong kind"));
  describe("Components", array({}));
  EXPECT_TRUE(refuses("D.plist", "Components", "no components"));
  describe("Components", array({component("Core", array({"P", 7}))}));
  EXPECT_TRUE(refuses("D.plist", "Components[0].Products[1]", "wrong kind"));
  describe("Components", array({component()}));
  describe("Options", dictionary({{"ReceiptHasPayloadContents", "YES"}}));
  EXPECT_TRUE(refuses("D.plist", "Options.ReceiptHasPayloadContents", "wrong kind"));
  describe("Options", {});
  describe("FrontEnd", 7);
  EXPECT_TRUE(refuses("D.plist", "FrontEnd", "wrong kind"));
}

TEST_F(BundleDescription, RefusesAComponentNameThatIsNoSinglePathComponent) {
  for (const char* name : {"a/b", ".", "..", "/"}) {
    describeCore("Name", name);
    EXPECT_TRUE(refuses("D.plist", "Components[0].Name", "single path component")) << name;
  }
  describeCore("Name", std::string(250, 'n'));
  EXPECT_TRUE(refuses("D.plist", "Components[0].Name", "longer than 249 bytes"));
}

TEST_F(BundleDescription, RefusesAComponentThatWouldOverwriteTheIndex) {
  for (const char* name : {"Index", "index"}) {
    describeCore("Name", name);
    EXPECT_TRUE(refuses("D.plist", "Components[0].Name", "overwrite the index")) << name;
  }
}

TEST_F(BundleDescription, RefusesAComponentNameUsedTwiceWithOtherContent) {
  describe("Components", array({component(), component("Core", array({"Q"})).with("Version", "2")}));
  EXPECT_TRUE(refuses("D.plist", "Components[1].Name", "with other content"));
  describe("Components", array({component(), component("core", array({"Q"}))}));
  EXPECT_TRUE(refuses("D.plist", "Components[1].Name", "in case only"));
}

TEST_F(BundleDescription, RefusesAComponentListedTwiceForOneProduct) {
  describe("Components", array({component(), component()}));
  EXPECT_TRUE(refuses("D.plist", "Components[1].Products", "in product P already"));
  describe("Components", array({component("Core", array({"P", "P"}))}));
  EXPECT_TRUE(refuses("D.plist", "Components[0].Products", "in product P already"));
}

TEST_F(BundleDescription, RefusesProductsThatAreEmptyOrNoFolderNames) {
  describeCore("Products", array({}));
  EXPECT_TRUE(refuses("D.plist", "Components[0].Products", "no product"));
  describeCore("Products", array({"a/b"}));
  EXPECT_TRUE(refuses("D.plist", "Components[0].Products[0]", "single path component"));
  describeCore("Products", array({"temp"}));
  EXPECT_TRUE(refuses("D.plist", "Components[0].Products[0]", "in the making"));
  describeCore("Products", array({"P", "p"}));
  EXPECT_TRUE(refuses("D.plist", "Components[0].Products[1]", "in case only"));
}

TEST_F(BundleDescription, SilencesWarningsThatThereAreOnly) {
  describe("SilencedWarnings", array({"unlisted-services", "secrets-in-receipts"}));
  EXPECT_TRUE(build());
  describe("SilencedWarnings", array({"unlisted-services", "secrets"}));
  EXPECT_TRUE(refuses("D.plist", "SilencedWarnings[1]", "no warning has this name"));
  describe("SilencedWarnings", "secrets-in-receipts");
  EXPECT_TRUE(refuses("D.plist", "SilencedWarnings", "wrong kind"));
}

PropertyList tool(const std::string& product, const std::string& bundlePath = "/x/T.app") {
  return PropertyList::dictionary({{"BundlePath", bundlePath}, {"ExternalProduct", "E"}, {"Product", product}});
}

TEST_F(BundleDescription, RefusesAPhaseOrderThatCannotRun) {
  describe("ExternalTools", array({tool("Q")}));
  EXPECT_TRUE(refuses("D.plist", "ExternalTools[0].Product", "no components"));
  describe("ExternalTools", array({tool("P"), tool("P", "/y/U.app")}));
  EXPECT_TRUE(refuses("D.plist", "ExternalTools[1].Product", "external tool already"));
  describe("ExternalTools", array({tool("P", "T.app")}));
  EXPECT_TRUE(refuses("D.plist", "ExternalTools[0].BundlePath", "begin with a slash"));
  describe("ExternalTools", array({tool("P", "/x/../T.app")}));
  EXPECT_TRUE(refuses("D.plist", "ExternalTools[0].BundlePath", "climbs"));
}

TEST_F(BundleDescription, RefusesPathsThatClimbOrAreRelativeOrNotInShortestForm) {
  describeCore("StagedFolder", "Staged/../Staged/Core");
  EXPECT_TRUE(refuses("D.plist", "Components[0].StagedFolder", "climbs"));
  describeCore("StagedFolder", "Staged/Core");
  for (const auto& [prefix, part] : std::map<std::string, std::string>{
           {"opt/x", "begin with a slash"}, {"/opt/../x", "climbs"}, {"/opt/x/", "shortest form"}}) {
    describeCore("RootPrefix", prefix);
    EXPECT_TRUE(refuses("D.plist", "Components[0].RootPrefix", part)) << prefix;
  }
  describeCore("RootPrefix", {});
  describe("FrontEnd", "../FrontEnd");
  EXPECT_TRUE(refuses("D.plist", "FrontEnd", "climbs"));
}

}  // namespace
