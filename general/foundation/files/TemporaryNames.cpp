#include "general/foundation/files/TemporaryNames.h"

#include <dirent.h>
#include <fcntl.h>
#include <signal.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <charconv>
#include <cstdint>
#include <memory>
#include <optional>
#include <set>
#include <span>
#include <string_view>
#include <utility>
#include <vector>

#include "general/foundation/Descriptor.h"
#include "general/foundation/Hexadecimal.h"
#include "general/foundation/Mutex.h"
#include "general/foundation/Paths.h"
#include "general/foundation/ProcessStartPrimitives.h"
#include "general/foundation/RandomPrimitives.h"
#include "general/foundation/files/TrustedFolder.h"
#include "general/foundation/files/internal/TreeRemoval.h"

namespace foundation::temporary_names {

namespace {

constexpr std::string_view kPrefix = ".com.corvane.installer.";
// With and without the start of the process: a name without it has to be told from all that ever had that number.
constexpr std::size_t kRandomBytes = 8;
constexpr std::size_t kRandomBytesWithoutStart = 16;

struct Maker {
  pid_t process = 0;
  std::optional<std::uint64_t> start;
};

std::string randomDigits(std::size_t count) {
  std::array<std::byte, kRandomBytesWithoutStart> room{};
  const auto bytes = std::span(room).first(count);
  fillWithRandomBytes(bytes);
  return hexadecimal::lowerCase(bytes);
}

bool areRandomDigits(std::string_view digits, std::size_t count) {
  return digits.size() == 2 * count && hexadecimal::isLowerCase(digits);
}

// The number that the text is, as we write numbers: no sign, no zero in front.
template <class Number>
std::optional<Number> numberFrom(std::string_view text) {
  Number number = 0;
  const char* const end = text.data() + text.size();
  const auto [rest, error] = std::from_chars(text.data(), end, number);
  const bool ours = error == std::errc() && rest == end && text.front() != '0' && number > 0;
  return ours ? std::optional(number) : std::nullopt;
}

// Takes the text before the next dot, and the dot, off the name; empty when there is none.
std::string_view takeField(std::string_view& name) {
  const std::size_t dot = std::min(name.find('.'), name.size());
  const std::string_view field = name.substr(0, dot);
  name.remove_prefix(std::min(dot + 1, name.size()));
  return field;
}

// The process that made a name of exactly our form; nothing for any other name.
std::optional<Maker> makerOf(std::string_view name) {
  if (!name.starts_with(kPrefix)) {
    return std::nullopt;
  }
  name.remove_prefix(kPrefix.size());
  const auto process = numberFrom<pid_t>(takeField(name));
  if (!process) {
    return std::nullopt;
  }
  if (areRandomDigits(name, kRandomBytesWithoutStart)) {
    return Maker{*process, std::nullopt};
  }
  const auto start = numberFrom<std::uint64_t>(takeField(name));
  if (!start || !areRandomDigits(name, kRandomBytes)) {
    return std::nullopt;
  }
  return Maker{*process, start};
}

bool isGone(const Maker& maker) {
  if (kill(maker.process, 0) != 0 && errno == ESRCH) {
    return true;
  }
  const auto start = maker.start ? startOfProcess(maker.process) : std::nullopt;
  return start && *start != *maker.start;
}

// This process. Asked for once: it makes many names.
Maker ourselves() {
  static Mutex mutex;
  static Maker maker CORVANE_GUARDED_BY(mutex);
  const MutexLock lock(mutex);
  if (maker.process != getpid()) {
    maker = Maker{getpid(), startOfProcess(getpid())};
  }
  return maker;
}

std::string newName() {
  const Maker maker = ourselves();
  std::string name = std::string(kPrefix) + std::to_string(maker.process) + ".";
  if (!maker.start) {
    return name + randomDigits(kRandomBytesWithoutStart);
  }
  return name + std::to_string(*maker.start) + "." + randomDigits(kRandomBytes);
}

// Items get their final owner under their temporary name, so what a killed run left may belong to anybody. It is ours
// all the same in a folder that only its owner may write to: such an owner could fake the name only to lose the item.
bool isProvenOwn(const struct stat& item, const struct stat& folder) {
  return item.st_uid == geteuid() || trusted_folder::isItsOwnersAlone(folder.st_mode);
}

void removeLeftover(int folder, const char* name) {
  struct stat item {};
  struct stat place {};
  if (fstatat(folder, name, &item, AT_SYMLINK_NOFOLLOW) != 0 || fstat(folder, &place) != 0 ||
      !isProvenOwn(item, place)) {
    return;
  }
  if (S_ISREG(item.st_mode) || S_ISLNK(item.st_mode)) {
    unlinkat(folder, name, 0);
  } else if (S_ISDIR(item.st_mode)) {
    unlinkat(folder, name, AT_REMOVEDIR);
  }
}

std::vector<std::string> leftoversIn(DIR* stream) {
  std::vector<std::string> leftovers;
  while (const dirent* entry = readdir(stream)) {
    const auto maker = makerOf(entry->d_name);
    if (maker && isGone(*maker)) {
      leftovers.emplace_back(entry->d_name);
    }
  }
  return leftovers;
}

bool isFirstVisit(const std::string& folder) {
  static Mutex mutex;
  static std::set<std::string> visited CORVANE_GUARDED_BY(mutex);
  const MutexLock lock(mutex);
  return visited.insert(folder).second;
}

}  // namespace

std::string make(const std::string& folder) {
  if (isFirstVisit(folder)) {
    sweep(folder);
  }
  std::string name = newName();
  return folder.empty() ? name : paths::append(folder, name);
}

void sweep(const std::string& folder) {
  const std::unique_ptr<DIR, int (*)(DIR*)> stream(opendir(folder.empty() ? "." : folder.c_str()), &closedir);
  if (!stream) {
    return;
  }
  for (const std::string& name : leftoversIn(stream.get())) {
    removeLeftover(dirfd(stream.get()), name.c_str());
  }
}

void sweepWithContent(const std::string& folder) {
  sweep(folder);
  const std::unique_ptr<DIR, int (*)(DIR*)> stream(opendir(folder.c_str()), &closedir);
  if (!stream) {
    return;
  }
  for (const std::string& name : leftoversIn(stream.get())) {
    Descriptor held(fcntl(dirfd(stream.get()), F_DUPFD_CLOEXEC, 0));
    if (held.isOpen()) {
      TreeRemoval(std::move(held)).remove(name);
    }
  }
}

bool isTemporary(std::string_view name) { return makerOf(name).has_value(); }

}  // namespace foundation::temporary_names
