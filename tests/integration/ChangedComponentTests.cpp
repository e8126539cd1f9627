#include <fcntl.h>
#include <sys/stat.h>

#include <cerrno>
#include <filesystem>
#include <functional>
#include <map>
#include <string>
#include <system_error>
#include <vector>

#include "tests/integration/EngineInRoot.h"

namespace tests {
namespace {

bool areEqual(const timespec& one, const timespec& other) {
  return one.tv_sec == other.tv_sec && one.tv_nsec == other.tv_nsec;
}

/// What shows on an item that something was done to it.
struct Trace {
  ino_t inode = 0;
  timespec changed{};
  timespec written{};
  timespec read{};

  friend bool operator==(const Trace& one, const Trace& other) {
    return one.inode == other.inode && areEqual(one.changed, other.changed) && areEqual(one.written, other.written) &&
           areEqual(one.read, other.read);
  }
};

/// By path on the host.
using Traces = std::map<std::string, Trace>;

/// What is there in one of them only, or has another trace.
std::vector<std::string> difference(const Traces& some, const Traces& others) {
  std::vector<std::string> paths;
  for (const auto& [path, trace] : some) {
    if (const auto other = others.find(path); other == others.end() || other->second != trace) {
      paths.push_back(path);
    }
  }
  for (const auto& [path, trace] : others) {
    if (!some.contains(path)) {
      paths.push_back(path);
    }
  }
  return paths;
}

/// A product of many components, each with a folder of its own, in which the real engine replaces one.
class OneOfManyComponents : public EngineInRoot {
 protected:
  static constexpr int kComponents = 500;
  /// The installed folder, its three items, the payload's folder and its two files.
  static constexpr std::size_t kItemsOfAComponent = 7;
  static constexpr const char* kChanged = "Component-250";
  static constexpr const char* kInstalled = "/opt/product";

  [[nodiscard]] bool needsProc() const override { return true; }

  void prepare() override {
    root().makeDirectory("/opt");
    root().makeDirectory("/var/run");
    makeProduct(bundle(), "1.0");
    deliverBundle();
    const auto outcome = install();
    ASSERT_EQ(outcome.exitCode, 0) << outcome.description();
  }

  static std::string folderOf(const std::string& component) { return std::string(kInstalled) + "/" + component; }

  void deliverBundleWithOneChange() {
    BundleMaker made(CORVANE_ENGINE);
    makeProduct(made, "1.1");
    changedPayload_ = inBundle(made.payloadPath(kChanged, folderOf(kChanged) + "/data").substr(made.path().size() + 1));
    static_cast<void>(root().run({"/bin/rm", "-rf", kBundle}));
    root().copyIn(made.path(), kBundle);
  }
  /// What the changed component's data is installed from.
  const std::string& changedPayload() const { return changedPayload_; }

  /// Makes every file seem to have been read long before it was written. File systems then note the next time it is
  /// read, also those that leave out what they need not note.
  void forgetWhatWasRead() {
    forEachItem([](const std::string& path) {
      const timespec times[] = {{1, 0}, {0, UTIME_OMIT}};
      require(utimensat(AT_FDCWD, path.c_str(), times, AT_SYMLINK_NOFOLLOW) == 0, path);
    });
  }

  /// Of what is installed and of what it is installed from.
  Traces traces() {
    Traces found;
    forEachItem([&](const std::string& path) {
      struct stat item {};
      require(lstat(path.c_str(), &item) == 0, path);
      // To list a folder is not to read a file, so that does not count.
      const timespec read = S_ISDIR(item.st_mode) ? timespec{} : item.st_atim;
      found[path] = {item.st_ino, item.st_ctim, item.st_mtim, read};
    });
    return found;
  }
  static Traces ofOthers(Traces all) {
    std::erase_if(all, [](const auto& item) { return belongsTo(item.first, kChanged); });
    return all;
  }

 private:
  static void makeProduct(BundleMaker& made, const std::string& versionOfTheChanged) {
    for (int number = 0; number < kComponents; ++number) {
      const std::string name = "Component-" + std::to_string(number);
      makeComponent(made, name, name == kChanged ? versionOfTheChanged : "1.0");
    }
    made.setOptions(dictionary({{"ReceiptHasPayloadContents", false}}));
  }
  static void makeComponent(BundleMaker& made, const std::string& name, const std::string& version) {
    const std::string folder = folderOf(name);
    made.stageFile(name, folder + "/data", "data of " + name + " " + version);
    made.stageFile(name, folder + "/run", "program of " + name, 0755);
    made.stageLink(name, folder + "/current", "data");
    made.addComponent(name, version, kProduct);
  }

  static bool belongsTo(const std::string& path, const std::string& component) {
    return (path + "/").find("/" + component + "/") != std::string::npos;
  }

  /// Everything below the folders of the components, these included.
  void forEachItem(const std::function<void(const std::string&)>& visit) {
    for (const std::string& top : {root().path(kInstalled), root().path(inBundle("Contents/Install/Root"))}) {
      for (const auto& item : std::filesystem::recursive_directory_iterator(top)) {
        visit(item.path());
      }
    }
  }

  static void require(bool success, const std::string& path) {
    if (!success) {
      throw std::system_error(errno, std::generic_category(), path);
    }
  }

  std::string changedPayload_;
};

TEST_F(OneOfManyComponents, AnUpgradeReadsAndWritesTheFilesOfTheChangedOneOnly) {
  deliverBundleWithOneChange();
  forgetWhatWasRead();
  const Traces before = ofOthers(traces());
  ASSERT_EQ(before.size(), (kComponents - 1) * kItemsOfAComponent);
  const auto outcome = install();
  ASSERT_EQ(outcome.exitCode, 0) << outcome.description();

  EXPECT_EQ(difference(before, ofOthers(traces())), std::vector<std::string>());
  EXPECT_EQ(root().readFile(folderOf(kChanged) + "/data"), std::string("data of ") + kChanged + " 1.1");
  EXPECT_TRUE(logged(outcome, "Info", std::string("Adding changed component ") + kChanged + " to upgrade plan"));
}

TEST_F(OneOfManyComponents, AnInstallOverAnEqualReceiptReadsAndWritesNoFileOfAnyOne) {
  forgetWhatWasRead();
  const Traces before = traces();
  const auto outcome = install();
  ASSERT_EQ(outcome.exitCode, 0) << outcome.description();
  EXPECT_EQ(difference(before, traces()), std::vector<std::string>());
}

// Without this the two tests above would prove nothing.
TEST_F(OneOfManyComponents, WhatIsReadOrWrittenOfTheirFilesLeavesATrace) {
  const std::string file = folderOf("Component-1") + "/data";
  deliverBundleWithOneChange();
  forgetWhatWasRead();
  const Traces untouched = traces();
  ASSERT_TRUE(root().shell("cat " + file).succeeded());
  const Traces read = traces();
  EXPECT_EQ(difference(untouched, read), std::vector<std::string>{root().path(file)});
  root().writeFile(file, root().readFile(file));
  EXPECT_EQ(difference(read, traces()), std::vector<std::string>{root().path(file)});

  // The way in which the engine reads leaves one too.
  const std::string payload = root().path(changedPayload());
  const auto outcome = install();
  ASSERT_EQ(outcome.exitCode, 0) << outcome.description();
  EXPECT_NE(traces().at(payload), untouched.at(payload));
}

}  // namespace
}  // namespace tests
