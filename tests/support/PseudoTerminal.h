#pragma once

#include <string>
#include <string_view>

namespace support {

/// A terminal that a test plays the person at: what a program draws can be read, and keys can be pressed. Failures to
/// make one throw std::runtime_error.
class PseudoTerminal {
 public:
  explicit PseudoTerminal(unsigned short columns = 80);
  ~PseudoTerminal();
  PseudoTerminal(const PseudoTerminal&) = delete;
  PseudoTerminal& operator=(const PseudoTerminal&) = delete;

  /// The program's end, for RunOptions::terminal.
  [[nodiscard]] int programEnd() const { return programEnd_; }
  /// To be called once the program has been started: without its own copy the test sees when the last program has left.
  void giveAwayProgramEnd();

  /// Also tells the program in front.
  void setColumns(unsigned short columns) const;
  void type(std::string_view keys) const;
  /// Waits until the text has been drawn since the last call that found its text; false when every program has left the
  /// terminal without it, or after a minute.
  bool waitFor(std::string_view text);
  /// What waitFor() has read.
  [[nodiscard]] const std::string& soFar() const { return drawn_; }
  /// Everything drawn, once every program has left.
  const std::string& everything();

 private:
  bool readSome();

  int master_ = -1;
  int programEnd_ = -1;
  std::string drawn_;
  std::size_t looked_ = 0;
};

}  // namespace support
