#include <sys/socket.h>
#include <sys/un.h>

#include "tests/unit/tools/PackagerFixture.h"

namespace {

namespace fs = std::filesystem;
using foundation::PropertyList;

constexpr const char* kDigestOfAbc = "ba7816bf8f01cfea414140de5dae2223b00361a396177a9cb410ff61f20015ad";

/// What a bundle is not built from. Each test names the file and the key that the message must name.
class Refusal : public tests::PackagerFixture {};

TEST_F(Refusal, AcceptsTheUnchangedDescription) { EXPECT_TRUE(build()); }

TEST_F(Refusal, OfADescriptionThatIsMissing) {
  bundletool::Problems problems;
  (void)bundletool::readDescription(path("none.plist"), problems);
  ASSERT_EQ(problems.errors().size(), 1U);
  EXPECT_EQ(problems.errors()[0].text(),
            path("none.plist") + ": the description is missing; create it or correct the path");
}

TEST_F(Refusal, OfADescriptionThatDoesNotParseOrIsNoDictionary) {
  for (const char* content : {"", "<plist><dict>", "<plist version=\"1.0\"><array/></plist>", "bplist00"}) {
    bundletool::Problems problems;
    (void)bundletool::readDescription(folder_.write("bad.plist", content), problems);
    ASSERT_EQ(problems.errors().size(), 1U) << content;
    EXPECT_EQ(problems.errors()[0].file, path("bad.plist"));
  }
}

TEST_F(Refusal, OfUnknownKeysAtEveryLevel) {
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

TEST_F(Refusal, OfMissingKeysAndWrongTypes) {
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

TEST_F(Refusal, OfAComponentNameThatIsNoSinglePathComponent) {
  for (const char* name : {"a/b", ".", "..", "/"}) {
    describeCore("Name", name);
    EXPECT_TRUE(refuses("D.plist", "Components[0].Name", "single path component")) << name;
  }
  describeCore("Name", std::string(250, 'n'));
  EXPECT_TRUE(refuses("D.plist", "Components[0].Name", "longer than 249 bytes"));
}

TEST_F(Refusal, OfAComponentThatWouldOverwriteTheIndex) {
  for (const char* name : {"Index", "index"}) {
    describeCore("Name", name);
    EXPECT_TRUE(refuses("D.plist", "Components[0].Name", "overwrite the index")) << name;
  }
}

TEST_F(Refusal, OfAComponentNameUsedTwiceWithOtherContent) {
  describe("Components", array({component(), component("Core", array({"Q"})).with("Version", "2")}));
  EXPECT_TRUE(refuses("D.plist", "Components[1].Name", "with other content"));
  describe("Components", array({component(), component("core", array({"Q"}))}));
  EXPECT_TRUE(refuses("D.plist", "Components[1].Name", "in case only"));
}

TEST_F(Refusal, OfAComponentListedTwiceForOneProduct) {
  describe("Components", array({component(), component()}));
  EXPECT_TRUE(refuses("D.plist", "Components[1].Products", "in product P already"));
  describe("Components", array({component("Core", array({"P", "P"}))}));
  EXPECT_TRUE(refuses("D.plist", "Components[0].Products", "in product P already"));
}

TEST_F(Refusal, OfProductsThatAreEmptyOrNoFolderNames) {
  describeCore("Products", array({}));
  EXPECT_TRUE(refuses("D.plist", "Components[0].Products", "no product"));
  describeCore("Products", array({"a/b"}));
  EXPECT_TRUE(refuses("D.plist", "Components[0].Products[0]", "single path component"));
  describeCore("Products", array({"temp"}));
  EXPECT_TRUE(refuses("D.plist", "Components[0].Products[0]", "in the making"));
  describeCore("Products", array({"P", "p"}));
  EXPECT_TRUE(refuses("D.plist", "Components[0].Products[1]", "in case only"));
}

PropertyList tool(const std::string& product, const std::string& bundlePath = "/x/T.app") {
  return PropertyList::dictionary({{"BundlePath", bundlePath}, {"ExternalProduct", "E"}, {"Product", product}});
}

TEST_F(Refusal, OfAPhaseOrderThatCannotRun) {
  describe("ExternalTools", array({tool("Q")}));
  EXPECT_TRUE(refuses("D.plist", "ExternalTools[0].Product", "no components"));
  describe("ExternalTools", array({tool("P"), tool("P", "/y/U.app")}));
  EXPECT_TRUE(refuses("D.plist", "ExternalTools[1].Product", "external tool already"));
  describe("ExternalTools", array({tool("P", "T.app")}));
  EXPECT_TRUE(refuses("D.plist", "ExternalTools[0].BundlePath", "begin with a slash"));
  describe("ExternalTools", array({tool("P", "/x/../T.app")}));
  EXPECT_TRUE(refuses("D.plist", "ExternalTools[0].BundlePath", "climbs"));
}

TEST_F(Refusal, OfAStagedFolderThatIsMissingOrNoFolder) {
  describeCore("StagedFolder", "Nowhere");
  EXPECT_TRUE(refuses("D.plist", "Components[0].StagedFolder", "is missing"));
  describeCore("StagedFolder", "Engine");
  EXPECT_TRUE(refuses("D.plist", "Components[0].StagedFolder", "is not a folder"));
}

TEST_F(Refusal, OfPathsThatClimbOrAreRelativeOrNotInShortestForm) {
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

TEST_F(Refusal, OfAFrontEndOrEngineThatIsMissingOrNotExecutable) {
  for (const char* key : {"FrontEnd", "Engine"}) {
    const PropertyList before = description_;
    describe(key, "Nowhere");
    EXPECT_TRUE(refuses("D.plist", key, "is missing"));
    describe(key, "Staged");
    EXPECT_TRUE(refuses("D.plist", key, "no regular file"));
    describe(key, "Staged/Core/opt/file");
    EXPECT_TRUE(refuses("D.plist", key, "not executable"));
    description_ = before;
  }
  describe("Engine", {});
  EXPECT_TRUE(refuses("D.plist", "Engine", "DefaultEngine is missing"));
  makeExecutable("DefaultEngine");
  describe("FrontEnd", {});
  EXPECT_TRUE(refuses("D.plist", "FrontEnd", "DefaultFrontEnd is missing"));
}

TEST_F(Refusal, OfSpecialFilesInTheStagedFolder) {
  ASSERT_EQ(mkfifo(staged("opt/pipe").c_str(), 0600), 0);
  EXPECT_TRUE(refuses("Staged/Core/opt/pipe", "", "neither a file"));
  fs::remove(staged("opt/pipe"));
  const int socketDescriptor = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
  sockaddr_un address{};
  address.sun_family = AF_UNIX;
  staged("opt/s").copy(static_cast<char*>(address.sun_path), sizeof address.sun_path - 1);
  ASSERT_EQ(bind(socketDescriptor, reinterpret_cast<const sockaddr*>(&address), sizeof address), 0);
  EXPECT_TRUE(refuses("Staged/Core/opt/s", "", "neither a file"));
  close(socketDescriptor);
}

TEST_F(Refusal, OfEntriesThatStandForFoldersOfTheSystem) {
  for (const char* folder : {"/", "/Library", "/Library/LaunchDaemons"}) {
    useFileEntry({{"Path", folder}, {"IsDirectory", true}, {"NSFilePosixPermissions", 0700}});
    EXPECT_TRUE(refuses("Core.plist", "ListOfFiles[0].Path", "belongs to the system")) << folder;
  }
  useFileEntry({{"Path", "/Library/Guard"}, {"IsDirectory", true}});
  EXPECT_TRUE(build());
}

TEST_F(Refusal, OfALinkOrAFileStagedInPlaceOfAFolderOfTheSystem) {
  fs::create_symlink("private", staged("Library"));
  EXPECT_TRUE(refuses("Staged/Core/Library", "", "belongs to the system"));
  fs::remove(staged("Library"));
  stage("Library", "abc");
  EXPECT_TRUE(refuses("Staged/Core/Library", "", "belongs to the system"));
}

TEST_F(Refusal, OfNamesAndLinkTargetsThatAPropertyListCannotHold) {
  stage("opt/bad\xff", "abc");
  EXPECT_TRUE(refuses("Staged/Core/opt/bad\xff", "", "not valid UTF-8"));
  fs::remove(staged("opt/bad\xff"));
  fs::create_directory(staged("opt/folder\xc3"));
  EXPECT_TRUE(refuses("Staged/Core/opt/folder\xc3", "", "not valid UTF-8"));
  fs::remove(staged("opt/folder\xc3"));
  fs::create_symlink("bad\xff", staged("opt/link"));
  EXPECT_TRUE(refuses("Staged/Core/opt/link", "", "not valid UTF-8"));
}

TEST_F(Refusal, OfFilesThatCannotBeRead) {
  constexpr uid_t kNobody = 65534;
  if (geteuid() != 0) {
    GTEST_SKIP() << "only root can become somebody who may build but not read";
  }
  ASSERT_EQ(chmod(folder_.path().c_str(), 0755), 0);
  ASSERT_EQ(chmod(path("out").c_str(), 0777), 0);
  ASSERT_EQ(chmod(staged("opt/file").c_str(), 0), 0);
  writePlist("D.plist", description_);
  ASSERT_EQ(chmod(folder_.path().c_str(), 0777), 0);
  ASSERT_EQ(seteuid(kNobody), 0);
  const auto file = refuses("Staged/Core/opt/file", "", "cannot be read");
  ASSERT_EQ(seteuid(0), 0);
  EXPECT_TRUE(file);
  ASSERT_EQ(chmod(staged("opt").c_str(), 0), 0);
  ASSERT_EQ(seteuid(kNobody), 0);
  const auto folder = refuses("Staged/Core/opt", "", "cannot be listed");
  ASSERT_EQ(seteuid(0), 0);
  EXPECT_TRUE(folder);
}

TEST_F(Refusal, OfPathsBeyondTheLimits) {
  std::string prefix;
  while (prefix.size() < 1020) {
    prefix += "/" + std::string(50, 'p');
  }
  describeCore("RootPrefix", prefix.substr(0, 1020));
  EXPECT_TRUE(refuses("Staged/Core/opt", "", "longer than 1023 bytes"));
  describeCore("RootPrefix", prefix + prefix);
  EXPECT_TRUE(refuses("D.plist", "Components[0].RootPrefix", "longer than 1023 bytes"));
  describeCore("RootPrefix", "/" + std::string(256, 'n'));
  EXPECT_TRUE(refuses("D.plist", "Components[0].RootPrefix", "longer than 255 bytes"));
}

TEST_F(Refusal, OfPathsInstalledTwiceByOneComponent) {
  useFileEntry({{"Path", "/opt/file"}, {"ExternalSourcePath", "/x"}});
  EXPECT_TRUE(refuses("Core.plist", "ListOfFiles[0]", "/opt/file is installed by component Core already"));
  useFileEntry({{"Path", "/opt/file"}, {"IsDirectory", true}});
  EXPECT_TRUE(refuses("Core.plist", "ListOfFiles[0]", "installed by component Core already"));
  const PropertyList entry = dictionary({{"Path", "/y"}, {"ExternalSourcePath", "/x"}});
  useAuthoringPlist(dictionary({{"ListOfFiles", array({entry, entry})}}));
  EXPECT_TRUE(refuses("Core.plist", "ListOfFiles[1]", "installed by component Core already"));
}

TEST_F(Refusal, OfPathsInstalledByTwoComponentsOfOneProductOnly) {
  stage("opt/file", "other", "Two");
  describe("Components", array({component(), component("Two", array({"Q"}))}));
  EXPECT_TRUE(build(true)) << "no product has both";
  fs::remove_all(bundle());
  describe("Components", array({component(), component("Two", array({"Q", "P"}))}));
  EXPECT_TRUE(refuses("Staged/Two/opt/file", "", "installed by component Core already"));
}

TEST_F(Refusal, OfPathsInstalledTwiceThroughALaterListingOfAComponent) {
  stage("opt/file", "other", "Two");
  describe("Components", array({component(), component("Two", array({"Q"})), component("Core", array({"Q"}))}));
  EXPECT_TRUE(refuses("Staged/Two/opt/file", "", "installed by component Core already"));
}

TEST_F(Refusal, OfSharedFoldersThatDisagreeOnly) {
  stage("opt/mine/other", "x", "Two");
  stage("opt/mine/one", "x", "Core");
  describe("Components", array({component(), component("Two")}));
  EXPECT_TRUE(build()) << "folders that agree may be shared";
  fs::remove_all(bundle());
  ASSERT_EQ(chmod(staged("opt/mine", "Two").c_str(), 0700), 0);
  EXPECT_TRUE(refuses("Staged/Two/opt/mine", "", "another owner, group or mode"));
}

TEST_F(Refusal, OfItemsBelowAFileOrALink) {
  useFileEntry({{"Path", "/opt/file/below"}, {"ExternalSourcePath", "/x"}});
  EXPECT_TRUE(refuses("Core.plist", "ListOfFiles[0]", "lies below /opt/file"));
  fs::create_symlink("/elsewhere", staged("opt/link"));
  useFileEntry({{"Path", "/opt/link/a/b"}, {"ExternalSourcePath", "/x"}});
  EXPECT_TRUE(refuses("Core.plist", "ListOfFiles[0]", "lies below /opt/link"));
}

TEST_F(Refusal, OfALinkWithoutATarget) {
  useFileEntry({{"Path", "/l"}, {"IsSymbolicLink", true}});
  EXPECT_TRUE(refuses("Core.plist", "ListOfFiles[0].SymbolicLinkTarget", "no target"));
  useFileEntry({{"Path", "/l"}, {"IsSymbolicLink", true}, {"SymbolicLinkTarget", ""}});
  EXPECT_TRUE(refuses("Core.plist", "ListOfFiles[0].SymbolicLinkTarget", "wrong kind"));
}

TEST_F(Refusal, OfFileEntriesThatCannotBeInstalled) {
  useFileEntry({{"ExternalSourcePath", "/x"}});
  EXPECT_TRUE(refuses("Core.plist", "ListOfFiles[0].Path", "missing"));
  useFileEntry({{"Path", "relative"}, {"ExternalSourcePath", "/x"}});
  EXPECT_TRUE(refuses("Core.plist", "ListOfFiles[0].Path", "begin with a slash"));
  useFileEntry({{"Path", "/a/../b"}, {"ExternalSourcePath", "/x"}});
  EXPECT_TRUE(refuses("Core.plist", "ListOfFiles[0].Path", "climbs"));
  useFileEntry({{"Path", "/y"}});
  EXPECT_TRUE(refuses("Core.plist", "ListOfFiles[0]", "no source"));
  useFileEntry({{"Path", "/y"}, {"SHAChecksum", std::string(64, 'A')}});
  EXPECT_TRUE(refuses("Core.plist", "ListOfFiles[0].SHAChecksum", "hexadecimal"));
  useFileEntry({{"Path", "/y"}, {"SHAChecksum", std::string(64, 'a')}});
  EXPECT_TRUE(refuses("Core.plist", "ListOfFiles[0].SHAChecksum", "no staged file"));
  useFileEntry({{"Path", "/y"}, {"IsDirectory", "YES"}});
  EXPECT_TRUE(refuses("Core.plist", "ListOfFiles[0].IsDirectory", "wrong kind"));
  useFileEntry({{"Path", "/y"}, {"IsDirectory", true}, {"NSFilePosixPermissions", 010000}});
  EXPECT_TRUE(refuses("Core.plist", "ListOfFiles[0].NSFilePosixPermissions", "wrong kind"));
  useFileEntry({{"Path", "/y"}, {"IsDirectory", true}, {"NSFileOwnerAccountID", -1}});
  EXPECT_TRUE(refuses("Core.plist", "ListOfFiles[0].NSFileOwnerAccountID", "wrong kind"));
  useFileEntry({{"Path", "/y"}, {"IsDirectory", true}, {"IsSymbolicLink", true}, {"SymbolicLinkTarget", "t"}});
  EXPECT_TRUE(refuses("Core.plist", "ListOfFiles[0].IsSymbolicLink", "at once"));
  useFileEntry({{"Path", "/y"}, {"ExternalSourcePath", "/x"}, {"Pathh", "/y"}});
  EXPECT_TRUE(refuses("Core.plist", "ListOfFiles[0].Pathh", "unknown"));
  useFileEntry({{"Path", "/y*"}, {"ExternalSourcePath", "/x"}, {"IsWildcardPath", true}, {"IsModifiableFile", true}});
  EXPECT_TRUE(refuses("Core.plist", "ListOfFiles[0].ExternalSourcePath", "wild-card"));
}

TEST_F(Refusal, AcceptsEntriesByHandThatCanBeInstalled) {
  useAuthoringPlist(dictionary(
      {{"ListOfFiles",
        array({dictionary({{"Path", "/copy"}, {"SHAChecksum", kDigestOfAbc}}),
               dictionary({{"Path", "/opt/x/opt"}, {"IsDirectory", true}, {"RemoveDirectoryAndContents", true}}),
               dictionary({{"Path", "/ext"}, {"ExternalSourcePath", "../../../beside"}}),
               dictionary({{"Path", "/l"}, {"IsSymbolicLink", true}, {"SymbolicLinkTarget", "../t"}})})}}));
  describeCore("RootPrefix", "/opt/x");
  EXPECT_TRUE(build()) << (problems_.none() ? "" : problems_.errors()[0].text());
}

TEST_F(Refusal, AcceptsAnEmptyArgumentOfAnExecutable) {
  useAuthoringPlist(dictionary(
      {{"ListOfExecutables", array({dictionary({{"Path", "/bin/x"}, {"ListOfArguments", array({"-n", ""})}})})}}));
  EXPECT_TRUE(build()) << (problems_.none() ? "" : problems_.errors()[0].text());
}

TEST_F(Refusal, OfAnAuthoringPlistThatIsMissingOrMisspelt) {
  describeCore("AuthoringPlist", "None.plist");
  EXPECT_TRUE(refuses("None.plist", "", "missing"));
  useAuthoringPlist(dictionary({{"ListOfFile", array({})}}));
  EXPECT_TRUE(refuses("Core.plist", "ListOfFile", "unknown"));
  useAuthoringPlist(dictionary({{"ListOfLaunchDaemons", array({"a/b"})}}));
  EXPECT_TRUE(refuses("Core.plist", "ListOfLaunchDaemons[0]", "single path component"));
  useAuthoringPlist(dictionary({{"ListOfLaunchAgents", array({"a", "a"})}}));
  EXPECT_TRUE(refuses("Core.plist", "ListOfLaunchAgents[1]", "twice"));
  useAuthoringPlist(dictionary({{"RebuildKextCache", 1}}));
  EXPECT_TRUE(refuses("Core.plist", "RebuildKextCache", "wrong kind"));
}

TEST_F(Refusal, OfExecutablesWithoutAPathOrWithWrongTypes) {
  const auto use = [this](PropertyList executable) {
    useAuthoringPlist(dictionary({{"ListOfExecutables", array({std::move(executable)})}}));
  };
  use(dictionary({{"ExecuteOnInstall", true}}));
  EXPECT_TRUE(refuses("Core.plist", "ListOfExecutables[0].Path", "missing"));
  use(dictionary({{"Path", "/x"}, {"ListOfArguments", array({1})}}));
  EXPECT_TRUE(refuses("Core.plist", "ListOfExecutables[0].ListOfArguments[0]", "wrong kind"));
  use(dictionary({{"Path", "/x"}, {"RunOnce", "no"}}));
  EXPECT_TRUE(refuses("Core.plist", "ListOfExecutables[0].RunOnce", "wrong kind"));
}

TEST_F(Refusal, OfModifiableFilesThatNoStagedFileIsInstalledAt) {
  useAuthoringPlist(dictionary({{"ListOfModifiableFiles", array({"/opt/file", "/opt/fil"})}}));
  EXPECT_TRUE(refuses("Core.plist", "ListOfModifiableFiles[1]", "no staged regular file"));
  useAuthoringPlist(dictionary({{"ListOfModifiableFiles", array({"/opt"})}}));
  EXPECT_TRUE(refuses("Core.plist", "ListOfModifiableFiles[0]", "no staged regular file")) << "a folder";
}

TEST_F(Refusal, OnlyWarnsOfAStagedDaemonThatIsNotListed) {
  stage("Library/LaunchDaemons/svcd.plist", "x");
  useAuthoringPlist(dictionary({{"ListOfLaunchDaemons", array({})}}));
  EXPECT_TRUE(build());
  ASSERT_EQ(problems_.warnings().size(), 1U);
  EXPECT_EQ(problems_.warnings()[0].key, "ListOfLaunchDaemons");
  EXPECT_NE(problems_.warnings()[0].what.find("svcd"), std::string::npos);
}

TEST_F(Refusal, OfAnOptionsPlistThatIsMissingOrOfTheWrongShape) {
  describe("Options", dictionary({{"OptionsPlist", "None.plist"}}));
  EXPECT_TRUE(refuses("None.plist", "", "missing"));
  useOptionsPlist(dictionary({{"Else", 1}}));
  EXPECT_TRUE(refuses("Options.plist", "Else", "unknown"));
  useOptionsPlist(dictionary({{"ProductDetectionList", array({dictionary({{"ProductName", "P"}})})}}));
  EXPECT_TRUE(refuses("Options.plist", "ProductDetectionList[0].ProductDetectionPaths", "missing"));
  const auto detecting = [&](PropertyList paths) {
    return array({dictionary({{"ProductName", "P"}, {"ProductDetectionPaths", std::move(paths)}})});
  };
  useOptionsPlist(dictionary({{"ProductDetectionList", detecting(array({"/a", 7}))}}));
  EXPECT_TRUE(refuses("Options.plist", "ProductDetectionList[0].ProductDetectionPaths[1]", "wrong kind"));
  useOptionsPlist(dictionary({{"ProductDetectionList", detecting(array({array({"/a", 7})}))}}));
  EXPECT_TRUE(refuses("Options.plist", "ProductDetectionList[0].ProductDetectionPaths[0][1]", "wrong kind"));
  useOptionsPlist(dictionary({{"ProductRemovals", detecting(array({"/a"}))}}));
  EXPECT_TRUE(refuses("Options.plist", "ProductRemovals[0].ListOfComponents", "missing"));
  useOptionsPlist(dictionary({{"ProductCleanup", dictionary({})}}));
  EXPECT_TRUE(refuses("Options.plist", "ProductCleanup.ListOfComponents", "missing"));
}

TEST_F(Refusal, OfProductsOfTheOptionsWithoutCrossGradesOrWithoutComponents) {
  useOptionsPlist(dictionary({{"Products", dictionary({{"P", dictionary({})}})}}));
  EXPECT_TRUE(refuses("Options.plist", "Products.P.CrossGrades", "missing"));
  useOptionsPlist(dictionary({{"Products", dictionary({{"Q", dictionary({{"CrossGrades", array({})}})}})}}));
  EXPECT_TRUE(refuses("Options.plist", "Products.Q", "no such product"));
  const PropertyList crossGrade = dictionary({{"ProductName", "Old"}, {"AllowCrossGrades", "yes"}});
  useOptionsPlist(dictionary({{"Products", dictionary({{"P", dictionary({{"CrossGrades", array({crossGrade})}})}})}}));
  EXPECT_TRUE(refuses("Options.plist", "Products.P.CrossGrades[0].AllowCrossGrades", "wrong kind"));
}

TEST_F(Refusal, OfAnOutputInAStagedFolder) {
  describeCore("StagedFolder", path("."));
  EXPECT_TRUE(refuses("out", "", "lies in the staged folder of component Core"));
  stage("f", "f", "out");
  describeCore("StagedFolder", "Staged/out");
  EXPECT_TRUE(build()) << "a name that begins alike is another folder";
}

TEST_F(Refusal, OfAnOutputThatIsMissingOrTaken) {
  ASSERT_TRUE(build());
  EXPECT_TRUE(refuses("out/Installer.app", "", "there already"));
  fs::remove_all(path("out"));
  EXPECT_FALSE(build());
  EXPECT_EQ(problems_.errors().at(0).file, path("out"));
}

}  // namespace
