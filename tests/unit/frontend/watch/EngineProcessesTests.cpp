#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <filesystem>

#include "InstallationDeployer/EngineNames.h"
#include "frontend/watch/EngineProcesses.h"
#include "general/foundation/Thread.h"
#include "tests/support/TemporaryDirectory.h"

namespace frontend {
namespace {

namespace fs = std::filesystem;

TEST(EngineProcesses, TellsOtherProcessesFromNone) {
  EXPECT_EQ(lookForEngine(getpid()), EngineProcess::Other);
  EXPECT_EQ(lookForEngine(0), EngineProcess::None);
  EXPECT_EQ(lookForEngine(-1), EngineProcess::None);
}

TEST(EngineProcesses, KnowsAnEngineByItsName) {
  const tests::TemporaryDirectory folder;
  const std::string engine = folder.path("InstallationDeployer");
  fs::copy_file("/bin/sleep", engine);
  foundation::Task task(engine, {"1000"});
  task.launch();
  EXPECT_EQ(lookForEngine(task.processIdentifier()), EngineProcess::Engine);
  kill(task.processIdentifier(), SIGKILL);
  task.waitUntilExit();
  EXPECT_EQ(lookForEngine(task.processIdentifier()), EngineProcess::None);
}

TEST(EngineProcesses, KnowsAnEngineThatHasNamedItsFirstThread) {
  const pid_t child = fork();
  if (child == 0) {
    foundation::setCurrentThreadName(deployer::kMainThreadName);
    raise(SIGSTOP);
    _exit(0);
  }
  int status = 0;
  ASSERT_EQ(waitpid(child, &status, WUNTRACED), child);
  EXPECT_EQ(lookForEngine(child), EngineProcess::Engine);
  kill(child, SIGKILL);
  waitpid(child, &status, 0);
}

TEST(EngineProcesses, HasAReasonForEachProcessThatCannotBeWatched) {
  EXPECT_EQ(reasonNotToWatch(5, EngineProcess::None), "There is no process 5.");
  EXPECT_EQ(reasonNotToWatch(5, EngineProcess::Other), "Process 5 is not an installation engine.");
  EXPECT_EQ(reasonNotToWatch(5, EngineProcess::Engine),
            "The engine with process number 5 cannot be watched: it was not started with --ui, or its service "
            "cannot be reached.");
}

TEST(EngineProcesses, FindsTheEngineBesideTheProgramAndThroughLinks) {
  const tests::TemporaryDirectory folder;
  folder.write("bundle/Installer", "");
  const std::string engine = folder.write("bundle/InstallationDeployer", "");
  EXPECT_EQ(engineBeside(folder.path("bundle/Installer")), engine);
  EXPECT_EQ(engineBeside(folder.path("bundle/../bundle/./Installer")), engine);
  fs::create_directory(folder.path("bin"));
  fs::create_symlink("../bundle/Installer", folder.path("bin/Installer"));
  EXPECT_EQ(engineBeside(folder.path("bin/Installer")), fs::canonical(engine));
  fs::create_directory_symlink(folder.path("bundle"), folder.path("link"));
  EXPECT_EQ(engineBeside(folder.path("link/Installer")), folder.path("link/InstallationDeployer"))
      << "as it was called: the engine takes its place from that";
  fs::remove(engine);
  EXPECT_EQ(engineBeside(folder.path("bundle/Installer")), std::nullopt);
  EXPECT_EQ(engineBeside(folder.path("nowhere/Installer")), std::nullopt);
}

}  // namespace
}  // namespace frontend
