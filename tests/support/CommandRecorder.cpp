// Stands in for a command of the system: writes down how it was called and behaves as its rules say. Linked statically,
// so that it runs in a root that holds nothing else.

#include <fcntl.h>
#include <sys/auxv.h>
#include <unistd.h>

#include <cstdio>
#include <fstream>
#include <string>

#include "tests/support/CallRecord.h"

namespace {

constexpr int kRecorderFailed = 99;

support::RecordedCall thisCall(int count, char** values) {
  support::RecordedCall call;
  // The name a program is given and the file that was started can differ; the kernel knows the latter, without /proc.
  // NOLINTNEXTLINE(performance-no-int-to-ptr): the interface hands pointers out as numbers
  const auto* startedFile = reinterpret_cast<const char*>(getauxval(AT_EXECFN));
  call.path = startedFile == nullptr ? values[0] : startedFile;
  call.realUser = getuid();
  call.effectiveUser = geteuid();
  char directory[4096];
  if (getcwd(directory, sizeof directory) != nullptr) {
    call.currentDirectory = directory;
  }
  call.arguments.assign(values, values + count);
  return call;
}

bool writeAll(int descriptor, const std::string& text) {
  std::size_t done = 0;
  while (done < text.size()) {
    const ssize_t written = write(descriptor, text.data() + done, text.size() - done);
    if (written <= 0) {
      return false;
    }
    done += static_cast<std::size_t>(written);
  }
  return true;
}

bool writeDown(const support::RecordedCall& call) {
  const int calls = open(std::string(support::kRecorderCalls).c_str(), O_WRONLY | O_APPEND | O_CLOEXEC);
  if (calls < 0) {
    return false;
  }
  const std::string line = call.line();
  // One write for the whole line: calls of several processes at once do not mix.
  const bool whole = write(calls, line.data(), line.size()) == static_cast<ssize_t>(line.size());
  close(calls);
  return whole;
}

support::CommandRule ruleFor(const support::RecordedCall& call) {
  std::ifstream rules{std::string(support::kRecorderRules)};
  std::string line;
  while (std::getline(rules, line)) {
    const auto rule = support::CommandRule::fromLine(line + "\n");
    if (rule && rule->matches(call)) {
      return *rule;
    }
  }
  return {};
}

}  // namespace

int main(int count, char** values) {
  const support::RecordedCall call = thisCall(count, values);
  if (!writeDown(call)) {
    std::fputs("command recorder: the call could not be written down\n", stderr);
    return kRecorderFailed;
  }
  const support::CommandRule rule = ruleFor(call);
  const bool printed = writeAll(STDERR_FILENO, rule.standardError + std::string(rule.standardErrorBytes, 'e')) &&
                       writeAll(STDOUT_FILENO, std::string(rule.standardOutputBytes, 'o'));
  return printed ? rule.exitCode : kRecorderFailed;
}
