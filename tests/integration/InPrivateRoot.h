#pragma once

#include <gtest/gtest.h>

#include <algorithm>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

#include "tests/support/CapturedLog.h"
#include "tests/support/PrivateRoot.h"
#include "tests/support/PropertyLists.h"

namespace tests {

/// A test that has a private root directory, and an installer bundle on a mounted volume in it. Skipped, with the
/// reason, where no such root can be had or what it needs cannot run in it.
class InPrivateRoot : public ::testing::Test, protected PropertyLists {
 protected:
  static constexpr const char* kBundle = "/Volumes/Disk Image/Installer.app";
  static constexpr const char* kProduct = "Guard";

  void SetUp() final {
    if (const auto reason = support::PrivateRoot::whyImpossible()) {
      GTEST_SKIP() << *reason;
    }
    makeRoot();
    if (const auto reason = whyImpossible()) {
      GTEST_SKIP() << *reason;
    }
    prepare();
  }

  /// Puts into the root, and makes beside it, what every test of the class begins with. Called for a root that will do.
  virtual void prepare() {}
  /// Why the test cannot be had in the root that there is; nothing when it can.
  [[nodiscard]] virtual std::optional<std::string> whyImpossible() {
    if (!root_->hasProcesses() && std::string_view(CORVANE_SANITIZERS) != "") {
      return "a program with sanitizers needs a /proc: " + root_->whyNoMounts();
    }
    if ((needsProc() && !root_->hasProcesses()) || (needsMounts() && !root_->hasPrivateMounts())) {
      return root_->whyNoMounts();
    }
    return std::nullopt;
  }
  /// Whether the test is of programs that look for other processes.
  [[nodiscard]] virtual bool needsProc() const { return false; }
  /// Whether the test mounts file systems.
  [[nodiscard]] virtual bool needsMounts() const { return false; }

  /// Begins again with an empty root.
  void makeRoot(const support::PrivateRoot::Options& options = {}) {
    root_.reset();
    root_ = std::make_unique<support::PrivateRoot>(options);
  }
  support::PrivateRoot& root() { return *root_; }

  static std::string inBundle(std::string_view relative) { return std::string(kBundle) + "/" + std::string(relative); }

  /// How often exactly this message was logged.
  static std::ptrdiff_t logged(const support::Outcome& outcome, std::string_view level, std::string_view text) {
    const auto messages = parseLog(outcome.standardError);
    return std::ranges::count(messages, LoggedMessage{std::string(level), std::string(text)});
  }
  /// Whether a message of this level begins so; for messages that go on with an error of the system.
  static bool loggedBeginning(const support::Outcome& outcome, std::string_view level, std::string_view beginning) {
    return std::ranges::any_of(parseLog(outcome.standardError), [&](const LoggedMessage& message) {
      return message.level == level && message.text.starts_with(beginning);
    });
  }
  static bool loggedAnything(const support::Outcome& outcome, std::string_view level) {
    return loggedBeginning(outcome, level, "");
  }

 private:
  std::unique_ptr<support::PrivateRoot> root_;
};

}  // namespace tests
