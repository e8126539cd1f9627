#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <filesystem>
#include <fstream>
#include <set>
#include <string>

#include "InstallationDeployer/run/ProductLocks.h"
#include "general/foundation/Paths.h"
#include "general/ipc/ServiceFolder.h"
#include "tests/support/CapturedLog.h"
#include "tests/support/PrivateRunFolder.h"
#include "tests/unit/InstallationDeployer/BundleFixture.h"

namespace deployer {
namespace {

using tests::CapturedLog;
using Outcome = ProductLocks::Outcome;

const auto kNever = [] { return false; };

/// A process that has a product for itself until it is killed.
class HoldingProcess {
 public:
  explicit HoldingProcess(const std::string& product) {
    int ready[2] = {-1, -1};
    EXPECT_EQ(pipe2(ready, O_CLOEXEC), 0);
    process_ = fork();
    if (process_ == 0) {
      ProductLocks locks;
      const char answer = locks.acquire({product}, kNever) == Outcome::Locked ? 'y' : 'n';
      static_cast<void>(write(ready[1], &answer, 1));
      while (pause() != 0) {
      }
    }
    char answer = '\0';
    EXPECT_EQ(read(ready[0], &answer, 1), 1);
    EXPECT_EQ(answer, 'y');
    close(ready[0]);
    close(ready[1]);
  }
  ~HoldingProcess() { kill(); }
  HoldingProcess(const HoldingProcess&) = delete;
  HoldingProcess& operator=(const HoldingProcess&) = delete;

  [[nodiscard]] pid_t number() const { return process_; }
  void kill() {
    if (process_ > 0) {
      ::kill(process_, SIGKILL);
      waitpid(process_, nullptr, 0);
      process_ = 0;
    }
  }

 private:
  pid_t process_ = 0;
};

/// The exit code of a process that runs the body.
template <class Body>
int inAnotherProcess(const Body& body) {
  const pid_t process = fork();
  if (process == 0) {
    _exit(body());
  }
  int status = 0;
  waitpid(process, &status, 0);
  return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

/// Whether nobody has the product; asked of a process that this one did not start, as its locks are.
bool isFree(const std::string& product) {
  return inAnotherProcess([&] {
           return ipc::ProcessLock(lockNameOfProduct(product)).tryToLock() == ipc::ProcessLock::Attempt::Locked ? 0 : 1;
         }) == 0;
}

class ProductLock : public ::testing::Test {
 protected:
  void SetUp() override {
    if (const auto reason = tests::enterPrivateRunFolder()) {
      GTEST_SKIP() << *reason;
    }
  }
};

TEST(NameOfAProductsLock, IsOneForEachProductWhateverItIsCalled) {
  EXPECT_EQ(lockNameOfProduct("Corvane Anti-Virus 9.2_b"), ".product.Corvane Anti-Virus 9.2_b");
  std::set<std::string> names;
  const std::string odd[] = {"",
                             ".",
                             "..",
                             "a/b",
                             "a\nb",
                             "Größe",
                             "digest.x",
                             "a\tb",
                             std::string(255, 'x'),
                             std::string(254, 'x'),
                             "a\x01z",
                             "-digest.zz",
                             "Gro\u0308ße"};
  for (const std::string& product : odd) {
    const std::string name = lockNameOfProduct(product);
    EXPECT_TRUE(name.starts_with(".product")) << name;
    EXPECT_TRUE(foundation::paths::isSingleComponent(name)) << name;
    EXPECT_TRUE(names.insert(name).second) << name;
    EXPECT_EQ(lockNameOfProduct(product), name);
  }
}

TEST_F(ProductLock, KeepsOtherProcessesFromEachOfItsProductsAndFromNoOther) {
  ProductLocks locks;
  EXPECT_EQ(locks.acquire({"A", "B/C"}, kNever), Outcome::Locked);
  EXPECT_FALSE(locks.hasWaited());
  EXPECT_FALSE(isFree("A"));
  EXPECT_FALSE(isFree("B/C"));
  EXPECT_TRUE(isFree("C"));
  EXPECT_EQ(locks.acquire({"C"}, kNever), Outcome::Locked);
  EXPECT_TRUE(isFree("A"));
  EXPECT_FALSE(isFree("C"));
  locks.release();
  EXPECT_TRUE(isFree("C"));
}

TEST_F(ProductLock, IsWaitedForAndWhoHasItIsNamedOnce) {
  HoldingProcess first("A");
  const CapturedLog log;
  ProductLocks locks;
  int turns = 0;
  const Outcome outcome = locks.acquire({"A"}, [&] {
    if (++turns == 3) {
      first.kill();
    }
    return false;
  });
  EXPECT_EQ(outcome, Outcome::Locked);
  EXPECT_GE(turns, 3);
  EXPECT_TRUE(locks.hasWaited());
  EXPECT_FALSE(isFree("A"));
  EXPECT_EQ(log.texts("Notice").size(), 1U) << log.text();
}

TEST_F(ProductLock, NamesEachProcessThatItWaitsFor) {
  HoldingProcess first("A");
  HoldingProcess second("B");
  const std::string firstNotice =
      "Waiting for process " + std::to_string(first.number()) + ", which changes the product \"A\".";
  const std::string secondNotice =
      "Waiting for process " + std::to_string(second.number()) + ", which changes the product \"B\".";
  const CapturedLog log;
  ProductLocks locks;
  EXPECT_EQ(locks.acquire({"A", "B"},
                          [&] {
                            // Whoever is named goes.
                            if (log.contains("Notice", secondNotice)) {
                              second.kill();
                            } else if (log.contains("Notice", firstNotice)) {
                              first.kill();
                            }
                            return false;
                          }),
            Outcome::Locked);
  EXPECT_EQ(log.texts("Notice"), (std::vector<std::string>{firstNotice, secondNotice}));
}

TEST_F(ProductLock, IsOneOfAllOrNone) {
  const HoldingProcess other("B");
  ProductLocks locks;
  bool firstIsFree = false;
  EXPECT_EQ(locks.acquire({"A", "B"},
                          [&] {
                            firstIsFree = isFree("A");
                            return true;
                          }),
            Outcome::Cancelled);
  EXPECT_TRUE(firstIsFree) << "nobody is kept from a product by who waits for another one";
  EXPECT_TRUE(isFree("A"));
  EXPECT_FALSE(isFree("B"));
}

TEST_F(ProductLock, IsGivenBackWhenAWaitForMoreIsCancelled) {
  const HoldingProcess other("B");
  ProductLocks locks;
  ASSERT_EQ(locks.acquire({"A"}, kNever), Outcome::Locked);
  EXPECT_EQ(locks.acquire({"A", "B"}, [] { return true; }), Outcome::Cancelled);
  EXPECT_TRUE(isFree("A"));
}

TEST_F(ProductLock, OfTheProcessThatStartedThisOneIsNotWaitedFor) {
  ProductLocks locks;
  ASSERT_EQ(locks.acquire({"A"}, kNever), Outcome::Locked);
  const auto acquireThere = [] {
    ProductLocks theirs;
    return static_cast<int>(theirs.acquire({"A", "B"}, [] { return true; }));
  };
  EXPECT_EQ(inAnotherProcess(acquireThere), static_cast<int>(Outcome::Locked));
  EXPECT_EQ(inAnotherProcess([&] { return inAnotherProcess(acquireThere); }), static_cast<int>(Outcome::Locked));
  EXPECT_FALSE(isFree("A")) << "who started it still has it";
}

TEST_F(ProductLock, ThatCannotBeHadIsAnErrorAndNoOtherIsKept) {
  ASSERT_TRUE(ipc::makeServiceFolders());
  std::filesystem::create_directory(std::string(ipc::kServiceFolder) + "/" + lockNameOfProduct("B"));
  const CapturedLog log;
  ProductLocks locks;
  EXPECT_EQ(locks.acquire({"A", "B"}, kNever), Outcome::Failed);
  EXPECT_EQ(log.texts("Error"),
            std::vector<std::string>{"Unable to lock /var/run/com.corvane.installer/.product.B. Is a directory"});
  EXPECT_TRUE(isFree("A"));
}

TEST_F(ProductLock, ThatCannotBeHadAnyMoreEndsTheWait) {
  const HoldingProcess other("A");
  ProductLocks locks;
  EXPECT_EQ(locks.acquire({"A"},
                          [] {
                            std::filesystem::remove_all(ipc::kServiceFolder);
                            std::ofstream(std::string(ipc::kServiceFolder)) << "a file";
                            return false;
                          }),
            Outcome::Failed);
}

class ProductsOfAnInstall : public ::testing::Test, protected tests::BundleFixture {
 protected:
  [[nodiscard]] ProductNames changedBy(const std::string& product) {
    QVNInstallerManifest manifest(path());
    return productsChangedByInstallOf(product, manifest);
  }
  [[nodiscard]] static PropertyList external(const std::string& bundle, const std::string& product) {
    return dictionary(
        {{"InstallPhaseType", "ExternalInstallationDeployer"}, {"BundlePath", bundle}, {"ProductName", product}});
  }
  /// Another bundle with an engine; its path.
  std::string makeOther(const std::string& name, const PropertyList& products) const {
    directory().write(name + "/Contents/MacOS/InstallationDeployer", "engine");
    directory().makeDirectory(name + "/Contents/Install/Manifests");
    const std::string index = directory().path(name + "/Contents/Install/Manifests/Index.plist");
    EXPECT_TRUE(foundation::plist::writeFile(dictionary({{"Products", products}}), index).ok());
    return directory().path(name);
  }
};

TEST_F(ProductsOfAnInstall, AreItselfAndThoseThatItMayFollow) {
  writeIndex(dictionary(
      {{"Products", dictionary({{"P", product({localPayload({"A"})},
                                              array({dictionary({{"ProductName", "Old"}, {"AllowCrossGrades", true}}),
                                                     dictionary({{"ProductName", "Older"}}), PropertyList(7)}))},
                                {"Q", product({localPayload({"A"})})}})}}));
  EXPECT_EQ(changedBy("P"), (ProductNames{"Old", "Older", "P"}));
  EXPECT_EQ(changedBy("Q"), ProductNames{"Q"});
  EXPECT_EQ(changedBy("unknown"), ProductNames{"unknown"});
}

TEST_F(ProductsOfAnInstall, AreThoseOfTheEnginesThatItStartsAndTheirs) {
  const std::string inner = makeOther("inner.app", dictionary({{"Inner", product({localPayload({"A"})})}}));
  const std::string outer =
      makeOther("outer.app", dictionary({{"Outer", product({localPayload({"A"}), external(inner, "Inner")},
                                                           array({dictionary({{"ProductName", "Before"}})}))}}));
  writeIndex(dictionary({{"Products", dictionary({{"P", product({localPayload({"A"}), external(outer, "Outer")})}})}}));
  EXPECT_EQ(changedBy("P"), (ProductNames{"Before", "Inner", "Outer", "P"}));
}

TEST_F(ProductsOfAnInstall, AreNotThoseOfABundleThatIsNotThereAndWaitedFor) {
  writeIndex(dictionary(
      {{"Products", dictionary({{"P", product({localPayload({"A"}), external("/nowhere/x.app", "Later")})}})}}));
  EXPECT_EQ(changedBy("P"), ProductNames{"P"});
}

TEST_F(ProductsOfAnInstall, AreListedOnceWhereBundlesNameEachOther) {
  const std::string other = directory().path("other.app");
  makeOther("other.app", dictionary({{"Q", product({external(path(), "P"), external(other, "Q")})}}));
  directory().write("Installer.app/Contents/MacOS/InstallationDeployer", "engine");
  writeIndex(dictionary({{"Products", dictionary({{"P", product({external(other, "Q")})}})}}));
  EXPECT_EQ(changedBy("P"), (ProductNames{"P", "Q"}));
}

}  // namespace
}  // namespace deployer
