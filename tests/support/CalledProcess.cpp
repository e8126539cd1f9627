#include "tests/support/CalledProcess.h"

#include <sys/uio.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <charconv>
#include <climits>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <sstream>

#include "tests/support/CallKinds.h"

namespace support {
namespace {

constexpr std::string_view kEngineFile = "/InstallationDeployer";

std::string readWhole(const std::string& path) {
  std::ostringstream content;
  content << std::ifstream(path, std::ios::binary).rdbuf();
  return content.str();
}

std::string readLink(const std::string& path) {
  std::array<char, PATH_MAX> target{};
  const ssize_t length = readlink(path.c_str(), target.data(), target.size());
  return {target.data(), length < 0 ? 0 : static_cast<std::size_t>(length)};
}

bool isWithin(std::uint64_t address, std::string_view range) {
  std::uint64_t begin = 0;
  std::uint64_t end = 0;
  const auto dash = std::from_chars(range.data(), range.data() + range.size(), begin, 16);
  std::from_chars(dash.ptr + 1, range.data() + range.size(), end, 16);
  return begin <= address && address < end;
}

}  // namespace

std::string CalledProcess::inProc(const std::string& name) const {
  return "/proc/" + std::to_string(asked_.pid) + "/" + name;
}

bool CalledProcess::isEngine() const {
  // A receipt that is being removed runs on: its file is then another name and "(deleted)".
  return readLink(inProc("exe")).find(kEngineFile) != std::string::npos;
}

pid_t CalledProcess::number() const {
  std::ifstream status(inProc("status"));
  std::string line;
  while (std::getline(status, line)) {
    if (line.starts_with("Tgid:")) {
      return static_cast<pid_t>(std::strtol(line.c_str() + std::strlen("Tgid:"), nullptr, 10));
    }
  }
  return static_cast<pid_t>(asked_.pid);
}

EngineRole CalledProcess::roleIn(const std::string& engine) const {
  const std::string line = readWhole(inProc("cmdline"));
  if (line.find(std::string("\0--receipt", 10)) != std::string::npos) {
    return EngineRole::Receipt;
  }
  return line.c_str() == engine ? EngineRole::Engine : EngineRole::Nested;
}

bool CalledProcess::isInLoader(std::uint64_t instruction) const {
  std::ifstream maps(inProc("maps"));
  std::string line;
  while (std::getline(maps, line)) {
    if (isWithin(instruction, line.substr(0, line.find(' ')))) {
      return line.find("/ld-linux") != std::string::npos || line.find("/ld-2") != std::string::npos;
    }
  }
  return false;
}

std::string CalledProcess::textAt(std::uint64_t address) const {
  std::array<char, PATH_MAX> text{};
  // Page by page: what lies behind the end of the text need not be there.
  constexpr std::uint64_t kPage = 4096;
  std::size_t length = 0;
  while (length < text.size()) {
    const std::uint64_t from = address + length;
    const std::size_t piece = std::min<std::size_t>(kPage - from % kPage, text.size() - length);
    const iovec local{text.data() + length, piece};
    // NOLINTNEXTLINE(performance-no-int-to-ptr): an address of another process
    const iovec remote{reinterpret_cast<void*>(from), piece};
    const ssize_t count = process_vm_readv(static_cast<pid_t>(asked_.pid), &local, 1, &remote, 1, 0);
    if (count <= 0) {
      break;
    }
    length += static_cast<std::size_t>(count);
    if (std::memchr(text.data(), 0, length) != nullptr) {
      break;
    }
  }
  return {text.data(), strnlen(text.data(), length)};
}

std::string CalledProcess::openFile(std::uint64_t descriptor) const {
  const int number = static_cast<int>(descriptor);
  return number < 0 ? "" : readLink(inProc("fd/" + std::to_string(number)));
}

std::string CalledProcess::describeCall() const {
  const auto call = namedCall(asked_.data.nr);
  if (!call) {
    return std::to_string(asked_.data.nr);
  }
  std::string text(call->name);
  if (call->descriptor != NamedCall::kNone) {
    text += " " + openFile(asked_.data.args[call->descriptor]);
  }
  for (const int path : {call->path, call->secondPath}) {
    if (path != NamedCall::kNone) {
      text += " '" + textAt(asked_.data.args[path]) + "'";
    }
  }
  return text;
}

}  // namespace support
