#include "frontend/EngineLogFile.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdio>

#include "general/foundation/Paths.h"
#include "general/logging/LogFile.h"

namespace frontend {

using foundation::Descriptor;

namespace {

constexpr mode_t kLogMode = 0600;
constexpr mode_t kFolderMode = 0755;

/// Links and files that others made could lead the log, or the reader of the log, astray (symlink race). So the file is
/// looked at after it was opened, when nobody can exchange it any more.
Descriptor openOwn(const std::string& path) {
  Descriptor file(
      open(path.c_str(), O_WRONLY | O_APPEND | O_CREAT | O_NOFOLLOW | O_NONBLOCK | O_NOCTTY | O_CLOEXEC, kLogMode));
  struct stat item {};
  const bool isOwn = file.isOpen() && fstat(file.number(), &item) == 0 && S_ISREG(item.st_mode) && item.st_nlink == 1 &&
                     item.st_uid == geteuid();
  return isOwn ? std::move(file) : Descriptor();
}

bool isTooBig(const Descriptor& file, std::size_t mostBytes) {
  struct stat item {};
  return fstat(file.number(), &item) == 0 && static_cast<std::size_t>(item.st_size) >= mostBytes;
}

}  // namespace

Descriptor openLogFile(const std::string& path, std::size_t mostBytes) {
  // A system that has no folder for logs yet gets one.
  const std::string folder = foundation::paths::deleteLastComponent(path);
  static_cast<void>(mkdir(foundation::paths::deleteLastComponent(folder).c_str(), kFolderMode));
  static_cast<void>(mkdir(folder.c_str(), kFolderMode));
  Descriptor file = openOwn(path);
  if (file.isOpen() && isTooBig(file, mostBytes) &&
      std::rename(path.c_str(), (path + std::string(logging::kEarlierLogSuffix)).c_str()) == 0) {
    file = openOwn(path);
  }
  return file;
}

}  // namespace frontend
