#include "general/system/linux/ProcProcessTable.h"

#include <dirent.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <charconv>
#include <memory>

#include "general/system/linux/SmallFile.h"

namespace platform {

namespace {

// Both files are a few hundred bytes up to a few kilobytes, the latter for processes of many groups.
constexpr std::size_t kLongestProcFile = std::size_t{1} << 20U;
// Processes that start between the count and the reading need not cost another round.
constexpr std::size_t kSpareRecords = 16;

struct CloseDirectory {
  void operator()(DIR* directory) const { closedir(directory); }
};
using Directory = std::unique_ptr<DIR, CloseDirectory>;

std::optional<std::int32_t> processIdNamed(std::string_view name) {
  std::int32_t number = 0;
  const auto [end, error] = std::from_chars(name.data(), name.data() + name.size(), number);
  if (error != std::errc{} || end != name.data() + name.size() || number <= 0) {
    return std::nullopt;
  }
  return number;
}

/// The next process id; nothing at the end, with errno 0, or when the folder cannot be read further.
std::optional<std::int32_t> nextProcessId(const Directory& directory) {
  while (true) {
    errno = 0;
    const dirent* const entry = readdir(directory.get());
    if (entry == nullptr) {
      return std::nullopt;
    }
    if (const auto processId = processIdNamed(entry->d_name)) {
      return processId;
    }
  }
}

/// Whether what could not be read is none of the list's: a process that ended while it was looked at, or one that the
/// system hides from those who are not root.
bool isLeftOut(int error) {
  const bool isHidden = (error == EACCES || error == EPERM) && geteuid() != 0;
  return isHidden || error == ENOENT || error == ESRCH || error == EINVAL;
}

/// Nothing for a process that is left out, with errno 0, and for one that cannot be read.
std::optional<ProcessRecord> readRecord(const std::string& directory, std::int32_t processId) {
  const std::string folder = directory + "/" + std::to_string(processId);
  const auto stat = readSmallFile(folder + "/stat", kLongestProcFile);
  const auto status = stat ? readSmallFile(folder + "/status", kLongestProcFile) : std::nullopt;
  if (!status) {
    errno = isLeftOut(errno) ? 0 : errno;
    return std::nullopt;
  }
  errno = 0;
  const auto command = commandInStat(*stat);
  const auto userId = effectiveUserIdInStatus(*status);
  if (!command || !userId) {
    return std::nullopt;
  }
  ProcessRecord record{};
  std::copy_n(command->begin(), std::min(command->size(), sizeof record.command - 1), std::begin(record.command));
  record.processId = processId;
  record.effectiveUserId = *userId;
  return record;
}

}  // namespace

std::optional<std::string_view> commandInStat(std::string_view stat) {
  const std::size_t begin = stat.find('(');
  const std::size_t end = stat.rfind(')');
  if (begin == std::string_view::npos || end == std::string_view::npos || end < begin) {
    return std::nullopt;
  }
  return stat.substr(begin + 1, end - begin - 1);
}

std::optional<int> parentInStat(std::string_view stat) {
  // After the name: ") ", one letter for the state, a blank, the number.
  constexpr std::size_t kFromEndOfName = 4;
  const std::size_t number = stat.rfind(')');
  if (number == std::string_view::npos || number + kFromEndOfName >= stat.size()) {
    return std::nullopt;
  }
  const std::string_view rest = stat.substr(number + kFromEndOfName);
  int parent = 0;
  const auto [end, error] = std::from_chars(rest.data(), rest.data() + rest.size(), parent);
  return error == std::errc{} && parent >= 0 ? std::optional(parent) : std::nullopt;
}

std::optional<std::uint32_t> effectiveUserIdInStatus(std::string_view status) {
  // The name stands before this line in the file, but the kernel escapes line ends in it.
  constexpr std::string_view kLabel = "\nUid:\t";
  const std::size_t label = status.find(kLabel);
  if (label == std::string_view::npos) {
    return std::nullopt;
  }
  const std::size_t line = label + kLabel.size();
  const std::size_t separator = status.find_first_of("\t\n", line);
  if (separator == std::string_view::npos || status[separator] != '\t') {
    return std::nullopt;
  }
  const std::string_view rest = status.substr(separator + 1);
  std::uint32_t userId = 0;
  const auto [end, error] = std::from_chars(rest.data(), rest.data() + rest.size(), userId);
  return error == std::errc{} ? std::optional(userId) : std::nullopt;
}

int ProcProcessTable::size(std::size_t* count) {
  const Directory directory(opendir(directory_.c_str()));
  if (!directory) {
    return errno;
  }
  std::size_t found = 0;
  while (nextProcessId(directory)) {
    ++found;
  }
  *count = found + kSpareRecords;
  return errno;
}

int ProcProcessTable::read(std::span<ProcessRecord> room, std::size_t* count) {
  const Directory directory(opendir(directory_.c_str()));
  if (!directory) {
    return errno;
  }
  std::size_t filled = 0;
  while (const auto processId = nextProcessId(directory)) {
    const auto record = readRecord(directory_, *processId);
    if (!record && errno != 0) {
      // ENOMEM would mean that the room is too small.
      return errno == ENOMEM ? EAGAIN : errno;
    }
    if (!record) {
      continue;
    }
    if (filled == room.size()) {
      return ENOMEM;
    }
    room[filled++] = *record;
  }
  *count = filled;
  return errno;
}

}  // namespace platform
