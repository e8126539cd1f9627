#include <sys/stat.h>

#include "general/terminal/JsonWriter.h"
#include "general/terminal/PrintableText.h"
#include "tests/unit/tools/PackagerFixture.h"
#include "tools/building/ProgressBar.h"
#include "tools/showing/BundleContents.h"
#include "tools/showing/BundleText.h"
#include "tools/showing/TextTable.h"

namespace {

using bundletool::BundleContents;
using foundation::PropertyList;

constexpr const char* kDigestOfAbc = "ba7816bf8f01cfea414140de5dae2223b00361a396177a9cb410ff61f20015ad";

class Show : public tests::PackagerFixture {
 protected:
  static constexpr const char* kIndex = "out/Installer.app/Contents/Install/Manifests/Index.plist";
  static constexpr const char* kCore = "out/Installer.app/Contents/Install/Manifests/Core.plist";

  BundleContents read() {
    problems_ = {};
    return bundletool::readBundle(bundle(), problems_);
  }
  /// Whether reading complains about a key of a file.
  testing::AssertionResult complains(const std::string& file, const std::string& key) {
    const BundleContents contents = read();
    (void)bundletool::textOf(contents);
    (void)bundletool::jsonOf(contents);
    std::string all;
    for (const bundletool::Problem& problem : problems_.errors()) {
      if (problem.file == path(file) && problem.key == key) {
        return testing::AssertionSuccess();
      }
      all += problem.text() + "\n";
    }
    return testing::AssertionFailure() << "not among the problems:\n" << all;
  }
  [[nodiscard]] PropertyList plist(const char* name) { return *foundation::plist::readFile(path(name)); }
};

TEST_F(Show, TellsProductsPhasesComponentsAndFiles) {
  stage("Library/LaunchDaemons/svcd.plist", "daemon");
  std::filesystem::create_symlink("file", staged("opt/link"));
  ASSERT_EQ(chmod(staged("opt/file").c_str(), 04755), 0);
  const PropertyList executable =
      dictionary({{"Path", "/opt/file"}, {"ListOfArguments", array({"-x", "y"})}, {"ExecuteOnInstall", true}});
  useAuthoringPlist(dictionary({{"ListOfExecutables", array({executable})}, {"RebuildKextCache", true}}));
  ASSERT_TRUE(build()) << problems_.errors().at(0).text();
  const BundleContents contents = read();
  EXPECT_TRUE(problems_.none());
  const std::string text = bundletool::textOf(contents);
  for (const char* part : {"Product P\n  LocalPayload: Core\n", "Component Core, version 1, 13 bytes, 3 entries\n",
                           "  Daemons: svcd\n", "  Executable: /opt/file -x y  (ExecuteOnInstall)\n",
                           "  RebuildKextCache\n", "-rwsr-xr-x", "/opt/link -> file\n", kDigestOfAbc}) {
    EXPECT_NE(text.find(part), std::string::npos) << part << "\nis not in\n" << text;
  }
  const std::string json = bundletool::jsonOf(contents);
  EXPECT_NE(json.find("\"mode\": 2541"), std::string::npos) << json;
  EXPECT_NE(json.find("\"target\": \"file\""), std::string::npos);
  EXPECT_NE(json.find("\"numberOfFiles\": 3"), std::string::npos);
}

TEST_F(Show, GivesNoSizeWhereThePayloadIsNotThere) {
  ASSERT_TRUE(build());
  EXPECT_EQ(read().components.at(0).files.at(0).size, 3U);
  std::filesystem::remove_all(bundle("Contents/Install/Root"));
  EXPECT_EQ(read().components.at(0).files.at(0).size, std::nullopt);
  EXPECT_TRUE(problems_.none()) << "a receipt may leave the payload out";
}

TEST_F(Show, SaysWhichContentThePayloadLacks) {
  ASSERT_TRUE(build());
  const std::string content = bundle("Contents/Install/Root/Core/") + kDigestOfAbc;
  std::filesystem::remove(content);
  EXPECT_TRUE(complains(kCore, "ListOfFiles[0].SHAChecksum"));
  std::filesystem::create_directory(content);
  EXPECT_TRUE(complains(kCore, "ListOfFiles[0].SHAChecksum")) << "a folder holds no content";
}

TEST_F(Show, SaysWhichManifestIsMissingOrDoesNotParse) {
  EXPECT_TRUE(complains(kIndex, ""));
  ASSERT_TRUE(build());
  folder_.write(kCore, "<plist>");
  EXPECT_TRUE(complains(kCore, ""));
  std::filesystem::remove(path(kCore));
  EXPECT_TRUE(complains(kCore, ""));
  folder_.write(kIndex, contentOf(path(kIndex)).substr(0, 300));
  EXPECT_TRUE(complains(kIndex, ""));
}

TEST_F(Show, DoesNotWaitForAPipeInPlaceOfAManifest) {
  ASSERT_TRUE(build());
  std::filesystem::remove(path(kIndex));
  ASSERT_EQ(mkfifo(path(kIndex).c_str(), 0600), 0);
  EXPECT_TRUE(complains(kIndex, ""));
}

TEST_F(Show, SaysWhichKeyOfTheIndexIsWrong) {
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

TEST_F(Show, SaysWhichKeyOfAComponentIsWrong) {
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

TEST_F(Show, LetsNoControlCharacterOfABundleReachTheTerminal) {
  ASSERT_TRUE(build());
  const std::string evil =
      "/x\x1b[2J\n\xc2\x9b"
      "31m\xe2\x80\xae\x7f";
  const PropertyList manifest = plist(kCore);
  const PropertyList entry = dictionary({{"Path", evil}, {"IsSymbolicLink", true}, {"SymbolicLinkTarget", evil}});
  ASSERT_TRUE(foundation::plist::writeFile(manifest.with("ListOfFiles", array({entry, dictionary({{evil, evil}})}))
                                               .with("ComponentVersion", evil)
                                               .with("ListOfLaunchAgents", array({evil})),
                                           path(kCore), foundation::plist::Format::Binary)
                  .ok());
  const BundleContents contents = read();
  std::string all = bundletool::textOf(contents) + bundletool::jsonOf(contents);
  for (const bundletool::Problem& problem : problems_.errors()) {
    all += problem.text() + "\n";
  }
  EXPECT_EQ(all.find('\x1b'), std::string::npos);
  EXPECT_EQ(all.find('\x7f'), std::string::npos);
  EXPECT_EQ(all.find("\xc2\x9b"), std::string::npos);
  EXPECT_EQ(all.find("\xe2\x80\xae"), std::string::npos);
  EXPECT_EQ(all.find("2J\n"), std::string::npos);
}

TEST(PrintableText, KeepsWhatPrintsAndEscapesTheRest) {
  EXPECT_EQ(terminal::printable("Größe 漢字 😀"), "Größe 漢字 😀");
  EXPECT_EQ(terminal::printable(std::string("a\0b", 3)), "a\\x00b");
  EXPECT_EQ(terminal::printable("\t\r\n"), "\\x09\\x0d\\x0a");
  EXPECT_EQ(terminal::printable("\xff\xc0\x80\xed\xa0\x80"), "\\xff\\xc0\\x80\\xed\\xa0\\x80");
  EXPECT_EQ(terminal::printable("\xe6\xbc"), "\\xe6\\xbc") << "cut short";
  EXPECT_EQ(terminal::printable("\xc2\x85"), "\\u{85}");
}

TEST(PrintableText, GivesSizesForPeople) {
  EXPECT_EQ(terminal::sizeText(1), "1 byte");
  EXPECT_EQ(terminal::sizeText(999), "999 bytes");
  EXPECT_EQ(terminal::sizeText(1000), "1.0 kB");
  EXPECT_EQ(terminal::sizeText(999999), "1.0 MB");
  EXPECT_EQ(terminal::sizeText(UINT64_MAX), "18446.7 PB");
}

TEST(JsonWriter, WritesNestedValuesWithTheirCommas) {
  terminal::JsonWriter json;
  json.beginObject();
  json.member("texts", std::vector<std::string>{"a", "b"});
  json.key("empty");
  json.beginArray();
  json.endArray();
  json.member("number", std::optional<std::uint64_t>(UINT64_MAX));
  json.member("nothing", std::optional<std::string>());
  json.member("truth", std::optional<bool>(true));
  json.endObject();
  EXPECT_EQ(json.text(),
            "{\n  \"texts\": [\n    \"a\",\n    \"b\"\n  ],\n  \"empty\": [],\n  \"number\": 18446744073709551615,\n"
            "  \"nothing\": null,\n  \"truth\": true\n}\n");
}

TEST(JsonWriter, EscapesTextAndReplacesWhatIsNoUtf8) {
  terminal::JsonWriter json;
  json.string(std::string("\"\\/\n\x1b\0\xff", 7) + "ä");
  EXPECT_EQ(json.text(), "\"\\u0022\\u005c/\\u000a\\u001b\\u0000\xEF\xBF\xBDä\"");
}

TEST(JsonWriter, WritesADocumentOnOneLineWhereAskedTo) {
  terminal::JsonWriter json(terminal::JsonWriter::Layout::OneLine);
  json.beginObject();
  json.member("texts", std::vector<std::string>{"a", "b\n"});
  json.member("nothing", std::optional<std::string>());
  json.endObject();
  EXPECT_EQ(json.text(), "{\"texts\": [\"a\", \"b\\u000a\"], \"nothing\": null}\n");
}

TEST(TextTable, AlignsColumnsByCharacters) {
  bundletool::TextTable table({"Name", "Size", "Path"}, {1});
  table.add({"ä", "10", "x"});
  table.add({"long name", "7", "y"});
  EXPECT_EQ(table.text(), "Name       Size  Path\nä            10  x\nlong name     7  y\n");
}

TEST(ProgressBar, ShowsPartsOfFilesAndBytesInOneLine) {
  std::string drawn;
  bundletool::ProgressBar bar([&drawn](std::string_view text) { drawn += text; }, 80);
  bar.start(4, 1000);
  bar.addBytes(500);
  bar.addFile();
  bar.addFile();
  const std::string line = bar.line();
  EXPECT_NE(line.find(" 50 %  2 of 4 files, 500 bytes of 1.0 kB"), std::string::npos) << line;
  EXPECT_LT(line.size(), 80U);
  EXPECT_EQ(line.front(), '[');
  bar.erase();
  EXPECT_TRUE(drawn.ends_with("\r\x1b[K"));
}

TEST(ProgressBar, FitsIntoANarrowTerminalAndNeverPassesItsEnd) {
  for (const std::size_t columns : {1U, 2U, 20U, 50U}) {
    bundletool::ProgressBar bar({}, columns);
    bar.start(1, 10);
    bar.addBytes(1000);
    bar.addFile();
    bar.addFile();
    EXPECT_LT(bar.line().size(), columns);
  }
}

TEST(ProgressBar, DrawsNothingWithoutAnOutput) {
  bundletool::ProgressBar bar({}, 80);
  bar.start(0, 0);
  bar.addFile();
  bar.erase();
  EXPECT_NE(bar.line().find("100 %"), std::string::npos);
}

}  // namespace
