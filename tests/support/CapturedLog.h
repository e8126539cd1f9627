#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace tests {

/// One message as it stood on standard error; further lines of it are joined by newlines, without their indentation.
struct LoggedMessage {
  std::string level;  ///< "Error", "Debug", …
  std::string text;
  friend bool operator==(const LoggedMessage&, const LoggedMessage&) = default;
};

/// Splits what the log wrote to standard error into messages. Lines that are no log lines are left out.
[[nodiscard]] std::vector<LoggedMessage> parseLog(std::string_view standardError);

/// Takes standard error of this process away for as long as it lives, and gives what was logged meanwhile.
class CapturedLog {
 public:
  CapturedLog();
  ~CapturedLog();
  CapturedLog(const CapturedLog&) = delete;
  CapturedLog& operator=(const CapturedLog&) = delete;

  /// Everything written to standard error so far.
  [[nodiscard]] std::string text() const;
  [[nodiscard]] std::vector<LoggedMessage> messages() const { return parseLog(text()); }
  /// Texts of the messages of one level, in order.
  [[nodiscard]] std::vector<std::string> texts(std::string_view level) const;
  /// How often exactly this message was logged at this level.
  [[nodiscard]] std::size_t count(std::string_view level, std::string_view message) const;
  [[nodiscard]] bool contains(std::string_view level, std::string_view message) const {
    return count(level, message) > 0;
  }

 private:
  int capture_ = -1;
  int original_ = -1;
};

}  // namespace tests
