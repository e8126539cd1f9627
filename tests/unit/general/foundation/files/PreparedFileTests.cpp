#include <linux/capability.h>
#include <sched.h>
#include <sys/mount.h>
#include <sys/syscall.h>

#include <climits>
#include <thread>

#include "general/foundation/files/PreparedFile.h"
#include "tests/unit/general/foundation/files/FileTest.h"

using namespace foundation;
using namespace std::string_literals;

namespace {

using tests::bytesOf;
using Texts = std::vector<std::string>;

constexpr int kNotPossibleHere = 77;
constexpr FileAttributes kAttributes{.owner = 501, .group = 80, .permissions = 0640};

class PreparedFiles : public tests::FileTest {
 protected:
  [[nodiscard]] static PreparedFile prepared(const std::string& path, std::string_view content,
                                             const FileAttributes& attributes = kAttributes) {
    auto result = PreparedFile::prepare(path, bytesOf(content), attributes);
    EXPECT_TRUE(result) << result.error().description();
    return std::move(result).value();
  }
  [[nodiscard]] static std::string contentOf(const std::string& path) { return files::readText(path).value(); }
};

bool dropCapabilities() {
  __user_cap_header_struct header{.version = _LINUX_CAPABILITY_VERSION_3, .pid = 0};
  __user_cap_data_struct data[2] = {};
  if (syscall(SYS_capget, &header, data) != 0) {
    return false;
  }
  data[0].effective &= ~(1U << CAP_DAC_READ_SEARCH);
  data[0].permitted &= ~(1U << CAP_DAC_READ_SEARCH);
  return syscall(SYS_capset, &header, data) == 0;
}

}  // namespace

TEST_F(PreparedFiles, ShowOnlyOncePublished) {
  PreparedFile file = prepared(path("file"), "content");
  EXPECT_FALSE(files::exists(path("file")));
  ASSERT_TRUE(std::move(file).publish());
  EXPECT_EQ(contentOf(path("file")), "content");
  EXPECT_EQ(listing(), Texts{"file"});
}

TEST_F(PreparedFiles, HaveExactlyTheirAttributesWhateverTheUmask) {
  for (const mode_t mask : {mode_t{0077}, mode_t{0000}, mode_t{0777}}) {
    for (const std::uint32_t mode : {0644U, 0755U, 06755U, 0400U, 0U, 07777U}) {
      const tests::Umask umask(mask);
      ASSERT_TRUE(prepared(path("file"), "x", {.owner = 501, .group = 80, .permissions = mode}).publish());
      EXPECT_EQ(modeOf(path("file")), mode);
      expectOwner(path("file"), 501, 80);
    }
  }
}

TEST_F(PreparedFiles, AbsentAttributesAreTheProcessesOwn) {
  const tests::Umask umask(0077);
  ASSERT_EQ(chown(folder().c_str(), 0, 80), 0);
  ASSERT_EQ(chmod(folder().c_str(), 02775), 0);
  ASSERT_TRUE(prepared(path("file"), "x", {}).publish());
  EXPECT_EQ(modeOf(path("file")), 0644U);
  expectOwner(path("file"), geteuid(), getegid());
}

TEST_F(PreparedFiles, ReplaceAFileInOneStep) {
  box_.write("file", "old");
  ASSERT_EQ(link(path("file").c_str(), path("other name").c_str()), 0);
  ASSERT_TRUE(prepared(path("file"), "new").publish());
  EXPECT_EQ(contentOf(path("file")), "new");
  EXPECT_EQ(contentOf(path("other name")), "old");
  EXPECT_EQ(listing(), (Texts{"file", "other name"}));
}

TEST_F(PreparedFiles, ReplaceALinkAndNotWhatItLeadsTo) {
  box_.write("target", "old");
  ASSERT_EQ(symlink("target", path("link").c_str()), 0);
  ASSERT_EQ(symlink("nowhere", path("dangling").c_str()), 0);
  ASSERT_TRUE(prepared(path("link"), "new").publish());
  ASSERT_TRUE(prepared(path("dangling"), "new").publish());
  EXPECT_EQ(contentOf(path("target")), "old");
  EXPECT_EQ(files::attributesOfItem(path("link"))->type, FileType::Regular);
  EXPECT_EQ(listing(), (Texts{"dangling", "link", "target"}));
}

TEST_F(PreparedFiles, ADirectoryUnderTheNameIsAnErrorAndStays) {
  box_.makeDirectory("empty");
  box_.write("full/file", "x");
  EXPECT_EQ(prepared(path("empty"), "x").publish().error().code, 512);
  EXPECT_EQ(prepared(path("full"), "x").publish().error().code, 512);
  EXPECT_EQ(listing(), (Texts{"empty", "full"}));
  EXPECT_TRUE(files::attributesOfItem(path("empty"))->isDirectory());
}

TEST_F(PreparedFiles, DroppedOnesLeaveNothing) {
  { const PreparedFile file = prepared(path("file"), "x"); }
  PreparedFile first = prepared(path("one"), "1");
  first = prepared(path("two"), "2");
  ASSERT_TRUE(std::move(first).publish());
  EXPECT_EQ(listing(), Texts{"two"});
}

TEST_F(PreparedFiles, CanBeReadyBeforeTheirFolderExists) {
  PreparedFile file = prepared(path("a/b/c/file"), "x");
  EXPECT_EQ(listing(), Texts{});
  ASSERT_TRUE(files::createDirectory(path("a/b/c"), true, {}));
  ASSERT_TRUE(std::move(file).publish());
  EXPECT_EQ(contentOf(path("a/b/c/file")), "x");
}

TEST_F(PreparedFiles, WithoutTheirFolderTheyCannotBePublished) {
  EXPECT_EQ(prepared(path("a/file"), "x").publish().error().code, 4);
  EXPECT_EQ(listing(), Texts{});
}

TEST_F(PreparedFiles, PathsThatCannotBeAreErrors) {
  box_.write("file", "x");
  const auto codeOf = [&](const std::string& path) {
    auto result = PreparedFile::prepare(path, bytesOf("x"), kAttributes);
    return result ? std::move(result).value().publish().error().code : result.error().code;
  };
  EXPECT_EQ(codeOf(""), 4);
  EXPECT_EQ(codeOf(path("a\0b"s)), 514);
  EXPECT_EQ(codeOf(path(std::string(256, 'x'))), 514);
  EXPECT_EQ(codeOf("/" + std::string(PATH_MAX, 'x')), 514);
  EXPECT_EQ(codeOf(path("file/below")), 512);
  EXPECT_EQ(listing(), Texts{"file"});
}

TEST_F(PreparedFiles, TakeTheLongestNameAndRelativePaths) {
  ASSERT_TRUE(prepared(path(std::string(255, 'x')), "x").publish());
  EXPECT_EQ(listing(), Texts{std::string(255, 'x')});
  EXPECT_EQ(tests::exitStatusOf([&] {
              auto file = chdir(folder().c_str()) == 0 ? PreparedFile::prepare("file", bytesOf("x"), kAttributes)
                                                       : Result<PreparedFile>(Error());
              return file && std::move(file).value().publish() ? 0 : 1;
            }),
            0);
  EXPECT_EQ(contentOf(path("file")), "x");
}

TEST_F(PreparedFiles, AnOwnerThatMeansNobodyAtAllIsRefused) {
  const auto result =
      PreparedFile::prepare(path("file"), bytesOf("x"), {.owner = 0xffffffff, .group = 0, .permissions = 0});
  ASSERT_FALSE(result);
  EXPECT_EQ(result.error().code, 512);
  EXPECT_EQ(listing(), Texts{});
}

TEST_F(PreparedFiles, SeveralThreadsPrepareAtATime) {
  constexpr int kFiles = 200;
  constexpr int kThreads = 4;
  std::vector<std::thread> threads;
  threads.reserve(kThreads);
  for (int thread = 0; thread < kThreads; ++thread) {
    threads.emplace_back([&, thread] {
      for (int index = thread; index < kFiles; index += kThreads) {
        // Every name is taken twice, so that both ways of publishing are used.
        EXPECT_TRUE(prepared(path("f" + std::to_string(index / 2)), std::string(3000, 'x')).publish());
      }
    });
  }
  for (std::thread& thread : threads) {
    thread.join();
  }
  EXPECT_EQ(listing().size(), kFiles / 2U);
}

TEST_F(PreparedFiles, AFullVolumeIsAnErrorOfItsOwnAndLeavesNothing) {
  box_.makeDirectory("volume");
  const int status = tests::exitStatusOf([&] {
    if (unshare(CLONE_NEWNS) != 0 || mount(nullptr, "/", nullptr, MS_REC | MS_PRIVATE, nullptr) != 0 ||
        mount("tmpfs", path("volume").c_str(), "tmpfs", 0, "size=64k") != 0) {
      return kNotPossibleHere;
    }
    const std::string content(1U << 20U, 'x');
    const auto written = files::writeAtomically(bytesOf(content), path("volume/file"), kAttributes);
    return !written && written.error().code == 640 && listing("volume").empty() ? 0 : 1;
  });
  if (status == kNotPossibleHere) {
    GTEST_SKIP() << "this machine does not allow mounts";
  }
  EXPECT_EQ(status, 0);
}

TEST_F(PreparedFiles, AFolderOnAnotherVolumeIsToldByItsNumber) {
  box_.makeDirectory("volume");
  const int status = tests::exitStatusOf([&] {
    PreparedFile file = prepared(path("volume/sub/file"), "x");
    if (unshare(CLONE_NEWNS) != 0 || mount(nullptr, "/", nullptr, MS_REC | MS_PRIVATE, nullptr) != 0 ||
        mount("tmpfs", path("volume").c_str(), "tmpfs", 0, nullptr) != 0 ||
        mkdir(path("volume/sub").c_str(), 0755) != 0) {
      return kNotPossibleHere;
    }
    const Status published = std::move(file).publish();
    return !published && published.error().code == 512 && published.error().underlyingErrno == EXDEV ? 0 : 1;
  });
  if (status == kNotPossibleHere) {
    GTEST_SKIP() << "this machine does not allow mounts";
  }
  EXPECT_EQ(status, 0);
}

// A root without /proc and without the capability that naming by descriptor takes, as in a plain container.
TEST_F(PreparedFiles, ArePublishedWithTheirAttributesWhereUnnamedFilesCannotBeNamed) {
  const int status = tests::exitStatusOf([&] {
    if (chdir(folder().c_str()) != 0) {
      return kNotPossibleHere;
    }
    PreparedFile unnamed = prepared("unnamed", "first", {.owner = 501, .group = 80, .permissions = 04755});
    if (!dropCapabilities() || chroot(".") != 0) {
      return kNotPossibleHere;
    }
    if (!std::move(unnamed).publish()) {
      return 1;
    }
    PreparedFile named = prepared("/named", "second");
    const PreparedFile dropped = prepared("/dropped", "third");
    if (!std::move(named).publish()) {
      return 2;
    }
    return prepared("/named", "replaced").publish() ? 0 : 3;
  });
  if (status == kNotPossibleHere) {
    GTEST_SKIP() << "this machine does not allow a root of one's own";
  }
  EXPECT_EQ(status, 0);
  EXPECT_EQ(contentOf(path("unnamed")), "first");
  EXPECT_EQ(modeOf(path("unnamed")), 04755U);
  expectOwner(path("unnamed"), 501, 80);
  EXPECT_EQ(contentOf(path("named")), "replaced");
  EXPECT_EQ(modeOf(path("named")), 0640U);
  EXPECT_EQ(listing(), (Texts{"named", "unnamed"}));
}

TEST_F(PreparedFiles, WriteAtomicallyReplacesWhatIsThere) {
  box_.write("file", "old");
  ASSERT_TRUE(files::writeAtomically(bytesOf("new"), path("file"), kAttributes));
  EXPECT_EQ(contentOf(path("file")), "new");
  expectOwner(path("file"), 501, 80);
  EXPECT_EQ(files::writeAtomically(bytesOf("x"), path("missing/file"), kAttributes).error().code, 4);
  EXPECT_EQ(listing(), Texts{"file"});
}
