#include <fcntl.h>
#include <gtest/gtest.h>
#include <stdlib.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <csignal>
#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

#include "general/foundation/propertylist/PropertyListFile.h"
#include "tests/support/PrivateRoot.h"
#include "tests/support/PropertyLists.h"
#include "tests/support/TemporaryDirectory.h"

namespace {

namespace fs = std::filesystem;
using support::Outcome;

/// The real command and the real engine, with a staged product of one component.
class InstallerTool : public ::testing::Test, protected tests::PropertyLists {
 protected:
  InstallerTool() {
    folder_.write("Staged/Library/LaunchDaemons/com.example.guard.plist", "<plist/>");
    folder_.write("Staged/opt/guard/tool", "#!/bin/sh\n");
    fs::permissions(folder_.path("Staged/opt/guard/tool"), fs::perms(0754));
    fs::create_symlink("tool", folder_.path("Staged/opt/guard/link"));
    folder_.write("FrontEnd", "#!/bin/sh\n");
    fs::permissions(folder_.path("FrontEnd"), fs::perms(0755));
    folder_.makeDirectory("out");
    describe(dictionary({{"FrontEnd", "FrontEnd"},
                         {"Components", components()},
                         {"SilencedWarnings", PropertyList(std::vector<std::string>{"builder-owns-everything"})}}));
  }

  static PropertyList components() {
    return PropertyList(
        PropertyList::Array{dictionary({{"Name", "Core"},
                                        {"Version", "1"},
                                        {"StagedFolder", "Staged"},
                                        {"Products", PropertyList(std::vector<std::string>{"Guard"})}})});
  }
  void describe(const PropertyList& description) {
    ASSERT_TRUE(foundation::plist::writeFile(description, folder_.path("D.plist")).ok());
  }
  static Outcome run(std::vector<std::string> arguments) {
    arguments.insert(arguments.begin(), CORVANE_INSTALLER_TOOL);
    return support::runOnHost(arguments);
  }
  Outcome build() { return run({"build", folder_.path("D.plist"), "--output", folder_.path("out")}); }
  [[nodiscard]] std::string bundle() const { return folder_.path("out/Installer.app"); }

  tests::TemporaryDirectory folder_;
};

/// Runs the command with a terminal as its standard error.
class OnTerminal {
 public:
  explicit OnTerminal(const std::vector<std::string>& arguments)
      : master_(posix_openpt(O_RDWR | O_NOCTTY | O_CLOEXEC)) {
    if (master_ < 0 || grantpt(master_) != 0 || unlockpt(master_) != 0) {
      return;
    }
    const std::string name = ptsname(master_);
    std::vector<char*> texts;
    texts.reserve(arguments.size() + 1);
    for (const std::string& argument : arguments) {
      texts.push_back(const_cast<char*>(argument.c_str()));
    }
    texts.push_back(nullptr);
    child_ = fork();
    if (child_ == 0) {
      setenv("TERM", "xterm", 1);
      const int terminal = open(name.c_str(), O_RDWR | O_NOCTTY | O_CLOEXEC);
      if (terminal >= 0 && dup2(terminal, STDERR_FILENO) >= 0) {
        execv(texts[0], texts.data());
      }
      _exit(127);
    }
  }
  ~OnTerminal() { close(master_); }
  OnTerminal(const OnTerminal&) = delete;
  OnTerminal& operator=(const OnTerminal&) = delete;

  [[nodiscard]] bool isRunning() const { return child_ > 0; }
  void send(int signal) const { kill(child_, signal); }
  /// Reads until the text has been shown or the command has ended.
  bool waitFor(const std::string& text) {
    std::array<char, 4096> buffer{};
    while (shown_.find(text) == std::string::npos) {
      const ssize_t count = read(master_, buffer.data(), buffer.size());
      if (count <= 0) {
        return false;
      }
      shown_.append(buffer.data(), static_cast<std::size_t>(count));
    }
    return true;
  }
  /// Waits for the end of the command and answers its exit code.
  int end() {
    static_cast<void>(waitFor(std::string(1, '\0')));
    int status = 0;
    waitpid(child_, &status, 0);
    return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
  }
  [[nodiscard]] const std::string& shown() const { return shown_; }

 private:
  int master_;
  pid_t child_ = -1;
  std::string shown_;
};

TEST_F(InstallerTool, BuildsWithTheEngineBesideItAndShowsTheBundle) {
  const Outcome built = build();
  ASSERT_EQ(built.exitCode, 0) << built.standardError;
  EXPECT_EQ(built.standardOutput, bundle() + "\n");
  EXPECT_EQ(built.standardError, "") << "neither log lines nor a progress bar";
  EXPECT_EQ(fs::file_size(bundle() + "/Contents/MacOS/InstallationDeployer"), fs::file_size(CORVANE_ENGINE));
  const Outcome shown = run({"show", bundle()});
  EXPECT_EQ(shown.exitCode, 0) << shown.standardError;
  EXPECT_NE(shown.standardOutput.find("Component Core, version 1"), std::string::npos);
  const Outcome json = run({"show", bundle(), "--json"});
  EXPECT_EQ(json.exitCode, 0);
  EXPECT_EQ(json.standardOutput.front(), '{');
  EXPECT_NE(json.standardOutput.find("\"/opt/guard/tool\""), std::string::npos);
}

TEST_F(InstallerTool, PutsTheFrontEndBesideItIntoBundlesThatBringNone) {
  describe(dictionary({{"Components", components()}}));
  const Outcome built = build();
  ASSERT_EQ(built.exitCode, 0) << built.standardError;
  EXPECT_EQ(fs::file_size(bundle() + "/Contents/MacOS/Installer"), fs::file_size(CORVANE_FRONT_END));
  EXPECT_EQ(fs::status(bundle() + "/Contents/MacOS/Installer").permissions(), fs::perms(0755));
}

TEST_F(InstallerTool, SaysFileKeyAndWhatToDoAndExitsWithOne) {
  describe(dictionary({{"FrontEnd", "FrontEnd"}, {"Components", 7}}));
  const Outcome refused = build();
  EXPECT_EQ(refused.exitCode, 1);
  EXPECT_EQ(refused.standardOutput, "");
  EXPECT_EQ(refused.standardError, "installer-tool: " + folder_.path("D.plist") +
                                       ": Components: the value is of the wrong kind; give an array\n");
  EXPECT_TRUE(fs::is_empty(folder_.path("out")));
}

TEST_F(InstallerTool, ShowsWhatIsWrongWithABundleAndExitsWithOne) {
  ASSERT_EQ(build().exitCode, 0);
  fs::remove(bundle() + "/Contents/Install/Manifests/Core.plist");
  const Outcome shown = run({"show", bundle()});
  EXPECT_EQ(shown.exitCode, 1);
  EXPECT_NE(shown.standardError.find("Core.plist: the manifest of component Core is missing"), std::string::npos);
}

TEST_F(InstallerTool, ShowsNothingWhereNoBundleIs) {
  for (const char* const format : {"", "--json"}) {
    std::vector<std::string> command{"show", folder_.path("NOPE")};
    if (*format != '\0') {
      command.emplace_back(format);
    }
    const Outcome shown = run(command);
    EXPECT_EQ(shown.exitCode, 1);
    EXPECT_EQ(shown.standardOutput, "");
    EXPECT_EQ(shown.standardError, "installer-tool: " + folder_.path("NOPE") +
                                       "/Contents/Install/Manifests/Index.plist: the manifest index is missing; "
                                       "create it or correct the path\n");
  }
}

TEST_F(InstallerTool, ExitsWithTwoWhenCalledWrongly) {
  for (const auto& arguments : std::vector<std::vector<std::string>>{{},
                                                                     {"nonsense"},
                                                                     {"build"},
                                                                     {"build", "x"},
                                                                     {"show"},
                                                                     {"show", "a", "b"},
                                                                     {"build", "x", "-o", "y", "-q", "-v"}}) {
    const Outcome outcome = run(arguments);
    EXPECT_EQ(outcome.exitCode, 2) << outcome.standardError;
    EXPECT_NE(outcome.standardError, "");
  }
}

TEST_F(InstallerTool, HelpsWithAnExampleForEachVerb) {
  EXPECT_EQ(run({"--version"}).exitCode, 0);
  const Outcome help = run({"--help"});
  EXPECT_EQ(help.exitCode, 0);
  for (const char* verb : {"build", "show"}) {
    EXPECT_NE(help.standardOutput.find(verb), std::string::npos);
    const Outcome verbHelp = run({verb, "--help"});
    EXPECT_EQ(verbHelp.exitCode, 0);
    EXPECT_NE(verbHelp.standardOutput.find(std::string("installer-tool ") + verb + " "), std::string::npos);
  }
}

TEST_F(InstallerTool, TellsAnOrdinaryUserWhoseEverythingWillBeAndRecordsRootWhenAsked) {
  constexpr uid_t kSomebody = 501;
  std::vector<std::string> asSomebody;
  if (geteuid() == 0) {
    asSomebody = {"/usr/bin/setpriv", "--reuid=501", "--regid=501", "--clear-groups"};
    ASSERT_EQ(lchown(folder_.path().c_str(), kSomebody, kSomebody), 0);
    for (const auto& item : fs::recursive_directory_iterator(folder_.path())) {
      ASSERT_EQ(lchown(item.path().c_str(), kSomebody, kSomebody), 0);
    }
  }
  const auto runAsSomebody = [&asSomebody](const std::vector<std::string>& arguments) {
    std::vector<std::string> command = asSomebody;
    command.emplace_back(CORVANE_INSTALLER_TOOL);
    command.insert(command.end(), arguments.begin(), arguments.end());
    return support::runOnHost(command);
  };
  if (runAsSomebody({"--version"}).exitCode != 0) {
    GTEST_SKIP() << "an ordinary user may not start " << CORVANE_INSTALLER_TOOL;
  }
  describe(dictionary({{"FrontEnd", "FrontEnd"}, {"Components", components()}}));
  const Outcome warned = runAsSomebody({"build", folder_.path("D.plist"), "-o", folder_.path("out")});
  const Outcome silent =
      runAsSomebody({"build", folder_.path("D.plist"), "-o", folder_.path("out"), "--force", "--root-owner-group"});
  EXPECT_EQ(warned.exitCode, 0);
  EXPECT_TRUE(warned.standardError.starts_with("installer-tool: warning: [builder-owns-everything] " +
                                               folder_.path("D.plist") + ": everything staged belongs to the user"))
      << warned.standardError;
  EXPECT_EQ(silent.exitCode, 0);
  EXPECT_EQ(silent.standardError, "");
  const Outcome shown = run({"show", bundle(), "--json"});
  EXPECT_NE(shown.standardOutput.find("\"owner\": 0,"), std::string::npos) << shown.standardOutput;
  EXPECT_EQ(shown.standardOutput.find("\"owner\": " + std::to_string(geteuid() == 0 ? kSomebody : geteuid())),
            std::string::npos);
}

TEST_F(InstallerTool, PrintsTheLogWhenAskedTo) {
  const Outcome built = run({"build", folder_.path("D.plist"), "-o", folder_.path("out"), "--verbose"});
  EXPECT_EQ(built.exitCode, 0);
  EXPECT_NE(built.standardError.find("Added autogenerated daemon com.example.guard to ListOfLaunchDaemons"),
            std::string::npos);
}

TEST_F(InstallerTool, ShowsAProgressBarOnATerminalAndErasesIt) {
  OnTerminal tool({CORVANE_INSTALLER_TOOL, "build", folder_.path("D.plist"), "-o", folder_.path("out")});
  ASSERT_TRUE(tool.isRunning());
  EXPECT_EQ(tool.end(), 0);
  EXPECT_NE(tool.shown().find(" of 2 files"), std::string::npos) << tool.shown();
  EXPECT_TRUE(tool.shown().ends_with("\r\x1b[K")) << tool.shown();
}

TEST_F(InstallerTool, ShowsNoProgressBarWhenQuiet) {
  OnTerminal tool({CORVANE_INSTALLER_TOOL, "build", folder_.path("D.plist"), "-o", folder_.path("out"), "--quiet"});
  ASSERT_TRUE(tool.isRunning());
  EXPECT_EQ(tool.end(), 0);
  EXPECT_EQ(tool.shown(), "");
}

TEST_F(InstallerTool, LeavesTheWholeBundleOrNothingWhenInterrupted) {
  for (int file = 0; file < 3000; ++file) {
    std::ofstream(folder_.path("Staged/opt/guard/" + std::to_string(file))) << file;
  }
  OnTerminal tool({CORVANE_INSTALLER_TOOL, "build", folder_.path("D.plist"), "-o", folder_.path("out")});
  ASSERT_TRUE(tool.isRunning());
  ASSERT_TRUE(tool.waitFor(" files"));
  tool.send(SIGINT);
  if (tool.end() == 0) {
    EXPECT_EQ(std::distance(fs::directory_iterator(folder_.path("out")), {}), 1);
    EXPECT_EQ(run({"show", bundle()}).exitCode, 0);
  } else {
    EXPECT_NE(tool.shown().find("installer-tool: interrupted; nothing was left behind"), std::string::npos);
    EXPECT_TRUE(fs::is_empty(folder_.path("out")));
  }
}

TEST_F(InstallerTool, LeavesNothingBehindWhenFilesMayNotGrowAsBigAsTheEngine) {
  const Outcome built = support::runOnHost({"/bin/sh", "-c", "ulimit -f 1; exec \"$0\" \"$@\"", CORVANE_INSTALLER_TOOL,
                                            "build", folder_.path("D.plist"), "-o", folder_.path("out")});
  EXPECT_EQ(built.exitCode, 1);
  EXPECT_NE(built.standardError.find("the executable cannot be written"), std::string::npos) << built.standardError;
  EXPECT_TRUE(fs::is_empty(folder_.path("out")));
}

TEST_F(InstallerTool, FinishesTheBundleWhenNobodyReadsItsLogAnyMore) {
  const Outcome built =
      support::runOnHost({"/bin/bash", "-c", "\"$0\" \"$@\" --verbose 2>&1 >/dev/null | true; exit ${PIPESTATUS[0]}",
                          CORVANE_INSTALLER_TOOL, "build", folder_.path("D.plist"), "-o", folder_.path("out")});
  EXPECT_EQ(built.exitCode, 0);
  EXPECT_EQ(std::distance(fs::directory_iterator(folder_.path("out")), {}), 1);
  EXPECT_TRUE(fs::exists(bundle()));
}

TEST_F(InstallerTool, MakesABundleThatTheEngineInstalls) {
  if (const auto reason = support::PrivateRoot::whyImpossible()) {
    GTEST_SKIP() << *reason;
  }
  ASSERT_EQ(build().exitCode, 0);
  support::PrivateRoot root;
  if (!root.hasProcesses() && std::string_view(CORVANE_SANITIZERS) != "") {
    GTEST_SKIP() << "a program with sanitizers needs a /proc: " << root.whyNoMounts();
  }
  root.copyIn(bundle(), "/Volumes/Guard/Installer.app");
  const Outcome installed = root.run({"/Volumes/Guard/Installer.app/Contents/MacOS/InstallationDeployer", "--install"});
  EXPECT_EQ(installed.exitCode, 0) << installed.standardError;
  EXPECT_EQ(root.readFile("/opt/guard/tool"), "#!/bin/sh\n");
  struct stat status {};
  ASSERT_EQ(stat(root.path("/opt/guard/tool").c_str(), &status), 0);
  EXPECT_EQ(status.st_mode & 07777U, 0754U);
  EXPECT_EQ(fs::read_symlink(root.path("/opt/guard/link")), "tool");
  EXPECT_TRUE(root.exists("/Library/Application Support/Corvane/Guard/Installer.app/Contents/MacOS/Installer"));
  const Outcome receipt = run({"show", root.path("/Library/Application Support/Corvane/Guard/Installer.app")});
  EXPECT_EQ(receipt.exitCode, 0) << receipt.standardError;
}

}  // namespace
