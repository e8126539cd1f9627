#include <sched.h>
#include <sys/mount.h>
#include <sys/resource.h>

#include <climits>

#include "general/foundation/files/FileManager.h"
#include "tests/unit/general/foundation/files/FileTest.h"

using namespace foundation;
using namespace std::string_literals;

namespace {

using RemoveItem = tests::FileTest;
using Texts = std::vector<std::string>;

constexpr int kNoMounts = 77;

// Directories in each other, deeper than any path can say; works its way down from the folder.
int makeDeepTree(const std::string& folder, int levels) {
  int current = open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
  for (int level = 0; level < levels; ++level) {
    const std::string name(100, 'd');
    if (mkdirat(current, name.c_str(), 0700) != 0) {
      return -1;
    }
    const int file = openat(current, "file", O_CREAT | O_WRONLY | O_CLOEXEC, 0600);
    const int next = openat(current, name.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    close(file);
    close(current);
    current = next;
  }
  close(current);
  return 0;
}

bool enterMountNamespace() {
  return unshare(CLONE_NEWNS) == 0 && mount(nullptr, "/", nullptr, MS_REC | MS_PRIVATE, nullptr) == 0;
}

}  // namespace

TEST_F(RemoveItem, RemovesAFileALinkAndADirectoryWithItsContent) {
  box_.write("file", "x");
  box_.write("tree/a/b/file", "x");
  box_.write("tree/a/.hidden", "x");
  box_.makeDirectory("tree/empty");
  ASSERT_EQ(mkfifo(path("tree/fifo").c_str(), 0600), 0);
  ASSERT_EQ(symlink("file", path("link").c_str()), 0);
  EXPECT_TRUE(files::removeItem(path("link")));
  EXPECT_EQ(listing(), (Texts{"file", "tree"}));
  EXPECT_TRUE(files::removeItem(path("file")));
  EXPECT_TRUE(files::removeItem(path("tree/")));
  EXPECT_EQ(listing(), Texts{});
}

TEST_F(RemoveItem, FollowsNoLinkInsideATree) {
  box_.write("outside/file", "x");
  box_.makeDirectory("tree");
  ASSERT_EQ(symlink(path("outside").c_str(), path("tree/link").c_str()), 0);
  ASSERT_EQ(symlink("nowhere", path("tree/dangling").c_str()), 0);
  ASSERT_TRUE(files::removeItem(path("tree")));
  EXPECT_EQ(listing("outside"), Texts{"file"});
}

TEST_F(RemoveItem, WhatIsMissingIsNoSuchFile) {
  EXPECT_EQ(files::removeItem(path("missing")).error().code, 4);
  EXPECT_EQ(files::removeItem(path("missing/below")).error().code, 4);
  EXPECT_EQ(files::removeItem("").error().code, 4);
}

TEST_F(RemoveItem, RefusesPathsThatNameNoItem) {
  box_.write("file", "x");
  box_.write("folder/file", "x");
  EXPECT_EQ(files::removeItem(path("file\0x"s)).error().code, 514);
  EXPECT_EQ(files::removeItem(path("folder/.")).error().code, 512);
  EXPECT_EQ(files::removeItem(path("folder/..")).error().code, 512);
  EXPECT_EQ(files::removeItem("///").error().code, 512);
  EXPECT_EQ(files::removeItem(path(std::string(256, 'x'))).error().code, 514);
  EXPECT_EQ(files::removeItem("/" + std::string(PATH_MAX, 'x')).error().code, 514);
  EXPECT_EQ(listing(), (Texts{"file", "folder"}));
  EXPECT_EQ(listing("folder"), Texts{"file"});
}

TEST_F(RemoveItem, RemovesReadOnlyDirectories) {
  box_.write("tree/a/file", "x");
  ASSERT_EQ(chmod(path("tree/a").c_str(), 0), 0);
  EXPECT_TRUE(files::removeItem(path("tree")));
  EXPECT_EQ(listing(), Texts{});
}

TEST_F(RemoveItem, RemovesTreesDeeperThanPathsAndDescriptorsReach) {
  constexpr int kLevels = 300;
  box_.makeDirectory("tree");
  ASSERT_EQ(makeDeepTree(path("tree"), kLevels), 0);
  EXPECT_EQ(tests::exitStatusOf([&] {
              rlimit limit{};
              getrlimit(RLIMIT_NOFILE, &limit);
              limit.rlim_cur = 32;
              return setrlimit(RLIMIT_NOFILE, &limit) == 0 && files::removeItem(path("tree")) ? 0 : 1;
            }),
            0);
  EXPECT_EQ(listing(), Texts{});
}

TEST_F(RemoveItem, RemovesAFolderOfManyFolders) {
  for (int index = 0; index < 100; ++index) {
    box_.write("tree/d" + std::to_string(index) + "/file", "x");
  }
  ASSERT_TRUE(files::removeItem(path("tree")));
  EXPECT_EQ(listing(), Texts{});
}

TEST_F(RemoveItem, EntersNoOtherFileSystemMountedBelow) {
  box_.makeDirectory("tree/mounted");
  const int status = tests::exitStatusOf([&] {
    if (!enterMountNamespace() || mount("tmpfs", path("tree/mounted").c_str(), "tmpfs", 0, nullptr) != 0) {
      return kNoMounts;
    }
    box_.write("tree/mounted/file", "x");
    const Status removed = files::removeItem(path("tree"));
    return !removed && !removed.error().isNoSuchFile() && files::exists(path("tree/mounted/file")) ? 0 : 1;
  });
  if (status == kNoMounts) {
    GTEST_SKIP() << "this machine does not allow mounts";
  }
  EXPECT_EQ(status, 0);
}

TEST_F(RemoveItem, EntersNoFolderOfTheSameFileSystemMountedBelow) {
  box_.makeDirectory("tree/mounted");
  box_.write("kept/file", "x");
  const int status = tests::exitStatusOf([&] {
    if (!enterMountNamespace() ||
        mount(path("kept").c_str(), path("tree/mounted").c_str(), nullptr, MS_BIND, nullptr) != 0) {
      return kNoMounts;
    }
    return !files::removeItem(path("tree")) && !files::removeItem(path("tree/mounted")) ? 0 : 1;
  });
  if (status == kNoMounts) {
    GTEST_SKIP() << "this machine does not allow mounts";
  }
  EXPECT_EQ(status, 0);
  EXPECT_EQ(listing("kept"), Texts{"file"});
}

TEST_F(RemoveItem, AReadOnlyVolumeIsAnErrorOfItsOwn) {
  box_.makeDirectory("volume");
  const int status = tests::exitStatusOf([&] {
    if (!enterMountNamespace() || mount("tmpfs", path("volume").c_str(), "tmpfs", 0, nullptr) != 0) {
      return kNoMounts;
    }
    box_.write("volume/file", "x");
    if (mount(nullptr, path("volume").c_str(), nullptr, MS_REMOUNT | MS_RDONLY, nullptr) != 0) {
      return kNoMounts;
    }
    const bool refused = files::removeItem(path("volume/file")).error().code == 642 &&
                         files::createDirectory(path("volume/d"), true, {}).error().code == 642 &&
                         files::writeAtomically({}, path("volume/new"), {}).error().code == 642;
    return refused ? 0 : 1;
  });
  if (status == kNoMounts) {
    GTEST_SKIP() << "this machine does not allow mounts";
  }
  EXPECT_EQ(status, 0);
}
