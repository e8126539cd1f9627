#include "tools/ProgressBar.h"

#include <sys/ioctl.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <utility>

#include "general/foundation/TextFormat.h"
#include "tools/PrintableText.h"

namespace bundletool {

namespace {

constexpr std::chrono::milliseconds kBetweenDrawings(100);
constexpr std::size_t kLongestBar = 30;
constexpr std::size_t kDefaultColumns = 80;
constexpr std::string_view kEraseLine = "\r\x1b[K";

}  // namespace

ProgressBar::ProgressBar(Output output, std::size_t columns) : output_(std::move(output)), columns_(columns) {}

ProgressBar::~ProgressBar() { erase(); }

void ProgressBar::start(std::uint64_t files, std::uint64_t bytes) {
  files_ = files;
  bytes_ = bytes;
  draw();
}

void ProgressBar::addBytes(std::uint64_t bytes) {
  bytesDone_ += bytes;
  draw();
}

void ProgressBar::addFile() {
  ++filesDone_;
  draw();
}

void ProgressBar::erase() {
  if (isShown_) {
    output_(kEraseLine);
    isShown_ = false;
    lastDrawn_ = {};
  }
}

std::string ProgressBar::line() const {
  // Files and bytes both count, so that many small files and few big ones move the bar alike.
  const double bytesPart = bytes_ == 0 ? 1.0 : static_cast<double>(bytesDone_) / static_cast<double>(bytes_);
  const double filesPart = files_ == 0 ? 1.0 : static_cast<double>(filesDone_) / static_cast<double>(files_);
  const double done = std::clamp((bytesPart + filesPart) / 2, 0.0, 1.0);
  const std::string tail = foundation::format(" %3d %%  %llu of %llu files, %s of %s", static_cast<int>(done * 100),
                                              filesDone_, files_, sizeText(bytesDone_), sizeText(bytes_));
  const std::size_t room = columns_ > tail.size() + 3 ? columns_ - tail.size() - 3 : 0;
  const std::size_t length = std::min(room, kLongestBar);
  const auto filled = static_cast<std::size_t>(done * static_cast<double>(length));
  std::string text = "[" + std::string(filled, '#') + std::string(length - filled, '.') + "]" + tail;
  text.resize(std::min(text.size(), columns_ > 0 ? columns_ - 1 : 0));
  return text;
}

void ProgressBar::draw() {
  const auto now = Clock::now();
  if (!output_ || (isShown_ && now - lastDrawn_ < kBetweenDrawings)) {
    return;
  }
  output_(std::string(kEraseLine) + line());
  isShown_ = true;
  lastDrawn_ = now;
}

ProgressBar::Output terminalOutput() {
  if (isatty(STDERR_FILENO) == 0) {
    return {};
  }
  return [](std::string_view text) {
    std::fwrite(text.data(), 1, text.size(), stderr);
    std::fflush(stderr);
  };
}

std::size_t terminalColumns() {
  winsize size{};
  if (ioctl(STDERR_FILENO, TIOCGWINSZ, &size) != 0 || size.ws_col == 0) {
    return kDefaultColumns;
  }
  return size.ws_col;
}

}  // namespace bundletool
