#include "tests/support/PrivateRoot.h"

#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <csignal>
#include <filesystem>
#include <fstream>
#include <sstream>

namespace support {
namespace {

namespace fs = std::filesystem;

constexpr const char* kRecorderInside = "/run/recorder/command";
constexpr const char* kLaunchctl = "/bin/launchctl";
constexpr const char* kNamedPrograms = "/run/named-programs/";
constexpr const char* kSeat = "/run/systemd/seats/seat0";
constexpr const char* kSession = "/run/systemd/sessions/c1";

void requireRoot() {
  if (geteuid() != 0) {
    throw PrivateRootError("a private root can only be made as root: run this with an effective user id of 0");
  }
}

bool isProgram(const fs::path& file) {
  const bool executable = (fs::status(file).permissions() & fs::perms::owner_exec) != fs::perms::none;
  std::array<char, 4> start{};
  return executable && std::ifstream(file, std::ios::binary).read(start.data(), start.size()) &&
         std::string_view(start.data(), start.size()) == "\177ELF";
}

void setOwnerAndMode(const std::string& outside, uid_t user, gid_t group, mode_t mode) {
  if (chown(outside.c_str(), user, group) != 0 || chmod(outside.c_str(), mode) != 0) {
    throwErrno("setting owner and mode of " + outside);
  }
}

void makeParents(const std::string& root, const std::string& inside) {
  for (std::size_t slash = inside.find('/', 1); slash != std::string::npos; slash = inside.find('/', slash + 1)) {
    const std::string parent = root + inside.substr(0, slash);
    if (!fs::exists(fs::symlink_status(parent))) {
      makeDirectory(parent, 0755);
    }
  }
}

}  // namespace

PrivateRoot::PrivateRoot(const Options& options) {
  requireRoot();
  if (options.way == Way::Copies) {
    whyNoMounts_ = "a root of copies was asked for";
  } else {
    directory_ = makeMountedRoot({options.rootSizeBytes, options.device, options.fileSystem}, whyNoMounts_);
  }
  if (!directory_ && options.way == Way::Mounts) {
    throw PrivateRootError("this system allows no mounts of one's own: " + whyNoMounts_);
  }
  if (!directory_) {
    directory_ = makeCopiedRoot(hasDevices_);
  }
  furnishRecorder();
}

PrivateRoot::~PrivateRoot() = default;

std::optional<std::string> PrivateRoot::whyImpossible(Way way) {
  try {
    requireRoot();
    std::string whyNoMounts;
    const bool mounts = way != Way::Copies && makeMountedRoot({}, whyNoMounts) != nullptr;
    if (!mounts && way == Way::Mounts) {
      return "this system allows no mounts of one's own: " + whyNoMounts;
    }
    if (!mounts) {
      requireChroot();
    }
    return std::nullopt;
  } catch (const PrivateRootError& error) {
    return error.what();
  }
}

std::string PrivateRoot::path(std::string_view inside) const {
  return directory_->outsidePath() + (inside.starts_with('/') ? "" : "/") + std::string(inside);
}

void PrivateRoot::copyIn(const std::string& hostPath, const std::string& inside) {
  const fs::path target = path(inside);
  makeParents(directory_->outsidePath(), inside);
  const fs::file_status status = fs::symlink_status(hostPath);
  if (fs::is_symlink(status)) {
    makeLink(inside, fs::read_symlink(hostPath));
  } else if (fs::is_directory(status)) {
    makeDirectory(inside, static_cast<mode_t>(status.permissions()));
    for (const auto& item : fs::directory_iterator(hostPath)) {
      copyIn(item.path(), inside + "/" + item.path().filename().string());
    }
  } else if (fs::is_regular_file(status)) {
    std::error_code error;
    if (!fs::copy_file(hostPath, target, fs::copy_options::overwrite_existing, error)) {
      throw PrivateRootError("copying " + hostPath + " to " + target.string() + ": " + error.message());
    }
    setOwnerAndMode(target, 0, 0, static_cast<mode_t>(status.permissions()));
    if (isProgram(hostPath)) {
      directory_->provideLibrariesFor(hostPath);
    }
  } else {
    throw PrivateRootError("copying " + hostPath + ": no file, link or directory");
  }
}

void PrivateRoot::makeDirectory(const std::string& inside, mode_t mode, uid_t user, gid_t group) {
  makeParents(directory_->outsidePath(), inside);
  support::makeDirectory(path(inside), mode);
  setOwnerAndMode(path(inside), user, group, mode);
}

void PrivateRoot::makeLink(const std::string& inside, const std::string& target) {
  makeParents(directory_->outsidePath(), inside);
  support::makeLink(path(inside), target);
}

void PrivateRoot::writeFile(const std::string& inside, std::string_view content, mode_t mode, uid_t user, gid_t group) {
  makeParents(directory_->outsidePath(), inside);
  support::writeFile(path(inside), std::string(content), mode);
  setOwnerAndMode(path(inside), user, group, mode);
}

std::string PrivateRoot::readFile(const std::string& inside) const {
  std::ifstream file(path(inside), std::ios::binary);
  if (!file) {
    throwErrno("reading " + inside + " of the private root");
  }
  std::ostringstream content;
  content << file.rdbuf();
  return content.str();
}

bool PrivateRoot::exists(const std::string& inside) const { return fs::exists(fs::symlink_status(path(inside))); }

Snapshot PrivateRoot::snapshot(const std::string& inside) const {
  return takeSnapshot(directory_->outsidePath(), inside);
}

Outcome PrivateRoot::run(const std::vector<std::string>& arguments, const RunOptions& options) {
  return runIn(*directory_, arguments, options);
}

Outcome PrivateRoot::shell(const std::string& command, const RunOptions& options) {
  return run({"/bin/sh", "-c", command}, options);
}

RunningProgram PrivateRoot::start(const std::vector<std::string>& arguments, const RunOptions& options) {
  RunningProgram program(*directory_, arguments, options);
  program.requireLaunch();
  return program;
}

pid_t PrivateRoot::startProcess(const std::string& name, uid_t user, const std::string& program) {
  if (!hasProcesses()) {
    throw PrivateRootError("processes are not seen without a /proc of the root's own: " + whyNoMounts_);
  }
  const std::string file = program.empty() ? kNamedPrograms + name : program;
  if (!exists(file)) {
    copyIn(CORVANE_WAITING_PROCESS, file);
  }
  RunOptions options;
  options.user = user;
  options.group = user == 0 ? 0 : 20;
  processes_.push_back(start({file}, options));
  // Only what the program itself says proves that it already has its name.
  if (!processes_.back().waitForStandardOutput("r")) {
    throw PrivateRootError("the process " + name + " did not start");
  }
  return processes_.back().process();
}

void PrivateRoot::endProcess(pid_t process) {
  std::erase_if(processes_, [&](const RunningProgram& program) { return program.process() == process; });
}

int PrivateRoot::signalThatEnds(pid_t process) {
  const auto program = std::find_if(processes_.begin(), processes_.end(), [process](const RunningProgram& candidate) {
    return candidate.process() == process;
  });
  if (program == processes_.end()) {
    return 0;
  }
  const Outcome outcome = program->wait();
  return outcome.timedOut ? 0 : outcome.signal;
}

bool PrivateRoot::processRuns(pid_t process) {
  return std::any_of(processes_.begin(), processes_.end(),
                     [&](RunningProgram& program) { return program.process() == process && program.isRunning(); });
}

void PrivateRoot::setConsoleUser(std::optional<uid_t> user) {
  if (!user) {
    fs::remove(path(kSession));
    writeFile(kSeat, "IS_SEAT0=1\nCAN_MULTI_SESSION=1\nCAN_TTY=1\nCAN_GRAPHICAL=1\n");
    return;
  }
  const std::string number = std::to_string(*user);
  writeFile(kSession, "UID=" + number + "\nACTIVE=1\nSTATE=active\nREMOTE=0\nTYPE=x11\nCLASS=user\nSEAT=seat0\n");
  writeFile(kSeat, "IS_SEAT0=1\nCAN_MULTI_SESSION=1\nCAN_TTY=1\nCAN_GRAPHICAL=1\nACTIVE=c1\nACTIVE_UID=" + number +
                       "\nSESSIONS=c1\nUIDS=" + number + "\n");
}

void PrivateRoot::furnishRecorder() {
  makeDirectory(std::string(kRecorderDirectory), 0755);
  // Users other than root call commands too.
  writeFile(std::string(kRecorderCalls), "", 0666);
  writeFile(std::string(kRecorderRules), "", 0644);
  copyIn(CORVANE_COMMAND_RECORDER, kRecorderInside);
  copyIn(CORVANE_COMMAND_RECORDER, kLaunchctl);
}

void PrivateRoot::recordCommand(const std::string& inside) {
  if (exists(inside)) {
    directory_->putInPlaceOf(inside, kRecorderInside);
  } else {
    copyIn(CORVANE_COMMAND_RECORDER, inside);
  }
}

void PrivateRoot::setCommandRules(const std::vector<CommandRule>& rules) {
  std::string text;
  for (const CommandRule& rule : rules) {
    text += rule.line();
  }
  writeFile(std::string(kRecorderRules), text);
}

std::vector<RecordedCall> PrivateRoot::recordedCalls() const {
  std::istringstream lines(readFile(std::string(kRecorderCalls)));
  std::vector<RecordedCall> calls;
  std::string line;
  while (std::getline(lines, line)) {
    auto call = RecordedCall::fromLine(line + "\n");
    if (!call) {
      throw PrivateRootError("a record that cannot be read: " + line);
    }
    calls.push_back(std::move(*call));
  }
  return calls;
}

void PrivateRoot::forgetRecordedCalls() { writeFile(std::string(kRecorderCalls), "", 0666); }

}  // namespace support
