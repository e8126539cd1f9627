// private-root: runs a command in a private root directory and shows what it left there.

#include <getopt.h>

#include <charconv>
#include <cstdio>
#include <exception>
#include <iostream>
#include <string>
#include <vector>

#include "tests/support/PrivateRoot.h"

namespace {

using support::PrivateRoot;

constexpr int kUsageError = 2;
constexpr int kRootError = 125;
constexpr int kSignalBase = 128;

constexpr const char* kUsage =
    "usage: private-root [options] -- command [argument ...]\n"
    "Runs a command as root in a root directory of its own, which is gone afterwards. The host is not touched.\n"
    "before the command:\n"
    "  --copy HOST=INSIDE      copy a file or folder of the host to a path inside\n"
    "  --console-user UID      let the user be the one at the console\n"
    "  --process NAME=UID      let a process of this name and user run (not in a root of copies)\n"
    "  --record PATH           record the calls of this command, as is done with /bin/launchctl\n"
    "  --size BYTES            how much the root holds (not in a root of copies)\n"
    "  --copies                a root of copies even where mounts are allowed\n"
    "after the command, in the order given:\n"
    "  --heading TEXT          print a heading\n"
    "  --list PATH             list a tree: mode, owner, group, size, path\n"
    "  --show PATH             print a file\n"
    "  --calls                 print the recorded calls\n"
    "  --exit-code             print the command's exit code\n"
    "  --shell COMMAND         run a shell command inside\n"
    "The exit code is the command's (128 + the signal that ended it), 2 for a wrong call, 125 when no private root can "
    "be\n"
    "made or a step before or after the command fails.\n";

enum Option { Copy = 1, ConsoleUser, Process, Record, Size, Copies, Heading, List, Show, Calls, ExitCode, Shell, Help };

struct Step {
  int option = 0;
  std::string value;
};

struct Invocation {
  std::vector<Step> before;
  std::vector<Step> after;
  std::vector<std::string> command;
  PrivateRoot::Options root;
};

/// A call that cannot be understood; what() says what is wrong with it.
class UsageError : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

template <class Number>
Number numberIn(const std::string& text) {
  Number value{};
  const char* end = text.data() + text.size();
  const auto parsed = std::from_chars(text.data(), end, value);
  if (text.empty() || parsed.ec != std::errc{} || parsed.ptr != end) {
    throw UsageError("not a number: \"" + text + "\"");
  }
  return value;
}

std::pair<std::string, std::string> pairIn(const std::string& text) {
  const std::size_t equals = text.rfind('=');
  if (equals == std::string::npos) {
    throw UsageError("not of the form A=B: \"" + text + "\"");
  }
  return {text.substr(0, equals), text.substr(equals + 1)};
}

Invocation parse(int count, char** values) {
  static const option kOptions[] = {{"copy", required_argument, nullptr, Copy},
                                    {"console-user", required_argument, nullptr, ConsoleUser},
                                    {"process", required_argument, nullptr, Process},
                                    {"record", required_argument, nullptr, Record},
                                    {"size", required_argument, nullptr, Size},
                                    {"copies", no_argument, nullptr, Copies},
                                    {"heading", required_argument, nullptr, Heading},
                                    {"list", required_argument, nullptr, List},
                                    {"show", required_argument, nullptr, Show},
                                    {"calls", no_argument, nullptr, Calls},
                                    {"exit-code", no_argument, nullptr, ExitCode},
                                    {"shell", required_argument, nullptr, Shell},
                                    {"help", no_argument, nullptr, Help},
                                    {nullptr, 0, nullptr, 0}};
  Invocation invocation;
  int found = 0;
  // "+": options behind the command are the command's own.
  while ((found = getopt_long(count, values, "+", kOptions, nullptr)) != -1) {
    const std::string value = optarg == nullptr ? "" : optarg;
    if (found == Help) {
      std::cout << kUsage;
      std::exit(0);
    } else if (found == Size) {
      invocation.root.rootSizeBytes = numberIn<std::uint64_t>(value);
    } else if (found == Copies) {
      invocation.root.way = PrivateRoot::Way::Copies;
    } else if (found >= Heading && found <= Shell) {
      invocation.after.push_back({found, value});
    } else if (found >= Copy && found <= Record) {
      invocation.before.push_back({found, value});
    } else {
      throw UsageError("an option is wrong");
    }
  }
  invocation.command.assign(values + optind, values + count);
  if (invocation.command.empty()) {
    throw UsageError("no command is given");
  }
  return invocation;
}

void prepare(PrivateRoot& root, const Step& step) {
  if (step.option == Copy) {
    const auto [host, inside] = pairIn(step.value);
    root.copyIn(host, inside);
  } else if (step.option == ConsoleUser) {
    root.setConsoleUser(numberIn<uid_t>(step.value));
  } else if (step.option == Process) {
    const auto [name, user] = pairIn(step.value);
    if (root.hasProcesses()) {
      const pid_t process = root.startProcess(name, numberIn<uid_t>(user));
      std::cerr << "private-root: " << name << " of user " << user << " is process " << process << "\n";
    } else {
      std::cerr << "private-root: no process " << name << ": " << root.whyNoMounts() << "\n";
    }
  } else {
    root.recordCommand(step.value);
  }
}

std::string shellWord(const std::string& argument) {
  const bool plain = !argument.empty() && argument.find_first_not_of(
                                              "abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ"
                                              "0123456789_-+=./,:@%") == std::string::npos;
  if (plain) {
    return argument;
  }
  std::string word = "'";
  for (const char character : argument) {
    word += character == '\'' ? std::string("'\\''") : std::string(1, character);
  }
  return word + "'";
}

void printCalls(const PrivateRoot& root) {
  for (const support::RecordedCall& call : root.recordedCalls()) {
    std::string line = call.path;
    for (std::size_t index = 1; index < call.arguments.size(); ++index) {
      line += " " + shellWord(call.arguments[index]);
    }
    std::cout << line << "   (uid " << call.realUser << ", euid " << call.effectiveUser << ", in "
              << shellWord(call.currentDirectory) << ")\n";
  }
}

void runShell(PrivateRoot& root, const std::string& command) {
  support::RunOptions options;
  options.inheritOutput = true;
  if (!root.shell(command, options).succeeded()) {
    throw support::PrivateRootError("the command failed: " + command);
  }
}

void show(PrivateRoot& root, const Step& step, int exitCode) {
  switch (step.option) {
    case Heading:
      std::cout << "\n== " << step.value << " ==\n";
      break;
    case List:
      std::cout << support::listing(root.snapshot(step.value));
      break;
    case Show:
      std::cout << root.readFile(step.value);
      break;
    case Calls:
      printCalls(root);
      break;
    case ExitCode:
      std::cout << exitCode << "\n";
      break;
    default:
      runShell(root, step.value);
  }
  std::cout.flush();
}

int run(const Invocation& invocation) {
  PrivateRoot root(invocation.root);
  for (const Step& step : invocation.before) {
    prepare(root, step);
  }
  support::RunOptions options;
  options.inheritOutput = true;
  std::cout.flush();
  const support::Outcome outcome = root.run(invocation.command, options);
  const int exitCode = outcome.signal != 0 ? kSignalBase + outcome.signal : outcome.exitCode;
  for (const Step& step : invocation.after) {
    show(root, step, exitCode);
  }
  return exitCode;
}

}  // namespace

int main(int count, char** values) {
  try {
    return run(parse(count, values));
  } catch (const UsageError& error) {
    std::cerr << "private-root: " << error.what() << "\n" << kUsage;
    return kUsageError;
  } catch (const std::exception& error) {
    std::cerr << "private-root: " << error.what() << "\n";
    return kRootError;
  }
}
