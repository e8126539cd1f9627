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
#include <memory>
#include <optional>
#include <set>
#include <string_view>
#include <utility>
#include <vector>

#include "general/foundation/Descriptor.h"
#include "general/foundation/Hexadecimal.h"
#include "general/foundation/Mutex.h"
#include "general/foundation/Paths.h"
#include "general/foundation/RandomPrimitives.h"
#include "general/foundation/files/TrustedFolder.h"
#include "general/foundation/files/internal/TreeRemoval.h"

namespace foundation::temporary_names {

namespace {

constexpr std::string_view kPrefix = ".com.corvane.installer.";
constexpr std::size_t kRandomBytes = 16;

std::string randomDigits() {
  std::array<std::byte, kRandomBytes> random{};
  fillWithRandomBytes(random);
  return hexadecimal::lowerCase(random);
}

// The process that made a name of exactly our form; nothing for any other name.
std::optional<pid_t> makerOf(std::string_view name) {
  if (!name.starts_with(kPrefix)) {
    return std::nullopt;
  }
  name.remove_prefix(kPrefix.size());
  const std::size_t dot = name.find('.');
  if (dot == std::string_view::npos || dot == 0 || name.front() == '0') {
    return std::nullopt;
  }
  const std::string_view digits = name.substr(dot + 1);
  if (digits.size() != 2 * kRandomBytes || !hexadecimal::isLowerCase(digits)) {
    return std::nullopt;
  }
  pid_t process = 0;
  const char* const end = name.data() + dot;
  const auto [rest, error] = std::from_chars(name.data(), end, process);
  if (error != std::errc() || rest != end || process <= 0) {
    return std::nullopt;
  }
  return process;
}

bool isDead(pid_t process) { return kill(process, 0) != 0 && errno == ESRCH; }

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
    if (maker && isDead(*maker)) {
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
  std::string name(kPrefix);
  name.append(std::to_string(getpid())).append(".").append(randomDigits());
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
