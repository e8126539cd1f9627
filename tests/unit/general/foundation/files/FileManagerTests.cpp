#include <sys/socket.h>
#include <sys/sysmacros.h>
#include <sys/un.h>

#include <climits>
#include <thread>

#include "general/foundation/files/FileManager.h"
#include "tests/unit/general/foundation/files/FileTest.h"

using namespace foundation;
using namespace std::string_literals;

namespace {

using FileManager = tests::FileTest;
using Texts = std::vector<std::string>;

constexpr FileAttributes kFolderAttributes{.owner = 501, .group = 80, .permissions = 0755};

// A path whose components are fine but which is longer than the system takes.
std::string tooLongPath() {
  std::string path;
  while (path.size() <= PATH_MAX) {
    path += "/" + std::string(200, 'x');
  }
  return path;
}

}  // namespace

TEST_F(FileManager, ExistsFollowsLinks) {
  box_.write("file", "x");
  ASSERT_EQ(symlink("file", path("link").c_str()), 0);
  ASSERT_EQ(symlink("nowhere", path("dangling").c_str()), 0);
  ASSERT_EQ(symlink("loop", path("loop").c_str()), 0);
  EXPECT_TRUE(files::exists(path("file")));
  EXPECT_TRUE(files::exists(path("link")));
  EXPECT_TRUE(files::exists(folder()));
  EXPECT_FALSE(files::exists(path("dangling")));
  EXPECT_FALSE(files::exists(path("loop")));
  EXPECT_FALSE(files::exists(path("file\0x"s)));
  EXPECT_FALSE(files::exists(""));
  EXPECT_FALSE(files::exists(tooLongPath()));
}

TEST_F(FileManager, PresenceTellsWhatIsThereFromWhatIsNot) {
  box_.write("file", "x");
  ASSERT_EQ(symlink("file", path("link").c_str()), 0);
  ASSERT_EQ(symlink("nowhere", path("dangling").c_str()), 0);
  ASSERT_EQ(symlink("loop", path("loop").c_str()), 0);
  for (const std::string& there : {path("file"), path("link"), folder()}) {
    EXPECT_TRUE(files::presence(there).value()) << there;
  }
  for (const std::string& nothing :
       {path("missing"), path("file/below"), path("dangling"), path("loop"), path("file\0x"s), ""s, tooLongPath()}) {
    EXPECT_FALSE(files::presence(nothing).value()) << nothing;
  }
}

TEST_F(FileManager, WhatCannotBeLookedAtIsNeitherPresentNorMissing) {
  box_.write("closed/file", "x");
  ASSERT_EQ(chmod(folder().c_str(), 0755), 0);
  ASSERT_EQ(chmod(path("closed").c_str(), 0700), 0);
  ASSERT_EQ(seteuid(65534), 0);
  const auto isThere = files::presence(path("closed/file"));
  ASSERT_EQ(seteuid(0), 0);
  ASSERT_FALSE(isThere.ok());
  EXPECT_EQ(isThere.error().code, kReadNoPermission);
}

TEST_F(FileManager, AttributesDescribeALinkItself) {
  box_.write("file", "12345");
  ASSERT_EQ(symlink("file", path("link").c_str()), 0);
  ASSERT_EQ(lchown(path("link").c_str(), 501, 20), 0);
  const auto link = files::attributesOfItem(path("link")).value();
  EXPECT_TRUE(link.isSymbolicLink());
  EXPECT_EQ(link.owner, 501U);
  EXPECT_EQ(link.group, 20U);
  EXPECT_EQ(files::attributesOfTarget(path("link"))->type, FileType::Regular);
  const auto file = files::attributesOfItem(path("file")).value();
  EXPECT_EQ(file.size, 5U);
  EXPECT_EQ(file.inode, statusOf(path("file")).st_ino);
}

TEST_F(FileManager, ATrailingSlashDoesNotLeadThroughALink) {
  box_.makeDirectory("folder");
  ASSERT_EQ(symlink("folder", path("link").c_str()), 0);
  EXPECT_TRUE(files::attributesOfItem(path("link/"))->isSymbolicLink());
  ASSERT_TRUE(files::removeItem(path("link/")));
  EXPECT_EQ(listing(), Texts{"folder"});
}

TEST_F(FileManager, AttributesKnowEveryType) {
  ASSERT_EQ(mkfifo(path("fifo").c_str(), 0600), 0);
  const int socketDescriptor = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
  sockaddr_un address{};
  address.sun_family = AF_UNIX;
  path("socket").copy(address.sun_path, sizeof address.sun_path - 1);
  ASSERT_EQ(bind(socketDescriptor, reinterpret_cast<const sockaddr*>(&address), sizeof address), 0);
  close(socketDescriptor);
  EXPECT_EQ(files::attributesOfItem(path("fifo"))->type, FileType::Fifo);
  EXPECT_EQ(files::attributesOfItem(path("socket"))->type, FileType::Socket);
  EXPECT_EQ(files::attributesOfItem(folder())->type, FileType::Directory);
  EXPECT_EQ(files::attributesOfItem("/dev/null")->type, FileType::CharacterSpecial);
}

TEST_F(FileManager, MissingAndImpossiblePathsAreErrorsOfReading) {
  EXPECT_EQ(files::attributesOfItem(path("missing")).error().code, 260);
  EXPECT_EQ(files::attributesOfItem("").error().code, 260);
  EXPECT_EQ(files::attributesOfItem(path("a\0b"s)).error().code, 258);
  EXPECT_EQ(files::attributesOfItem(path(std::string(256, 'x'))).error().code, 258);
  EXPECT_EQ(files::attributesOfItem(tooLongPath()).error().code, 258);
  EXPECT_EQ(files::contentsOfDirectory(path("missing")).error().code, 260);
  EXPECT_EQ(files::contentsOfDirectory(box_.write("file", "x")).error().code, 256);
  EXPECT_EQ(files::attributesOfItem(path("file/below")).error().code, 256);
  EXPECT_EQ(files::destinationOfSymbolicLink(path("missing")).error().code, 260);
  EXPECT_EQ(files::destinationOfSymbolicLink(path("file")).error().code, 256);
}

TEST_F(FileManager, ListsADirectorySortedByBytes) {
  for (const char* name : {"b", "a", "B", ".hidden", "\xc3\xa4", "a.b"}) {
    box_.write(name, "");
  }
  EXPECT_EQ(listing(), (Texts{".hidden", "B", "a", "a.b", "b", "\xc3\xa4"}));
}

TEST_F(FileManager, ListingAFifoIsAnErrorAtOnce) {
  ASSERT_EQ(mkfifo(path("fifo").c_str(), 0600), 0);
  EXPECT_EQ(files::contentsOfDirectory(path("fifo")).error().code, 256);
}

TEST_F(FileManager, ReadsTheTextOfALink) {
  const std::string target = "../" + std::string(3000, 'x');
  ASSERT_EQ(symlink(target.c_str(), path("link").c_str()), 0);
  EXPECT_EQ(files::destinationOfSymbolicLink(path("link")).value(), target);
}

TEST_F(FileManager, KnowsTheCurrentDirectory) {
  const auto directory = files::currentDirectory();
  ASSERT_TRUE(directory);
  EXPECT_EQ(files::attributesOfItem(*directory)->inode, files::attributesOfItem(".")->inode);
}

TEST_F(FileManager, KnowsACurrentDirectoryDeeperThanAPathMayBe) {
  EXPECT_EQ(tests::exitStatusOf([&] {
              const std::string name(200, 'd');
              std::size_t length = folder().size();
              if (chdir(folder().c_str()) != 0) {
                return 1;
              }
              for (int level = 0; level < 30; ++level) {
                if (mkdir(name.c_str(), 0700) != 0 || chdir(name.c_str()) != 0) {
                  return 2;
                }
                length += name.size() + 1;
              }
              const auto directory = files::currentDirectory();
              return directory && directory->size() == length ? 0 : 3;
            }),
            0);
  EXPECT_TRUE(files::removeItem(path(std::string(200, 'd'))));
}

TEST_F(FileManager, CreatesADirectoryWithItsAttributesWhateverTheUmask) {
  for (const mode_t mask : {mode_t{0077}, mode_t{0000}, mode_t{0777}}) {
    const tests::Umask umask(mask);
    const std::string directory = path("d" + std::to_string(mask));
    ASSERT_TRUE(files::createDirectory(directory, false, {.owner = 501, .group = 80, .permissions = 02775}));
    EXPECT_EQ(modeOf(directory), 02775U);
    expectOwner(directory, 501, 80);
  }
}

TEST_F(FileManager, AbsentDirectoryAttributesAreTheProcessesOwn) {
  const tests::Umask umask(0077);
  ASSERT_TRUE(files::createDirectory(path("d"), false, {}));
  EXPECT_EQ(modeOf(path("d")), 0755U);
  expectOwner(path("d"), geteuid(), getegid());
}

TEST_F(FileManager, CreatesMissingParentsWithTheSameAttributes) {
  ASSERT_TRUE(files::createDirectory(path("a/b/c/"), true, kFolderAttributes));
  for (const char* name : {"a", "a/b", "a/b/c"}) {
    EXPECT_EQ(modeOf(path(name)), 0755U);
    expectOwner(path(name), 501, 80);
  }
  EXPECT_EQ(listing(), Texts{"a"});
  EXPECT_EQ(listing("a"), Texts{"b"});
}

TEST_F(FileManager, AnExistingDirectoryIsSuccessWithParentsAndStaysAsItIs) {
  ASSERT_EQ(mkdir(path("d").c_str(), 0700), 0);
  ASSERT_EQ(symlink("d", path("link").c_str()), 0);
  EXPECT_TRUE(files::createDirectory(path("d"), true, kFolderAttributes));
  EXPECT_TRUE(files::createDirectory(path("link"), true, kFolderAttributes));
  EXPECT_EQ(modeOf(path("d")), 0700U);
  expectOwner(path("d"), 0, 0);
  EXPECT_EQ(files::createDirectory(path("d"), false, kFolderAttributes).error().code, 516);
}

TEST_F(FileManager, WithoutParentsAMissingParentIsAnError) {
  EXPECT_EQ(files::createDirectory(path("a/b"), false, kFolderAttributes).error().code, 4);
  EXPECT_EQ(files::createDirectory("", true, kFolderAttributes).error().code, 4);
  EXPECT_EQ(listing(), Texts{});
}

TEST_F(FileManager, AnythingElseUnderTheNameOfADirectoryIsAnError) {
  box_.write("file", "x");
  ASSERT_EQ(symlink("nowhere", path("dangling").c_str()), 0);
  EXPECT_EQ(files::createDirectory(path("file"), true, kFolderAttributes).error().code, 516);
  EXPECT_EQ(files::createDirectory(path("dangling"), true, kFolderAttributes).error().code, 516);
  EXPECT_EQ(files::createDirectory(path("file/below"), true, kFolderAttributes).error().code, 512);
  EXPECT_EQ(listing(), (Texts{"dangling", "file"}));
}

TEST_F(FileManager, NamesOfDirectoriesHaveTheSystemsLimits) {
  EXPECT_TRUE(files::createDirectory(path(std::string(255, 'x')), true, kFolderAttributes));
  EXPECT_EQ(files::createDirectory(path(std::string(256, 'x')), true, kFolderAttributes).error().code, 514);
  EXPECT_EQ(files::createDirectory(folder() + tooLongPath(), true, kFolderAttributes).error().code, 514);
  EXPECT_EQ(files::createDirectory(path("a\0b"s), true, kFolderAttributes).error().code, 514);
  EXPECT_EQ(listing(), Texts{std::string(255, 'x')});
}

TEST_F(FileManager, DotsInAPathAreServedAsTheSystemDoes) {
  ASSERT_TRUE(files::createDirectory(path("a/./b/../c/."), true, kFolderAttributes));
  EXPECT_EQ(listing("a"), (Texts{"b", "c"}));
}

TEST_F(FileManager, AnOwnerThatMeansNobodyAtAllIsRefused) {
  const FileAttributes nobody{.owner = 0xffffffff, .group = 0, .permissions = 0755};
  box_.write("file", "x");
  EXPECT_EQ(files::createDirectory(path("d"), true, nobody).error().code, 512);
  EXPECT_EQ(files::setAttributes(nobody, path("file")).error().code, 512);
  EXPECT_EQ(files::createSymbolicLink(path("l"), "x", nobody).error().code, 512);
  EXPECT_EQ(listing(), Texts{"file"});
}

TEST_F(FileManager, TwoThreadsThatCreateTheSameDirectoriesBothSucceed) {
  for (int round = 0; round < 50; ++round) {
    const std::string deep = path("r" + std::to_string(round) + "/a/b/c");
    bool other = false;
    std::thread racer([&] { other = files::createDirectory(deep, true, kFolderAttributes).ok(); });
    EXPECT_TRUE(files::createDirectory(deep, true, kFolderAttributes));
    racer.join();
    EXPECT_TRUE(other);
    EXPECT_EQ(listing("r" + std::to_string(round)), Texts{"a"});
  }
}

TEST_F(FileManager, CreatesALinkWithItsOwner) {
  ASSERT_TRUE(
      files::createSymbolicLink(path("link"), "../some where", {.owner = 501, .group = 80, .permissions = 0644}));
  EXPECT_EQ(files::destinationOfSymbolicLink(path("link")).value(), "../some where");
  expectOwner(path("link"), 501, 80);
  EXPECT_EQ(listing(), Texts{"link"});
}

TEST_F(FileManager, ALinkReplacesNothing) {
  box_.write("file", "x");
  ASSERT_EQ(symlink("nowhere", path("dangling").c_str()), 0);
  box_.makeDirectory("folder");
  for (const char* name : {"file", "dangling", "folder"}) {
    EXPECT_EQ(files::createSymbolicLink(path(name), "t", {}).error().code, 516) << name;
  }
  EXPECT_EQ(files::destinationOfSymbolicLink(path("dangling")).value(), "nowhere");
  EXPECT_EQ(listing(), (Texts{"dangling", "file", "folder"}));
}

TEST_F(FileManager, LinksThatCannotBeAreErrors) {
  EXPECT_EQ(files::createSymbolicLink(path("a/l"), "t", {}).error().code, 4);
  EXPECT_EQ(files::createSymbolicLink(path("l"), "", {}).error().code, 4);
  EXPECT_EQ(files::createSymbolicLink(path("l"), "t\0u"s, {}).error().code, 514);
  EXPECT_EQ(files::createSymbolicLink(path("l\0m"s), "t", {}).error().code, 514);
  EXPECT_EQ(files::createSymbolicLink(path("l"), std::string(PATH_MAX + 1, 't'), {}).error().code, 514);
  EXPECT_EQ(files::createSymbolicLink(path(std::string(256, 'l')), "t", {}).error().code, 514);
  EXPECT_EQ(listing(), Texts{});
}

TEST_F(FileManager, ItemsChangePlacesInOneStepOrStay) {
  box_.write("one/file", "1");
  box_.write("other", "2");
  ASSERT_TRUE(files::exchangeItems(path("one/"), path("other")));
  EXPECT_EQ(files::readText(path("one")).value(), "2");
  EXPECT_EQ(files::readText(path("other/file")).value(), "1");
  EXPECT_EQ(files::exchangeItems(path("one"), path("missing")).error().code, 4);
  EXPECT_EQ(files::exchangeItems(path("one"), path("x\0y"s)).error().code, 514);
  EXPECT_EQ(files::readText(path("one")).value(), "2");
}

TEST_F(FileManager, MovesAnItemButReplacesNothing) {
  box_.write("from/file", "x");
  box_.makeDirectory("taken");
  EXPECT_EQ(files::moveItem(path("from"), path("taken")).error().code, 516);
  EXPECT_EQ(files::moveItem(path("from"), path("taken")).error().path, path("taken"));
  ASSERT_TRUE(files::moveItem(path("from"), path("to")));
  EXPECT_EQ(listing(), (Texts{"taken", "to"}));
  EXPECT_EQ(files::moveItem(path("missing"), path("other")).error().code, 4);
  EXPECT_EQ(files::moveItem(path("to"), path("no/folder")).error().code, 4);
  EXPECT_EQ(files::moveItem(path("to"), path("to/below")).error().code, 512);
  EXPECT_EQ(files::moveItem(path("to"), path("x\0y"s)).error().code, 514);
}

TEST_F(FileManager, MovesALinkItself) {
  ASSERT_EQ(symlink("nowhere", path("link").c_str()), 0);
  ASSERT_TRUE(files::moveItem(path("link"), path("moved")));
  EXPECT_EQ(files::destinationOfSymbolicLink(path("moved")).value(), "nowhere");
}

TEST_F(FileManager, SetIdBitsSurviveTheChangeOfOwner) {
  box_.write("file", "x");
  ASSERT_TRUE(files::setAttributes({.owner = 501, .group = 80, .permissions = 06755}, path("file")));
  EXPECT_EQ(modeOf(path("file")), 06755U);
  expectOwner(path("file"), 501, 80);
}

TEST_F(FileManager, AbsentAttributesAreLeftAsTheyAre) {
  box_.write("file", "x");
  ASSERT_EQ(chmod(path("file").c_str(), 04755), 0);
  ASSERT_TRUE(files::setAttributes({.owner = std::nullopt, .group = 20, .permissions = std::nullopt}, path("file")));
  EXPECT_EQ(modeOf(path("file")), 04755U);
  expectOwner(path("file"), 0, 20);
  ASSERT_TRUE(files::setAttributes({.owner = std::nullopt, .group = std::nullopt, .permissions = 0600}, path("file")));
  expectOwner(path("file"), 0, 20);
  EXPECT_EQ(modeOf(path("file")), 0600U);
  ASSERT_TRUE(files::setAttributes({}, path("file")));
  EXPECT_EQ(modeOf(path("file")), 0600U);
}

TEST_F(FileManager, SettingAttributesNeverFollowsALinkOfSomebodyElse) {
  box_.makeDirectory("folder");
  ASSERT_EQ(symlink("folder", path("link").c_str()), 0);
  ASSERT_EQ(lchown(path("link").c_str(), 501, 20), 0);
  const FileAttributes attributes{.owner = 501, .group = 20, .permissions = 0700};
  EXPECT_EQ(files::setAttributes(attributes, path("link")).error().code, 513);
  EXPECT_EQ(files::attributesOfItem(path("folder"))->owner, geteuid());
  ASSERT_EQ(lchown(path("link").c_str(), geteuid(), 0), 0);
  EXPECT_TRUE(files::setAttributes(attributes, path("link")));
  EXPECT_EQ(files::attributesOfItem(path("folder"))->owner, 501U);
}

TEST_F(FileManager, RemovingWhatIsNotThereIsSuccessWhereAskedFor) {
  EXPECT_FALSE(files::removeItem(path("missing")));
  EXPECT_TRUE(files::removeItemIfPresent(path("missing")));
  box_.write("file", "x");
  EXPECT_TRUE(files::removeItemIfPresent(path("file")));
  EXPECT_FALSE(files::exists(path("file")));
  EXPECT_FALSE(files::removeItemIfPresent(std::string("nul\0", 4)));
}

TEST_F(FileManager, SettingAttributesFollowsLinksAndNeverWaits) {
  box_.write("file", "x");
  ASSERT_EQ(symlink("file", path("link").c_str()), 0);
  ASSERT_EQ(symlink("loop", path("loop").c_str()), 0);
  ASSERT_EQ(mkfifo(path("fifo").c_str(), 0600), 0);
  const FileAttributes attributes{.owner = 501, .group = 80, .permissions = 0640};
  ASSERT_TRUE(files::setAttributes(attributes, path("link")));
  ASSERT_TRUE(files::setAttributes(attributes, path("fifo")));
  expectOwner(path("file"), 501, 80);
  expectOwner(path("link"), 0, 0);
  EXPECT_EQ(modeOf(path("fifo")), 0640U);
  EXPECT_EQ(files::setAttributes(attributes, path("missing")).error().code, 4);
  EXPECT_EQ(files::setAttributes(attributes, path("loop")).error().code, 512);
}

TEST_F(FileManager, SetsTheDateOfModification) {
  box_.write("file", "x");
  for (const std::int64_t date : {std::int64_t{1'000'000'000'123'456'789}, std::int64_t{-1'500'000'000}}) {
    FileAttributes attributes;
    attributes.modificationNanoseconds = date;
    ASSERT_TRUE(files::setAttributes(attributes, path("file")));
    EXPECT_EQ(files::attributesOfItem(path("file"))->modificationNanoseconds, date);
  }
}

TEST_F(FileManager, SetsTheOwnerOfALinkItself) {
  box_.write("file", "x");
  ASSERT_EQ(symlink("file", path("link").c_str()), 0);
  ASSERT_TRUE(files::setLinkAttributes({.owner = 501, .group = 80, .permissions = 0644}, path("link")));
  expectOwner(path("link"), 501, 80);
  expectOwner(path("file"), 0, 0);
  EXPECT_EQ(files::setLinkAttributes({.owner = 501, .group = 80, .permissions = {}}, path("no")).error().code, 4);
}

TEST_F(FileManager, KnowsTheSizeOfAFileSystem) {
  const auto attributes = files::attributesOfFileSystem("/");
  ASSERT_TRUE(attributes);
  EXPECT_GT(attributes->totalBytes, 0U);
  EXPECT_LE(attributes->freeBytes, attributes->totalBytes);
  EXPECT_EQ(files::attributesOfFileSystem(path("missing")).error().code, 260);
}

TEST_F(FileManager, FlushesTheFileSystemOfAPath) {
  EXPECT_TRUE(files::flushFileSystem(folder()));
  EXPECT_TRUE(files::flushFileSystem(box_.write("file", "x")));
  EXPECT_EQ(files::flushFileSystem(path("missing")).error().code, 4);
}
