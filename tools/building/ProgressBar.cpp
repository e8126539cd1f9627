#include "tools/building/ProgressBar.h"

#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <utility>

#include "general/foundation/propertylist/TextFormat.h"
#include "general/terminal/PrintableText.h"
#include "general/terminal/Terminal.h"

namespace bundletool {

using terminal::sizeText;

namespace {

constexpr std::chrono::milliseconds kBetweenDrawings(100);

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
    output_(terminal::kEraseLine);
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
  return terminal::lineWithBar(done, tail, columns_);
}

void ProgressBar::draw() {
  const auto now = Clock::now();
  if (!output_ || (isShown_ && now - lastDrawn_ < kBetweenDrawings)) {
    return;
  }
  output_(std::string(terminal::kEraseLine) + line());
  isShown_ = true;
  lastDrawn_ = now;
}

ProgressBar::Output terminalOutput() {
  if (!terminal::canRedraw(STDERR_FILENO)) {
    return {};
  }
  return [](std::string_view text) { terminal::writeAtOnce(stderr, text); };
}

std::size_t terminalColumns() { return terminal::columnsOf(STDERR_FILENO); }

}  // namespace bundletool
