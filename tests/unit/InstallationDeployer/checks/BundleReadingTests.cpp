#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <fstream>

#include "InstallationDeployer/checks/BundleReading.h"
#include "general/foundation/files/FileBuffer.h"
#include "tests/support/CapturedLog.h"
#include "tests/unit/InstallationDeployer/checks/CheckedBundle.h"

namespace deployer {
namespace {

using Kind = BundleProblem::Kind;
using foundation::PropertyList;
using tests::CheckedBundle;

/// A bundle whose product Guard has the component Core.
class ReadingABundle : public ::testing::Test {
 protected:
  ReadingABundle() {
    bundle_.writeIndex(CheckedBundle::indexOfComponents("Guard", {"Core"}));
    writeCore({CheckedBundle::file("/opt/core", "content")});
    stored_ = bundle_.store("Core", "content");
  }
  void writeCore(CheckedBundle::Entries entries, const PropertyList& executables = {}) {
    bundle_.writeManifest("Core", CheckedBundle::component(std::move(entries), executables));
  }
  void writePhases(CheckedBundle::Entries phases) {
    bundle_.writeIndex(CheckedBundle::indexOf("Guard", CheckedBundle::product(std::move(phases))));
  }
  /// What is wrong with the bundle as it is now.
  std::vector<BundleProblem> read() {
    const tests::CapturedLog quiet;
    QVNInstallerManifest manifest(bundle_.path());
    BundleProblems problems;
    CheckProgress progress;
    BundleReading reading(bundle_.path(), manifest, problems, progress);
    if (reading.readIndex()) {
      reading.readProduct("Guard");
    }
    files_ = reading.payload().files();
    warnings_ = reading.warnings();
    return problems.first();
  }
  /// The only thing that is wrong.
  BundleProblem onlyProblem() {
    const auto problems = read();
    EXPECT_EQ(problems.size(), 1U);
    return problems.empty() ? BundleProblem() : problems.front();
  }
  [[nodiscard]] std::string manifestPath(const std::string& name) const {
    return bundle_.path("Contents/Install/Manifests/" + name + ".plist");
  }
  void expectMalformed(const std::string& file, const std::string& what) {
    const BundleProblem problem = onlyProblem();
    EXPECT_EQ(problem.kind, Kind::Malformed);
    EXPECT_EQ(problem.file, file);
    EXPECT_EQ(problem.what, what);
  }

  CheckedBundle bundle_;
  std::string stored_;
  std::vector<PayloadFiles::File> files_;
  std::vector<std::string> warnings_;
};

TEST_F(ReadingABundle, FindsNothingWrongWithAWholeOne) {
  EXPECT_TRUE(read().empty());
  EXPECT_TRUE(warnings_.empty());
  ASSERT_EQ(files_.size(), 1U);
  EXPECT_EQ(files_.front().bytes, 7U);
}

TEST_F(ReadingABundle, LooksAtAContentOfSeveralEntriesOnce) {
  writeCore({CheckedBundle::file("/opt/core", "content"), CheckedBundle::file("/opt/copy", "content")});
  EXPECT_TRUE(read().empty());
  EXPECT_EQ(files_.size(), 1U);
}

// --- the index ---

TEST_F(ReadingABundle, NeedsAnIndexThatIsADictionaryWithProducts) {
  bundle_.writeIndex(PropertyList::dictionary({{"Products", CheckedBundle::array({"Guard"})}}));
  expectMalformed(manifestPath("Index"), "names no products");
  std::ofstream(manifestPath("Index")) << "<plist";
  EXPECT_EQ(onlyProblem().kind, Kind::Malformed);
  std::filesystem::remove(manifestPath("Index"));
  const BundleProblem missing = onlyProblem();
  EXPECT_EQ(missing.kind, Kind::Missing);
  EXPECT_EQ(missing.file, manifestPath("Index"));
}

TEST_F(ReadingABundle, NeedsPhasesOfWhichTheFirstInstallsPayload) {
  bundle_.writeIndex(CheckedBundle::indexOf("Guard", PropertyList::dictionary()));
  expectMalformed(manifestPath("Index"), "has no list of phases for the product Guard");
  writePhases({PropertyList::dictionary({{"InstallPhaseType", "Unknown"}})});
  expectMalformed(manifestPath("Index"), "has a first phase of the product Guard that installs no payload");
}

TEST_F(ReadingABundle, NeedsComponentsThatAreTextsAndNamesOfFiles) {
  writePhases({CheckedBundle::localPayload({}).with("ListOfComponents", "Core")});
  expectMalformed(manifestPath("Index"), "has a list of components of the product Guard that is no list");
  writePhases({CheckedBundle::localPayload({}).with("ListOfComponents", CheckedBundle::array({7}))});
  expectMalformed(manifestPath("Index"), "lists a component whose name is no file name: \"\"");
  writePhases({CheckedBundle::localPayload({"../evil"})});
  expectMalformed(manifestPath("Index"), "lists a component whose name is no file name: \"../evil\"");
  writePhases({CheckedBundle::localPayload({std::string(std::size_t{1} << 20U, 'x')})});
  EXPECT_LT(onlyProblem().what.size(), 2000U) << "whatever the length of the name";
}

TEST_F(ReadingABundle, NeedsTheManifestsOfLaterPhasesButNotTheirPayload) {
  writePhases({CheckedBundle::localPayload({}), CheckedBundle::localPayload({"Core", "Extras"})});
  std::filesystem::remove(stored_);
  const BundleProblem problem = onlyProblem();
  EXPECT_EQ(problem.kind, Kind::Missing);
  EXPECT_EQ(problem.file, manifestPath("Extras"));
}

TEST_F(ReadingABundle, WarnsOfAnotherBundleThatIsNotThereYet) {
  const auto nested = [&](const PropertyList& path, const PropertyList& product) {
    writePhases(
        {CheckedBundle::localPayload({"Core"}),
         PropertyList::dictionary(
             {{"InstallPhaseType", "ExternalInstallationDeployer"}, {"BundlePath", path}, {"ProductName", product}})});
  };
  nested(bundle_.path("Other.app"), "Other");
  EXPECT_TRUE(read().empty());
  ASSERT_EQ(warnings_.size(), 1U);
  EXPECT_EQ(warnings_.front(), "The bundle for a phase of the product Guard is not there: " +
                                   bundle_.path("Other.app") + ". The run will wait for its engine.");
  std::filesystem::create_directories(bundle_.path("Other.app/Contents/MacOS"));
  std::ofstream(bundle_.path("Other.app/Contents/MacOS/InstallationDeployer")) << "engine";
  EXPECT_TRUE(read().empty());
  EXPECT_TRUE(warnings_.empty());
  nested({}, "Other");
  expectMalformed(manifestPath("Index"), "has a phase of the product Guard for another engine without BundlePath");
  nested("/other", {});
  expectMalformed(manifestPath("Index"), "has a phase of the product Guard for another engine without ProductName");
}

// --- manifests ---

TEST_F(ReadingABundle, NeedsEveryManifestAndTellsMissingFromDamaged) {
  std::ofstream(manifestPath("Core")) << "<plist";
  EXPECT_EQ(onlyProblem().kind, Kind::Malformed);
  std::filesystem::remove(manifestPath("Core"));
  const BundleProblem missing = onlyProblem();
  EXPECT_EQ(missing.kind, Kind::Missing);
  EXPECT_EQ(missing.file, manifestPath("Core"));
  EXPECT_EQ(missing.component, "Core");
  ASSERT_EQ(mkfifo(manifestPath("Core").c_str(), 0600), 0);
  EXPECT_EQ(onlyProblem().kind, Kind::Unreadable);
}

TEST_F(ReadingABundle, NeedsAListOfFilesThatIsAListWhereThereIsOne) {
  bundle_.writeManifest("Core", CheckedBundle::component({}).with("ListOfFiles", "none"));
  expectMalformed(manifestPath("Core"), "has no list under ListOfFiles");
  bundle_.writeManifest("Core", PropertyList::dictionary({{"ComponentVersion", "1"}}));
  EXPECT_TRUE(read().empty());
}

TEST_F(ReadingABundle, WarnsOfAComponentWithoutVersion) {
  bundle_.writeManifest("Core", CheckedBundle::manifestOf({}));
  EXPECT_TRUE(read().empty());
  EXPECT_EQ(warnings_, std::vector<std::string>{"The component Core has no version: no later version can follow it."});
}

TEST_F(ReadingABundle, NeedsEntriesThatCanBeInstalled) {
  writeCore({CheckedBundle::file("/opt/../../escape", "content")});
  expectMalformed(manifestPath("Core"),
                  "has an entry that cannot be installed: A file of component Core has no usable path: "
                  "/opt/../../escape");
  writeCore({CheckedBundle::entry("/opt/core", {})});
  EXPECT_EQ(onlyProblem().kind, Kind::Malformed);
  writeCore({CheckedBundle::entry("/opt/core", {{"SHAChecksum", "../../../etc/passwd"}})});
  EXPECT_EQ(onlyProblem().kind, Kind::Malformed);
  EXPECT_TRUE(files_.empty());
  writeCore({CheckedBundle::array({})});
  EXPECT_EQ(onlyProblem().kind, Kind::Malformed);
}

TEST_F(ReadingABundle, NeedsPathsThatTheSystemTakes) {
  const std::string name(256, 'n');
  writeCore({CheckedBundle::file("/opt/" + name, "content")});
  expectMalformed(manifestPath("Core"), "has an entry whose path is longer than the system takes: /opt/" + name);
  EXPECT_TRUE(files_.empty());
  writeCore({CheckedBundle::PropertyLists::directory("/opt/" + name)});
  EXPECT_EQ(onlyProblem().kind, Kind::Malformed);
  writeCore({CheckedBundle::link("/opt/" + name, "target")});
  EXPECT_EQ(onlyProblem().kind, Kind::Malformed);
  writeCore({CheckedBundle::external("/opt/" + name, "/nowhere")});
  EXPECT_TRUE(read().empty()) << "is passed over when its source is absent";
}

TEST_F(ReadingABundle, NeedsLinksWithPathAndTargetAndNoPayloadForThem) {
  writeCore({CheckedBundle::link("/opt/link", "nowhere"), CheckedBundle::PropertyLists::directory("/opt/folder")});
  EXPECT_TRUE(read().empty());
  writeCore({CheckedBundle::link("/opt/link", "")});
  expectMalformed(manifestPath("Core"), "has a link without a target: /opt/link");
  writeCore({CheckedBundle::link("/", "target")});
  expectMalformed(manifestPath("Core"), "has a link without a usable path: /");
}

TEST_F(ReadingABundle, NeedsProgramsThatCanBeRun) {
  const auto program = [](CheckedBundle::Keys keys) {
    keys.emplace_back("ExecuteOnInstall", true);
    return CheckedBundle::array({PropertyList::dictionary(std::move(keys))});
  };
  writeCore({}, program({{"Path", "/opt/run"}, {"ListOfArguments", CheckedBundle::array({"-x"})}}));
  EXPECT_TRUE(read().empty());
  writeCore({}, program({{"Path", "run"}}));
  expectMalformed(manifestPath("Core"), "has a program without an absolute path: run");
  writeCore({}, program({{"Path", "/opt/run"}, {"ListOfArguments", CheckedBundle::array({7})}}));
  expectMalformed(manifestPath("Core"), "has a program whose arguments are no list of texts: /opt/run");
  writeCore({}, program({{"Path", "run"}, {"IsApplication", true}}));
  EXPECT_TRUE(read().empty()) << "nobody runs an application";
  writeCore({}, CheckedBundle::array({PropertyList::dictionary({{"Path", "run"}})}));
  EXPECT_TRUE(read().empty()) << "not run by an install";
  writeCore({}, program({{"Path", "run"}, {"RunOnce", true}}));
  expectMalformed(manifestPath("Core"), "has a program without an absolute path: run");
  bundle_.writeIndex(
      CheckedBundle::indexOfComponents("Guard", {"Core"}).with("ProductRemovals", CheckedBundle::array({"any"})));
  EXPECT_TRUE(read().empty()) << "not run by an update of another product";
}

// --- the payload ---

TEST_F(ReadingABundle, NeedsEveryPayloadFile) {
  std::filesystem::remove(stored_);
  const BundleProblem problem = onlyProblem();
  EXPECT_EQ(problem.kind, Kind::Missing);
  EXPECT_EQ(problem.file, stored_);
  EXPECT_EQ(problem.component, "Core");
  EXPECT_EQ(problem.what, "is missing (it becomes /opt/core)");
}

TEST_F(ReadingABundle, NeedsRegularFilesInThePayloadAndFollowsLinksAsInstallsDo) {
  const std::string moved = bundle_.path("moved");
  std::filesystem::rename(stored_, moved);
  std::filesystem::create_symlink(moved, stored_);
  EXPECT_TRUE(read().empty());
  std::filesystem::remove(stored_);
  ASSERT_EQ(mkfifo(stored_.c_str(), 0600), 0);
  EXPECT_EQ(onlyProblem().kind, Kind::Unreadable) << "a pipe";
  std::filesystem::remove(stored_);
  std::filesystem::create_directory(stored_);
  EXPECT_EQ(onlyProblem().kind, Kind::Unreadable) << "a folder";
  std::filesystem::remove(stored_);
  std::filesystem::create_symlink(stored_, stored_);
  EXPECT_EQ(onlyProblem().kind, Kind::Unreadable) << "a link to itself";
  std::filesystem::remove(stored_);
  std::filesystem::create_symlink("/dev/zero", stored_);
  EXPECT_EQ(onlyProblem().kind, Kind::Unreadable) << "a device";
}

TEST_F(ReadingABundle, NeedsFilesThatFitIntoMemory) {
  if (truncate(stored_.c_str(), off_t{1} << 43U) != 0) {
    GTEST_SKIP() << "this file system holds no files of that size";
  }
  if (foundation::FileBuffer().reserve(std::size_t{1} << 43U)) {
    GTEST_SKIP() << "this system promises any memory";
  }
  const BundleProblem problem = onlyProblem();
  EXPECT_EQ(problem.kind, Kind::Unreadable);
  EXPECT_EQ(problem.what, "is larger than the memory of this machine (it becomes /opt/core)");
  EXPECT_TRUE(files_.empty());
}

TEST_F(ReadingABundle, LetsExternalFilesBeAbsentAndLooksOnlyAtThoseInTheBundle) {
  writeCore({CheckedBundle::external("/opt/one", "../Supplied/one"),
             CheckedBundle::external("/opt/two", "/nowhere/two"),
             CheckedBundle::external("/opt/three", "../../../../beside"),
             CheckedBundle::externalDirectory("/opt/folder", "../Supplied/folder")});
  EXPECT_TRUE(read().empty());
  std::filesystem::create_directories(bundle_.path("Contents/Install/Supplied"));
  const std::string inside = bundle_.path("Contents/Install/Supplied/one");
  std::ofstream(inside) << "content";
  std::filesystem::create_directory(bundle_.path("../beside"));
  EXPECT_TRUE(read().empty());
  EXPECT_TRUE(files_.empty());
  std::filesystem::remove(inside);
  ASSERT_EQ(mkfifo(inside.c_str(), 0600), 0);
  EXPECT_EQ(onlyProblem().file, inside);
  std::filesystem::remove(inside);
  const std::string folder = bundle_.path("Contents/Install/Supplied/folder");
  std::ofstream(folder) << "no folder";
  EXPECT_EQ(onlyProblem().file, folder);
}

TEST_F(ReadingABundle, LeavesOutWhatNewerSystemsDoNotTake) {
  writeCore({CheckedBundle::file("/System/Library/x", "never stored")});
  EXPECT_TRUE(read().empty());
  EXPECT_TRUE(files_.empty());
}

TEST_F(ReadingABundle, FindsAllThatIsWrong) {
  std::filesystem::remove(stored_);
  writePhases({CheckedBundle::localPayload({"Core", "Extras", "More"})});
  const auto problems = read();
  ASSERT_EQ(problems.size(), 3U);
  EXPECT_EQ(problems[0].file, stored_);
  EXPECT_EQ(problems[1].file, manifestPath("Extras"));
  EXPECT_EQ(problems[2].file, manifestPath("More"));
}

}  // namespace
}  // namespace deployer
