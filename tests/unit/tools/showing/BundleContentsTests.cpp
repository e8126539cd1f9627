#include <sys/stat.h>

#include "tests/unit/tools/showing/ShownBundle.h"
#include "tools/showing/BundleJson.h"
#include "tools/showing/BundleText.h"

namespace {

using foundation::PropertyList;

constexpr const char* kDigestOfAbc = "ba7816bf8f01cfea414140de5dae2223b00361a396177a9cb410ff61f20015ad";

class BundleContents : public tests::ShownBundle {
 protected:
  /// Whether reading complains about a key of a file.
  testing::AssertionResult complains(const std::string& file, const std::string& key) {
    problems_ = {};
    if (const auto contents = bundletool::readBundle(bundle(), problems_)) {
      static_cast<void>(bundletool::textOf(*contents));
      static_cast<void>(bundletool::jsonOf(*contents));
    }
    std::string all;
    for (const bundletool::Problem& problem : problems_.errors()) {
      if (problem.file == path(file) && problem.key == key) {
        return testing::AssertionSuccess();
      }
      all += problem.text() + "\n";
    }
    return testing::AssertionFailure() << "not among the problems:\n" << all;
  }
};

TEST_F(BundleContents, GiveNoSizeWhereThePayloadIsNotThere) {
  ASSERT_TRUE(build());
  EXPECT_EQ(read().components.at(0).files.at(0).size, 3U);
  std::filesystem::remove_all(bundle("Contents/Install/Root"));
  EXPECT_EQ(read().components.at(0).files.at(0).size, std::nullopt);
  EXPECT_TRUE(problems_.none()) << "a receipt may leave the payload out";
  writePlist(kIndex, plist(kIndex).with("ReceiptHasPayloadContents", false));
  std::filesystem::create_directory(bundle("Contents/Install/Root"));
  EXPECT_EQ(read().components.at(0).files.at(0).size, std::nullopt);
  EXPECT_TRUE(problems_.none()) << "and keeps the empty folder of it";
}

TEST_F(BundleContents, MissTheContentOfAReceiptThatIsToKeepIt) {
  ASSERT_TRUE(build());
  writePlist(kIndex, plist(kIndex).with("ReceiptHasPayloadContents", true));
  std::filesystem::remove_all(bundle("Contents/Install/Root"));
  std::filesystem::create_directory(bundle("Contents/Install/Root"));
  EXPECT_TRUE(complains(kCore, "ListOfFiles[0].SHAChecksum"));
}

TEST_F(BundleContents, AreNoneWithoutAnIndex) {
  EXPECT_FALSE(bundletool::readBundle(bundle(), problems_));
  EXPECT_FALSE(problems_.none());
}

TEST_F(BundleContents, SayWhichContentThePayloadLacks) {
  ASSERT_TRUE(build());
  const std::string content = bundle("Contents/Install/Root/Core/") + kDigestOfAbc;
  std::filesystem::remove(content);
  EXPECT_TRUE(complains(kCore, "ListOfFiles[0].SHAChecksum"));
  std::filesystem::create_directory(content);
  EXPECT_TRUE(complains(kCore, "ListOfFiles[0].SHAChecksum")) << "a folder holds no content";
}

TEST_F(BundleContents, SayWhichManifestIsMissingOrDoesNotParse) {
  EXPECT_TRUE(complains(kIndex, ""));
  ASSERT_TRUE(build());
  folder_.write(kCore, "<plist>");
  EXPECT_TRUE(complains(kCore, ""));
  std::filesystem::remove(path(kCore));
  EXPECT_TRUE(complains(kCore, ""));
  folder_.write(kIndex, contentOf(path(kIndex)).substr(0, 300));
  EXPECT_TRUE(complains(kIndex, ""));
}

TEST_F(BundleContents, AreNotWaitedForInAPipeInPlaceOfAManifest) {
  ASSERT_TRUE(build());
  std::filesystem::remove(path(kIndex));
  ASSERT_EQ(mkfifo(path(kIndex).c_str(), 0600), 0);
  EXPECT_TRUE(complains(kIndex, ""));
}

TEST_F(BundleContents, SayWhichKeyOfTheIndexIsWrong) {
  ASSERT_TRUE(build());
  const PropertyList index = plist(kIndex);
  const auto withPhases = [&](PropertyList phases) {
    return index.with("Products", dictionary({{"P", dictionary({{"ListOfInstallPhases", std::move(phases)}})}}));
  };
  const std::vector<std::pair<PropertyList, std::string>> cases{
      {index.with("Products", {}), "Products"},
      {index.with("Products", "text"), "Products"},
      {index.with("Products", dictionary({{"P", 7}})), "Products.P"},
      {index.with("Products", dictionary({{"../P", dictionary({})}})), "Products.../P"},
      {index.with("PayloadSize", -1), "PayloadSize"},
      {index.with("ReceiptSize", "12"), "ReceiptSize"},
      {index.with("ReceiptHasPayloadContents", array({})), "ReceiptHasPayloadContents"},
      {withPhases(array({7})), "Products.P.ListOfInstallPhases[0]"},
      {withPhases(array({dictionary({{"InstallPhaseType", "Other"}})})),
       "Products.P.ListOfInstallPhases[0].InstallPhaseType"},
      {withPhases(array({dictionary(
           {{"InstallPhaseType", "LocalPayload"}, {"ListOfComponents", array({"Core", "../../Core", 7})}})})),
       "Products.P.ListOfInstallPhases[0].ListOfComponents[1]"},
  };
  for (const auto& [content, key] : cases) {
    writePlist(kIndex, content);
    EXPECT_TRUE(complains(kIndex, key)) << key;
  }
}

TEST_F(BundleContents, SayWhichKeyOfAComponentIsWrong) {
  ASSERT_TRUE(build());
  const PropertyList manifest = plist(kCore);
  const auto withEntry = [&](std::vector<std::pair<std::string, PropertyList>> entry) {
    return manifest.with("ListOfFiles", array({dictionary(std::move(entry))}));
  };
  const std::vector<std::pair<PropertyList, std::string>> cases{
      {manifest.with("ComponentVersion", {}), "ComponentVersion"},
      {manifest.with("ComponentSize", "1"), "ComponentSize"},
      {manifest.with("ListOfFiles", dictionary({})), "ListOfFiles"},
      {manifest.with("ListOfFiles", array({"/x"})), "ListOfFiles[0]"},
      {manifest.with("ListOfLaunchDaemons", array({array({})})), "ListOfLaunchDaemons[0]"},
      {manifest.with("ListOfExecutables", array({dictionary({})})), "ListOfExecutables[0].Path"},
      {withEntry({{"IsDirectory", true}}), "ListOfFiles[0].Path"},
      {withEntry({{"Path", "/a/../../b"}, {"IsDirectory", true}}), "ListOfFiles[0].Path"},
      {withEntry({{"Path", "/x"}}), "ListOfFiles[0]"},
      {withEntry({{"Path", "/x"}, {"SHAChecksum", "../../../../etc/passwd"}}), "ListOfFiles[0].SHAChecksum"},
      {withEntry({{"Path", "/x"}, {"IsSymbolicLink", true}}), "ListOfFiles[0].SymbolicLinkTarget"},
      {withEntry({{"Path", "/x"}, {"IsDirectory", true}, {"NSFilePosixPermissions", 1e9}}),
       "ListOfFiles[0].NSFilePosixPermissions"},
  };
  for (const auto& [content, key] : cases) {
    writePlist(kCore, content);
    EXPECT_TRUE(complains(kCore, key)) << key;
  }
}

TEST_F(BundleContents, AreComplainedOfWithoutControlCharacters) {
  buildSomethingHostile();
  static_cast<void>(read());
  std::string all;
  for (const bundletool::Problem& problem : problems_.errors()) {
    all += problem.text() + "\n";
  }
  EXPECT_FALSE(all.empty());
  expectHarmless(all);
}

}  // namespace
