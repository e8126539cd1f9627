#include "tests/support/CapturedLog.h"

#include <fcntl.h>
#include <sys/mman.h>
#include <unistd.h>

#include <algorithm>
#include <regex>
#include <sstream>
#include <stdexcept>

namespace tests {

std::vector<LoggedMessage> parseLog(std::string_view standardError) {
  static const std::regex kFirstLine(R"(^[A-Z][a-z]{2} [ 0-9][0-9] \d\d:\d\d:\d\d \S+ .*?\[\d+\] <([A-Z][a-z]+)>: )");
  std::vector<LoggedMessage> messages;
  std::istringstream lines{std::string(standardError)};
  bool insideMessage = false;
  for (std::string line; std::getline(lines, line);) {
    std::smatch parts;
    if (std::regex_search(line, parts, kFirstLine)) {
      messages.push_back({parts[1], parts.suffix()});
      insideMessage = true;
    } else if (insideMessage && line.starts_with('\t')) {
      messages.back().text += "\n" + line.substr(1);
    } else {
      insideMessage = false;
    }
  }
  return messages;
}

CapturedLog::CapturedLog()
    : capture_(memfd_create("captured log", MFD_CLOEXEC)), original_(fcntl(STDERR_FILENO, F_DUPFD_CLOEXEC, 0)) {
  // Appending: children write here too, and must not overwrite each other's lines.
  if (capture_ < 0 || original_ < 0 || fcntl(capture_, F_SETFL, O_APPEND) != 0 || dup2(capture_, STDERR_FILENO) < 0) {
    throw std::runtime_error("cannot capture standard error");
  }
}

CapturedLog::~CapturedLog() {
  dup2(original_, STDERR_FILENO);
  close(original_);
  close(capture_);
}

std::string CapturedLog::text() const {
  std::string content;
  char piece[16384];
  off_t offset = 0;
  for (ssize_t count = 0; (count = pread(capture_, piece, sizeof piece, offset)) > 0; offset += count) {
    content.append(piece, static_cast<std::size_t>(count));
  }
  return content;
}

std::vector<std::string> CapturedLog::texts(std::string_view level) const {
  std::vector<std::string> found;
  for (LoggedMessage& message : messages()) {
    if (message.level == level) {
      found.push_back(std::move(message.text));
    }
  }
  return found;
}

std::size_t CapturedLog::count(std::string_view level, std::string_view message) const {
  const auto all = messages();
  return static_cast<std::size_t>(std::count_if(all.begin(), all.end(), [&](const LoggedMessage& logged) {
    return logged.level == level && logged.text == message;
  }));
}

}  // namespace tests
