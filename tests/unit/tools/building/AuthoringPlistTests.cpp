#include "tests/unit/tools/PackagerFixture.h"

namespace {

using foundation::PropertyList;

constexpr const char* kDigestOfAbc = "ba7816bf8f01cfea414140de5dae2223b00361a396177a9cb410ff61f20015ad";

class AuthoringPlist : public tests::PackagerFixture {};

TEST_F(AuthoringPlist, IsRefusedWhenItIsMissingOrMisspelt) {
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

TEST_F(AuthoringPlist, RefusesFileEntriesThatCannotBeInstalled) {
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

TEST_F(AuthoringPlist, RefusesEntriesThatStandForFoldersOfTheSystem) {
  for (const char* folder : {"/", "/Library", "/Library/LaunchDaemons"}) {
    useFileEntry({{"Path", folder}, {"IsDirectory", true}, {"NSFilePosixPermissions", 0700}});
    EXPECT_TRUE(refuses("Core.plist", "ListOfFiles[0].Path", "belongs to the system")) << folder;
  }
  useFileEntry({{"Path", "/Library/Guard"}, {"IsDirectory", true}});
  EXPECT_TRUE(build());
}

TEST_F(AuthoringPlist, RefusesALinkWithoutATarget) {
  useFileEntry({{"Path", "/l"}, {"IsSymbolicLink", true}});
  EXPECT_TRUE(refuses("Core.plist", "ListOfFiles[0].SymbolicLinkTarget", "no target"));
  useFileEntry({{"Path", "/l"}, {"IsSymbolicLink", true}, {"SymbolicLinkTarget", ""}});
  EXPECT_TRUE(refuses("Core.plist", "ListOfFiles[0].SymbolicLinkTarget", "wrong kind"));
}

TEST_F(AuthoringPlist, AcceptsEntriesByHandThatCanBeInstalled) {
  useAuthoringPlist(dictionary(
      {{"ListOfFiles",
        array({dictionary({{"Path", "/copy"}, {"SHAChecksum", kDigestOfAbc}}),
               dictionary({{"Path", "/opt/x/opt"}, {"IsDirectory", true}, {"RemoveDirectoryAndContents", true}}),
               dictionary({{"Path", "/ext"}, {"ExternalSourcePath", "../../../beside"}}),
               dictionary({{"Path", "/l"}, {"IsSymbolicLink", true}, {"SymbolicLinkTarget", "../t"}})})}}));
  describeCore("RootPrefix", "/opt/x");
  EXPECT_TRUE(build()) << (problems_.none() ? "" : problems_.errors()[0].text());
}

TEST_F(AuthoringPlist, AcceptsAnEmptyArgumentOfAnExecutable) {
  useAuthoringPlist(dictionary(
      {{"ListOfExecutables", array({dictionary({{"Path", "/bin/x"}, {"ListOfArguments", array({"-n", ""})}})})}}));
  EXPECT_TRUE(build()) << (problems_.none() ? "" : problems_.errors()[0].text());
}

TEST_F(AuthoringPlist, RefusesExecutablesWithoutAPathOrWithWrongTypes) {
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

TEST_F(AuthoringPlist, RefusesModifiableFilesThatNoStagedFileIsInstalledAt) {
  useAuthoringPlist(dictionary({{"ListOfModifiableFiles", array({"/opt/file", "/opt/fil"})}}));
  EXPECT_TRUE(refuses("Core.plist", "ListOfModifiableFiles[1]", "no staged regular file"));
  useAuthoringPlist(dictionary({{"ListOfModifiableFiles", array({"/opt"})}}));
  EXPECT_TRUE(refuses("Core.plist", "ListOfModifiableFiles[0]", "no staged regular file")) << "a folder";
}

TEST_F(AuthoringPlist, OnlyWarnsOfAStagedDaemonThatIsNotListed) {
  stage("Library/LaunchDaemons/svcd.plist", "x");
  useAuthoringPlist(dictionary({{"ListOfLaunchDaemons", array({})}}));
  EXPECT_TRUE(build());
  ASSERT_EQ(problems_.warnings().size(), 1U);
  EXPECT_EQ(problems_.warnings()[0].key, "ListOfLaunchDaemons");
  EXPECT_NE(problems_.warnings()[0].what.find("svcd"), std::string::npos);
}

}  // namespace
