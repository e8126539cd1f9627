#include "general/logging/LineOutput.h"

#include <poll.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <climits>
#include <utility>

#include "general/logging/OutputPrimitives.h"

namespace logging {

namespace {

/// What can be written at once; -1 with errno set, EAGAIN when nothing can.
ssize_t writeSome(int descriptor, std::string_view bytes) {
  switch (primitives::kindOfOutput(descriptor)) {
    case primitives::OutputKind::NeverWaits:
      return write(descriptor, bytes.data(), bytes.size());
    case primitives::OutputKind::WritesWithoutWaiting:
      if (const auto written = primitives::writeWithoutWaiting(descriptor, bytes)) {
        return *written;
      }
      break;
    case primitives::OutputKind::Waits:
      break;
  }
  // What is ready takes this much in one piece.
  pollfd watched{descriptor, POLLOUT, 0};
  if (poll(&watched, 1, 0) == 0) {
    errno = EAGAIN;
    return -1;
  }
  return write(descriptor, bytes.data(), std::min<std::size_t>(bytes.size(), PIPE_BUF));
}

bool isBusy(int errorNumber) { return errorNumber == EAGAIN || errorNumber == EWOULDBLOCK; }

}  // namespace

void LineOutput::keepWithin(LogFile file) {
  const foundation::MutexLock lock(mutex_);
  file_.emplace(std::move(file));
}

void LineOutput::setPatience(std::chrono::milliseconds patience) {
  const foundation::MutexLock lock(mutex_);
  patience_.setWhole(patience);
}

void LineOutput::write(std::string_view line, const DroppedLine& droppedLine) {
  const foundation::MutexLock lock(mutex_);
  if ((file_ && !file_->makeRoom(descriptor_, line.size())) || !hasToldDropped(droppedLine)) {
    patience_.drop();
    return;
  }
  switch (writeAll(line, true)) {
    case Outcome::Written:
      patience_.take(line.size());
      break;
    case Outcome::Dropped:
      patience_.drop();
      break;
    case Outcome::Impossible:
      break;
  }
}

void LineOutput::tellDropped(const DroppedLine& droppedLine) {
  const foundation::MutexLock lock(mutex_);
  static_cast<void>(hasToldDropped(droppedLine));
}

bool LineOutput::hasToldDropped(const DroppedLine& droppedLine) {
  if (patience_.dropped() == 0) {
    return true;
  }
  if (writeAll(droppedLine(patience_.dropped()), false) == Outcome::Dropped) {
    return false;
  }
  patience_.tell();
  return true;
}

LineOutput::Outcome LineOutput::writeAll(std::string_view line, bool wait) {
  const std::string whole = isTorn_ ? "\n" + std::string(line) : "";
  std::string_view rest = isTorn_ ? whole : line;
  const std::size_t size = rest.size();
  while (!rest.empty()) {
    const ssize_t written = writeSome(descriptor_, rest);
    if (written > 0) {
      rest.remove_prefix(static_cast<std::size_t>(written));
    } else if (written < 0 && errno == EINTR) {
      continue;
    } else if (written == 0 || !isBusy(errno)) {
      return Outcome::Impossible;
    } else if (!wait || !patience_.waitToWrite(descriptor_)) {
      isTorn_ = isTorn_ || rest.size() < size;
      return Outcome::Dropped;
    }
  }
  isTorn_ = false;
  return Outcome::Written;
}

}  // namespace logging
