#include "general/terminal/Terminal.h"

#include <sys/ioctl.h>
#include <unistd.h>

#include <algorithm>
#include <cstdlib>

namespace terminal {

namespace {

constexpr std::size_t kLongestBar = 30;
constexpr std::size_t kDefaultColumns = 80;
constexpr std::size_t kAroundBar = 3;  // two brackets, and the last column, where some terminals wrap

}  // namespace

bool canRedraw(int descriptor) {
  const char* const kind = std::getenv("TERM");
  return isatty(descriptor) == 1 && (kind == nullptr || std::string_view(kind) != "dumb");
}

std::size_t columnsOf(int descriptor) {
  winsize size{};
  return ioctl(descriptor, TIOCGWINSZ, &size) == 0 && size.ws_col != 0 ? size.ws_col : kDefaultColumns;
}

void writeAtOnce(std::FILE* stream, std::string_view text) {
  static_cast<void>(std::fwrite(text.data(), 1, text.size(), stream));
  static_cast<void>(std::fflush(stream));
}

std::string bar(double done, std::size_t length) {
  const auto filled = static_cast<std::size_t>(std::clamp(done, 0.0, 1.0) * static_cast<double>(length));
  return "[" + std::string(filled, '#') + std::string(length - filled, '.') + "]";
}

std::string lineWithBar(double done, std::string_view tail, std::size_t columns) {
  const std::size_t room = columns > tail.size() + kAroundBar ? columns - tail.size() - kAroundBar : 0;
  std::string line = bar(done, std::min(room, kLongestBar)) + std::string(tail);
  line.resize(std::min(line.size(), columns > 0 ? columns - 1 : 0));
  return line;
}

}  // namespace terminal
