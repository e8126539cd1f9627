#include <sys/inotify.h>
#include <sys/resource.h>

#include <filesystem>

#include "tests/unit/InstallationDeployer/install/InstallComponentsTest.h"

namespace {

using tests::CapturedLog;

constexpr int kManyFiles = 500;

/// Names that appear in a folder, in the order of their appearance.
class AppearanceWatch {
 public:
  explicit AppearanceWatch(const std::string& folder) : watch_(inotify_init1(IN_CLOEXEC | IN_NONBLOCK)) {
    EXPECT_GE(inotify_add_watch(watch_, folder.c_str(), IN_CREATE | IN_MOVED_TO), 0);
  }
  ~AppearanceWatch() { close(watch_); }
  AppearanceWatch(const AppearanceWatch&) = delete;
  AppearanceWatch& operator=(const AppearanceWatch&) = delete;

  /// Temporary names, which begin with a dot, are left out.
  std::vector<std::string> names() const {
    std::vector<std::string> found;
    alignas(inotify_event) char events[1 << 16];
    for (ssize_t length = 0; (length = read(watch_, events, sizeof events)) > 0;) {
      for (ssize_t offset = 0; offset < length;) {
        const auto* event = reinterpret_cast<const inotify_event*>(events + offset);
        if (event->len > 0 && event->name[0] != '.') {
          found.emplace_back(event->name);
        }
        offset += static_cast<ssize_t>(sizeof(inotify_event) + event->len);
      }
    }
    return found;
  }

 private:
  int watch_;
};

/// Lowers the number of descriptors of this process for as long as it lives.
class FewDescriptors {
 public:
  explicit FewDescriptors(rlim_t free) {
    getrlimit(RLIMIT_NOFILE, &before_);
    const auto open = std::distance(std::filesystem::directory_iterator("/proc/self/fd"), {});
    const rlimit few{static_cast<rlim_t>(open) + free, before_.rlim_max};
    EXPECT_EQ(setrlimit(RLIMIT_NOFILE, &few), 0);
  }
  ~FewDescriptors() { setrlimit(RLIMIT_NOFILE, &before_); }
  FewDescriptors(const FewDescriptors&) = delete;
  FewDescriptors& operator=(const FewDescriptors&) = delete;

 private:
  rlimit before_{};
};

/// Lists long enough for helpers to prepare their files ahead.
class InstallComponentsAhead : public tests::InstallComponentsTest {
 protected:
  static std::string name(int number) { return "file-" + std::to_string(number); }
  static std::string contentOfFile(int number) { return std::string(static_cast<std::size_t>(number * 37), 'c'); }

  Entries files(int from, int to, const std::string& folder = "") {
    Entries entries;
    entries.reserve(static_cast<std::size_t>(to - from));
    for (int number = from; number < to; ++number) {
      entries.push_back(file(folder + "/" + name(number), contentOfFile(number), attributes(0640, 501, 20)));
    }
    return entries;
  }
  static void append(Entries& entries, Entries more) { entries.insert(entries.end(), more.begin(), more.end()); }
  static std::size_t itemsIn(const std::string& folder) {
    return static_cast<std::size_t>(std::distance(std::filesystem::directory_iterator(folder), {}));
  }
};

TEST_F(InstallComponentsAhead, ManyFilesAreInstalledWithContentAndAttributes) {
  const CapturedLog log;
  EXPECT_TRUE(install(files(0, kManyFiles)));
  for (int number = 0; number < kManyFiles; ++number) {
    const std::string installed = target("/" + name(number));
    EXPECT_EQ(contentOf(installed), contentOfFile(number));
    EXPECT_EQ(attributesOf(installed), "501:20 0640");
  }
  EXPECT_TRUE(log.texts("Error").empty());
  EXPECT_EQ(itemsIn(target()), static_cast<std::size_t>(kManyFiles));
}

TEST_F(InstallComponentsAhead, FilesAppearInTheOrderOfTheManifest) {
  const Entries entries = files(0, kManyFiles);
  describe("Core", entries);
  const AppearanceWatch watch(target());
  const CapturedLog log;
  EXPECT_TRUE(installComponents({"Core"}));
  std::vector<std::string> expected;
  expected.reserve(kManyFiles);
  for (int number = 0; number < kManyFiles; ++number) {
    expected.push_back(name(number));
  }
  EXPECT_EQ(watch.names(), expected);
}

TEST_F(InstallComponentsAhead, NothingAfterAFailingEntryEverShows) {
  Entries entries = files(0, 250);
  entries.push_back(fileWithChecksum("/failing", checksumOf("absent")));
  entries.push_back(directory("/later-directory"));
  append(entries, files(250, kManyFiles));
  append(entries, files(250, kManyFiles, "/later-directory"));
  entries.push_back(link("/later-link", "text"));
  describe("Core", entries);
  const AppearanceWatch watch(target());
  const CapturedLog log;
  EXPECT_FALSE(installComponents({"Core"}));
  EXPECT_EQ(state(), deployer::QVNInstallerStateFailed);
  EXPECT_EQ(log.texts("Error"),
            std::vector<std::string>{"path doesn't exist at " + payload() + "/" + checksumOf("absent")});
  EXPECT_EQ(watch.names().size(), 250U);
  EXPECT_EQ(contentOf(target("/" + name(249))), contentOfFile(249));
  EXPECT_EQ(itemsIn(target()), 250U);
}

TEST_F(InstallComponentsAhead, AChecksumMismatchIsReportedWhenItsTurnComes) {
  Entries entries = files(0, 100);
  const std::string claimed = checksumOf("what was packed");
  writeFile(payload() + "/" + claimed, "what lies there");
  entries.push_back(fileWithChecksum("/new-folder/failing", claimed));
  append(entries, files(100, 200));
  const CapturedLog log;
  EXPECT_FALSE(install(entries));
  EXPECT_EQ(log.texts("Error").size(), 2U);
  EXPECT_TRUE(tests::mentions(log, "Checksum mismatch for component Core."));
  EXPECT_EQ(itemsIn(target()), 100U) << "neither the file nor its folder may show";
}

TEST_F(InstallComponentsAhead, TheFirstOfSeveralFailingEntriesIsTheOneReported) {
  Entries entries = files(0, 40);
  entries.push_back(fileWithChecksum("/first", checksumOf("first absent")));
  entries.push_back(fileWithChecksum("/second", checksumOf("second absent")));
  const CapturedLog log;
  EXPECT_FALSE(install(entries));
  EXPECT_EQ(log.texts("Error"),
            std::vector<std::string>{"path doesn't exist at " + payload() + "/" + checksumOf("first absent")});
}

TEST_F(InstallComponentsAhead, FoldersThatAreMissingWhileTheirFilesArePreparedComeInOrder) {
  Entries entries;
  for (int folder = 0; folder < 40; ++folder) {
    const std::string place = "/folder-" + std::to_string(folder);
    entries.push_back(directory(place, attributes(0711, 502, 80)));
    entries.push_back(directory(place + "/deeper", attributes(0700, 502, 80)));
    append(entries, files(0, 5, place + "/deeper"));
    append(entries, files(0, 2, place + "/described-by-nothing"));
  }
  const CapturedLog log;
  EXPECT_TRUE(install(entries));
  EXPECT_EQ(attributesOf(target("/folder-39")), "502:80 0711");
  EXPECT_EQ(attributesOf(target("/folder-39/deeper")), "502:80 0700");
  EXPECT_EQ(attributesOf(target("/folder-39/described-by-nothing")), "0:80 0755");
  EXPECT_EQ(contentOf(target("/folder-39/deeper/" + name(4))), contentOfFile(4));
}

TEST_F(InstallComponentsAhead, OfTwoEntriesForOnePathTheLaterOneStays) {
  Entries entries = files(0, 20);
  entries.push_back(file("/twice", "first"));
  entries.push_back(file("/twice", "second", attributes(0755)));
  append(entries, files(20, 40));
  const CapturedLog log;
  EXPECT_TRUE(install(entries));
  EXPECT_EQ(contentOf(target("/twice")), "second");
  EXPECT_EQ(attributesOf(target("/twice")), "0:0 0755");
}

TEST_F(InstallComponentsAhead, AnExternalFileMayComeFromAnEarlierEntryOfTheSameRun) {
  Entries entries = files(0, 20);
  entries.push_back(file("/first", "made by this run"));
  entries.push_back(external("/second", target("/first")));
  append(entries, files(20, 40));
  const CapturedLog log;
  EXPECT_TRUE(install(entries));
  EXPECT_EQ(contentOf(target("/second")), "made by this run");
}

TEST_F(InstallComponentsAhead, AnExternalDirectoryThatTakesFoldersAwayDoesNotMisleadLaterFiles) {
  Entries entries = files(0, 20, "/data/inner");
  entries.push_back(externalDirectory("/data", path("nowhere")));
  append(entries, files(20, 40, "/data/inner"));
  const CapturedLog log;
  EXPECT_TRUE(install(entries));
  EXPECT_EQ(itemsIn(target("/data/inner")), 20U);
  EXPECT_EQ(contentOf(target("/data/inner/" + name(39))), contentOfFile(39));
}

TEST_F(InstallComponentsAhead, ADirectoryInTheWayOfAPreparedFileFailsInItsTurn) {
  ASSERT_EQ(mkdir(target("/" + name(30)).c_str(), 0755), 0);
  const CapturedLog log;
  EXPECT_FALSE(install(files(0, 60)));
  const auto errors = log.texts("Error");
  ASSERT_EQ(errors.size(), 1U);
  EXPECT_TRUE(errors[0].starts_with("Error writing: Error Domain=")) << errors[0];
  EXPECT_EQ(itemsIn(target()), 31U);
}

TEST_F(InstallComponentsAhead, AFileThatNobodyCanOwnFailsInItsTurn) {
  Entries entries = files(0, 20);
  entries.push_back(file("/unowned", "content", attributes(0644, -1, 0)));
  append(entries, files(20, 40));
  const CapturedLog log;
  EXPECT_FALSE(install(entries));
  const auto errors = log.texts("Error");
  ASSERT_EQ(errors.size(), 1U);
  EXPECT_TRUE(errors[0].starts_with("Unable to set attributes on file: " + target("/unowned") + "\nError Domain="))
      << errors[0];
  EXPECT_EQ(itemsIn(target()), 20U);
}

TEST_F(InstallComponentsAhead, ADirectoryThatNobodyCanOwnFailsInItsTurn) {
  Entries entries = files(0, 20);
  entries.push_back(directory("/unowned", attributes(0755, -1, 0)));
  append(entries, files(20, 40));
  const CapturedLog log;
  EXPECT_FALSE(install(entries));
  const auto errors = log.texts("Error");
  ASSERT_EQ(errors.size(), 1U);
  EXPECT_TRUE(errors[0].starts_with("Unable to set attributes on directory: " + target("/unowned") + "\nError Domain="))
      << errors[0];
}

TEST_F(InstallComponentsAhead, ModifiableFilesStayUntouchedAmongPreparedOnes) {
  run().configuration().setHasInstallerReceipt(true);
  Entries entries = files(0, 20);
  entries.push_back(file("/settings", "new", joined(attributes(0644), {{"IsModifiableFile", true}})));
  append(entries, files(20, 40));
  writeFile(target("/settings"), "mine");
  const CapturedLog log;
  EXPECT_TRUE(install(entries));
  EXPECT_EQ(contentOf(target("/settings")), "mine");
}

TEST_F(InstallComponentsAhead, AProcessShortOfDescriptorsInstallsAllTheSame) {
  describe("Core", files(0, kManyFiles));
  const CapturedLog log;
  const FewDescriptors few(12);
  EXPECT_TRUE(installComponents({"Core"}));
  EXPECT_EQ(itemsIn(target()), static_cast<std::size_t>(kManyFiles));
}

TEST_F(InstallComponentsAhead, ASecondRunReplacesEverything) {
  const Entries entries = files(0, 100);
  for (int round = 0; round < 2; ++round) {
    const CapturedLog log;
    EXPECT_TRUE(install(entries));
    EXPECT_EQ(itemsIn(target()), 100U);
    writeFile(target("/" + name(50)), "changed by hand", 0600);
  }
  const CapturedLog log;
  EXPECT_TRUE(install(entries));
  EXPECT_EQ(contentOf(target("/" + name(50))), contentOfFile(50));
  EXPECT_EQ(attributesOf(target("/" + name(50))), "501:20 0640");
}

}  // namespace
