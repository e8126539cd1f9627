#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <csignal>
#include <filesystem>
#include <fstream>
#include <memory>

#include "tests/integration/PrivateRootTest.h"

namespace {

namespace fs = std::filesystem;
using support::CommandRule;
using support::Outcome;
using support::PrivateRoot;
using support::PrivateRootError;
using support::RecordedCall;
using support::RunningProgram;
using support::RunOptions;
using tests::PrivateRootTest;
using tests::wayName;

INSTANTIATE_TEST_SUITE_P(BothWays, PrivateRootTest,
                         ::testing::Values(PrivateRoot::Way::Mounts, PrivateRoot::Way::Copies), wayName);

TEST_P(PrivateRootTest, RunsAShellAndKeepsWhatItPrintsAndItsExitCode) {
  const Outcome outcome = root().shell("echo out; echo err >&2; exit 7");
  EXPECT_EQ(outcome.exitCode, 7);
  EXPECT_EQ(outcome.signal, 0);
  EXPECT_EQ(outcome.standardOutput, "out\n");
  EXPECT_EQ(outcome.standardError, "err\n");
}

TEST_P(PrivateRootTest, ReportsTheSignalThatEndedAProgram) {
  const Outcome outcome = root().shell("kill -9 $$");
  EXPECT_EQ(outcome.signal, SIGKILL);
  EXPECT_EQ(outcome.exitCode, -1);
}

TEST_P(PrivateRootTest, SaysWhyAProgramCannotBeStarted) {
  EXPECT_THROW(static_cast<void>(root().run({"/no/such/program"})), PrivateRootError);
}

TEST_P(PrivateRootTest, KillsAProgramThatExceedsItsLimit) {
  RunOptions options;
  options.limit = std::chrono::seconds(0);
  const Outcome outcome = root().shell("sleep 600", options);
  EXPECT_TRUE(outcome.timedOut);
  EXPECT_EQ(outcome.signal, SIGKILL);
}

TEST_P(PrivateRootTest, LeavesTheHostUntouched) {
  const std::string name = "/Library/private-root-" + std::to_string(getpid());
  ASSERT_TRUE(
      root().shell("mkdir " + name + " && echo x > " + name + "/file && echo x > /etc/only-inside").succeeded());
  EXPECT_TRUE(root().exists(name + "/file"));
  EXPECT_FALSE(fs::exists(name));
  EXPECT_FALSE(fs::exists("/etc/only-inside"));
}

TEST_P(PrivateRootTest, ShowsNothingOfTheHostButItsPrograms) {
  const fs::path outside = fs::temp_directory_path() / ("outside-" + std::to_string(getpid()));
  std::ofstream(outside) << "secret";
  const Outcome outcome = root().shell("cat " + outside.string());
  EXPECT_FALSE(outcome.succeeded());
  EXPECT_NE(outcome.standardError.find("No such file"), std::string::npos) << outcome.standardError;
  fs::remove(outside);
}

TEST_P(PrivateRootTest, CannotWriteToTheHostsPrograms) {
  if (!root().hasPrivateMounts()) {
    GTEST_SKIP() << "/usr is a copy: " << root().whyNoMounts();
  }
  const Outcome outcome = root().shell("echo x > /usr/written-inside");
  EXPECT_FALSE(outcome.succeeded());
  EXPECT_NE(outcome.standardError.find("Read-only"), std::string::npos) << outcome.standardError;
  EXPECT_FALSE(fs::exists("/usr/written-inside"));
}

TEST_P(PrivateRootTest, KnowsTheGroupAdminAndTheUsers501And502) {
  EXPECT_NE(root().readFile("/etc/group").find("admin:x:80:"), std::string::npos);
  EXPECT_EQ(root().shell("id -un 501 && id -un 502").standardOutput, "console\nsecond\n");
}

TEST_P(PrivateRootTest, HasDevicesOfItsOwn) {
  if (!root().hasDevices()) {
    GTEST_SKIP() << "device nodes cannot be made here";
  }
  const Outcome outcome = root().shell("echo gone > /dev/null; head -c 4 /dev/zero | wc -c; ls /dev");
  EXPECT_EQ(outcome.standardOutput, "4\nfd\nfull\nnull\nrandom\nstderr\nstdin\nstdout\nurandom\nzero\n");
  EXPECT_EQ(fs::file_size(root().path("/etc/hosts")), root().readFile("/etc/hosts").size());
}

TEST_P(PrivateRootTest, StartsAProgramWithTheSurroundingsAskedFor) {
  RunOptions options;
  options.currentDirectory = "/Users";
  options.user = 501;
  options.group = 20;
  options.fileCreationMask = 027;
  options.environment = {"PATH=/usr/bin:/bin", "ONLY=this"};
  options.standardInput = "input";
  const Outcome outcome = root().shell("pwd; id -u; id -g; umask; echo $ONLY; cat", options);
  EXPECT_EQ(outcome.standardOutput, "/Users\n501\n20\n0027\nthis\ninput");
}

TEST_P(PrivateRootTest, StartsAProgramWithClosedDescriptors) {
  RunOptions options;
  options.closedDescriptors = {0};
  EXPECT_FALSE(root().shell("cat", options).succeeded());
  EXPECT_TRUE(root().shell("cat").succeeded());
}

TEST_P(PrivateRootTest, HandsNoDescriptorOfTheTestToAProgram) {
  // Not to be closed when a program starts, and of a single digit, which is all that some shells take.
  const int leaked = fcntl(0, F_DUPFD, 4);
  ASSERT_LT(leaked, 10);
  const Outcome outcome = root().shell("cat <&" + std::to_string(leaked));
  close(leaked);
  EXPECT_FALSE(outcome.succeeded());
}

TEST_P(PrivateRootTest, LimitsWhatAProgramMayUse) {
  RunOptions options;
  options.limits = {{RLIMIT_FSIZE, 1000}};
  EXPECT_FALSE(root().shell("seq 1 2000 > /tmp/file", options).succeeded());
  EXPECT_EQ(fs::file_size(root().path("/tmp/file")), 1000U);
}

TEST_P(PrivateRootTest, RunsABackgroundProgramUntilItIsKilled) {
  RunningProgram program = root().start({"/bin/sh", "-c", "echo ready >&2; while :; do sleep 600; done"});
  ASSERT_TRUE(program.waitForStandardError("ready"));
  EXPECT_TRUE(program.isRunning());
  program.kill(SIGTERM);
  EXPECT_EQ(program.wait().signal, SIGTERM);
  EXPECT_FALSE(program.isRunning());
}

TEST_P(PrivateRootTest, RecordsTheExactArgumentVectorOfEveryCall) {
  ASSERT_TRUE(root()
                  .shell("cd /Users && /bin/launchctl load -w '/a b/c.plist' '' 'new\nline' 'quo\"te\\' 'caf\303\251'")
                  .succeeded());
  RunOptions asUser;
  asUser.user = 501;
  ASSERT_TRUE(root().run({"/bin/launchctl", "list"}, asUser).succeeded());
  const std::vector<RecordedCall> calls = root().recordedCalls();
  ASSERT_EQ(calls.size(), 2U);
  EXPECT_EQ(calls[0].path, "/bin/launchctl");
  EXPECT_EQ(calls[0].currentDirectory, "/Users");
  EXPECT_EQ(calls[0].realUser, 0U);
  EXPECT_EQ(calls[0].effectiveUser, 0U);
  EXPECT_EQ(calls[0].arguments, (std::vector<std::string>{"/bin/launchctl", "load", "-w", "/a b/c.plist", "",
                                                          "new\nline", "quo\"te\\", "caf\303\251"}));
  EXPECT_EQ(calls[1].realUser, 501U);
  EXPECT_EQ(calls[1].arguments, (std::vector<std::string>{"/bin/launchctl", "list"}));
  root().forgetRecordedCalls();
  EXPECT_TRUE(root().recordedCalls().empty());
}

TEST_P(PrivateRootTest, LetsARecordedCommandFailAndTalkWhenTold) {
  CommandRule failing;
  failing.pattern = "/bin/launchctl load *bad.plist";
  failing.exitCode = 3;
  failing.standardError = "no such \"thing\"\n";
  failing.standardErrorBytes = 5000;
  failing.standardOutputBytes = 200000;
  root().setCommandRules({failing});
  const Outcome failed = root().run({"/bin/launchctl", "load", "-w", "/Library/LaunchDaemons/bad.plist"});
  EXPECT_EQ(failed.exitCode, 3);
  EXPECT_EQ(failed.standardError, "no such \"thing\"\n" + std::string(5000, 'e'));
  EXPECT_EQ(failed.standardOutput.size(), 200000U);
  EXPECT_EQ(root().run({"/bin/launchctl", "load", "-w", "/Library/LaunchDaemons/good.plist"}).exitCode, 0);
  EXPECT_EQ(root().recordedCalls().size(), 2U);
}

TEST_P(PrivateRootTest, RecordsAnotherCommandInItsPlace) {
  root().recordCommand("/usr/bin/touch");
  ASSERT_TRUE(root().run({"/usr/bin/touch", "/Library/Extensions"}).succeeded());
  EXPECT_FALSE(root().exists("/Library/Extensions"));
  ASSERT_EQ(root().recordedCalls().size(), 1U);
  EXPECT_EQ(root().recordedCalls()[0].path, "/usr/bin/touch");
}

TEST_P(PrivateRootTest, ShowsAProcessOfAChosenNameAndUserUntilItEnds) {
  if (!root().hasProcesses()) {
    GTEST_SKIP() << "the root has no /proc: " << root().whyNoMounts();
  }
  const pid_t process = root().startProcess("loginwindow", 501);
  const std::string look =
      "cat /proc/" + std::to_string(process) + "/comm && stat -c %u /proc/" + std::to_string(process);
  EXPECT_EQ(root().shell(look).standardOutput, "loginwindow\n501\n");
  EXPECT_TRUE(root().processRuns(process));
  root().endProcess(process);
  EXPECT_FALSE(root().processRuns(process));
  EXPECT_FALSE(root().shell(look).succeeded());
}

TEST_P(PrivateRootTest, ShowsNoProcessOfTheHost) {
  if (!root().hasProcesses()) {
    GTEST_SKIP() << "the root has no /proc: " << root().whyNoMounts();
  }
  const Outcome outcome = root().shell("cat /proc/[0-9]*/comm");
  // The shell may or may not hand its process over to the last command.
  EXPECT_TRUE(outcome.standardOutput == "private-root\nsh\n" || outcome.standardOutput == "private-root\ncat\n")
      << outcome.standardOutput << outcome.standardError;
}

TEST_P(PrivateRootTest, EndsProcessesThatOutliveTheirParentWithTheRoot) {
  if (!root().hasProcesses()) {
    GTEST_SKIP() << "the root has no process namespace: " << root().whyNoMounts();
  }
  ASSERT_EQ(mkfifo(root().path("/tmp/open").c_str(), 0600), 0);
  const int reader = open(root().path("/tmp/open").c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC);
  ASSERT_TRUE(root().shell("(exec 3>/tmp/open; sleep 600) >/dev/null 2>&1 & exec 3>/tmp/open").succeeded());
  root_.reset();
  char nothing = 0;
  EXPECT_EQ(read(reader, &nothing, 1), 0) << "the writer still lives";
  close(reader);
}

TEST_P(PrivateRootTest, NamesTheConsoleUserAsTheLoginManagerDoes) {
  root().setConsoleUser(502);
  EXPECT_NE(root().readFile("/run/systemd/seats/seat0").find("ACTIVE_UID=502\n"), std::string::npos);
  root().setConsoleUser(std::nullopt);
  EXPECT_EQ(root().readFile("/run/systemd/seats/seat0").find("ACTIVE"), std::string::npos);
}

TEST_P(PrivateRootTest, CopiesATreeInWithItsPermissionsOwnedByRoot) {
  const fs::path tree = fs::temp_directory_path() / ("tree-" + std::to_string(getpid()));
  fs::create_directories(tree / "folder");
  std::ofstream(tree / "folder/file") << "text";
  fs::permissions(tree / "folder/file", fs::perms(0640));
  fs::create_symlink("folder/file", tree / "link");
  ASSERT_EQ(chown((tree / "folder/file").c_str(), 501, 20), 0);
  root().copyIn(tree, "/Volumes/Deep/tree");
  fs::remove_all(tree);
  const support::Snapshot snapshot = root().snapshot("/Volumes/Deep");
  ASSERT_EQ(snapshot.size(), 5U) << support::listing(snapshot);
  EXPECT_EQ(snapshot[3].path, "/Volumes/Deep/tree/folder/file");
  EXPECT_EQ(snapshot[3].mode, 0640U);
  EXPECT_EQ(snapshot[3].user, 0U);
  EXPECT_EQ(snapshot[3].checksum, "982d9e3eb996f559e633f4d194def3761d909f5a3b647d1a851fead67c32c9d1");
  EXPECT_EQ(snapshot[4].type, 'l');
  EXPECT_EQ(snapshot[4].target, "folder/file");
}

TEST_P(PrivateRootTest, TellsTwoTreesApartByContentModeOwnerAndTarget) {
  ASSERT_TRUE(root().shell("mkdir -p /a/b && echo 1 > /a/b/c && ln -s x /a/l").succeeded());
  const support::Snapshot before = root().snapshot("/a");
  EXPECT_EQ(root().snapshot("/a"), before);
  for (const std::string change :
       {"echo 2 > /a/b/c", "chmod 600 /a/b/c", "chown 501 /a/b", "chgrp 80 /a/b", "ln -sfn y /a/l", "rm /a/b/c"}) {
    const support::Snapshot last = root().snapshot("/a");
    ASSERT_TRUE(root().shell(change).succeeded());
    EXPECT_NE(root().snapshot("/a"), last) << change;
  }
}

TEST_P(PrivateRootTest, ListsATreeForPeople) {
  ASSERT_TRUE(
      root()
          .shell("mkdir -m 755 /a && echo 12 > /a/f && chmod 4751 /a/f && chown 501:80 /a/f && chmod 4751 /a/f && "
                 "ln -s f /a/l")
          .succeeded());
  EXPECT_EQ(support::listing(root().snapshot("/a")),
            "drwxr-xr-x     0     0        0  /a\n"
            "-rwsr-x--x   501    80        3  /a/f\n"
            "lrwxrwxrwx     0     0        1  /a/l -> f\n");
}

TEST_P(PrivateRootTest, RunsAProgramOfTheBuildWithItsLibraries) {
  root().copyIn(fs::read_symlink("/proc/self/exe"), "/tmp/tests");
  RunOptions options;
  if (!root().hasProcesses() && std::string_view(CORVANE_SANITIZERS) == "thread") {
    GTEST_SKIP() << "a program with the thread sanitizer needs a /proc: " << root().whyNoMounts();
  }
  const Outcome outcome = root().run({"/tmp/tests", "--gtest_list_tests"}, options);
  EXPECT_TRUE(outcome.succeeded()) << outcome.description();
  EXPECT_NE(outcome.standardOutput.find("RunsAProgramOfTheBuild"), std::string::npos);
}

TEST(PrivateRoot, IsAsBigAsAskedFor) {
  if (const auto reason = PrivateRoot::whyImpossible(PrivateRoot::Way::Mounts)) {
    GTEST_SKIP() << *reason;
  }
  PrivateRoot::Options options;
  options.rootSizeBytes = 16 << 20;
  PrivateRoot root(options);
  EXPECT_TRUE(root.shell("head -c 4000000 /dev/zero > /small").succeeded());
  const Outcome outcome = root.shell("head -c 20000000 /dev/zero > /big");
  EXPECT_FALSE(outcome.succeeded());
  EXPECT_NE(outcome.standardError.find("No space left"), std::string::npos) << outcome.standardError;
}

TEST(PrivateRoot, LeavesNoDirectoryOfCopiesBehind) {
  if (const auto reason = PrivateRoot::whyImpossible(PrivateRoot::Way::Copies)) {
    GTEST_SKIP() << *reason;
  }
  std::string directory;
  {
    PrivateRoot::Options options;
    options.way = PrivateRoot::Way::Copies;
    const PrivateRoot root(options);
    directory = root.path("");
    ASSERT_TRUE(fs::exists(directory));
  }
  EXPECT_FALSE(fs::exists(directory));
}

TEST(PrivateRoot, LetsTwoRootsLiveSideBySide) {
  if (const auto reason = PrivateRoot::whyImpossible()) {
    GTEST_SKIP() << *reason;
  }
  auto first = std::make_unique<PrivateRoot>();
  PrivateRoot second;
  ASSERT_TRUE(first->shell("echo 1 > /which").succeeded());
  EXPECT_FALSE(second.exists("/which"));
  first.reset();
  EXPECT_TRUE(second.shell("true").succeeded());
}

}  // namespace
