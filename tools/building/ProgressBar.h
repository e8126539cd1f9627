#pragma once

#include <chrono>
#include <cstdint>
#include <functional>
#include <string>
#include <string_view>

namespace bundletool {

/// One line that shows how far long work is, redrawn in place a few times a second and erased at the end. It does not
/// draw by itself: a call that comes too soon after the last drawing is shown with the next one.
class ProgressBar {
 public:
  using Clock = std::chrono::steady_clock;
  using Output = std::function<void(std::string_view)>;

  /// @param output where the line is drawn; nothing draws nothing.
  /// @param columns width of the terminal.
  ProgressBar(Output output, std::size_t columns);
  ~ProgressBar();
  ProgressBar(const ProgressBar&) = delete;
  ProgressBar& operator=(const ProgressBar&) = delete;

  /// Shows the line for the first time. `files` and `bytes` are what the work will have done at its end.
  void start(std::uint64_t files, std::uint64_t bytes);
  void addBytes(std::uint64_t bytes);
  /// One more file is done, whatever its size.
  void addFile();
  /// Erases the line, so that something else can be printed.
  void erase();

  /// The line for the present state.
  [[nodiscard]] std::string line() const;

 private:
  void draw();

  Output output_;
  std::size_t columns_;
  std::uint64_t files_ = 0;
  std::uint64_t bytes_ = 0;
  std::uint64_t filesDone_ = 0;
  std::uint64_t bytesDone_ = 0;
  Clock::time_point lastDrawn_;
  bool isShown_ = false;
};

/// Draws on standard error when that is a terminal, and nowhere else.
[[nodiscard]] ProgressBar::Output terminalOutput();
[[nodiscard]] std::size_t terminalColumns();

}  // namespace bundletool
