#pragma once

#include <gtest/gtest.h>

#include <algorithm>
#include <memory>
#include <string>
#include <string_view>

#include "general/foundation/propertylist/PropertyList.h"
#include "tests/support/CapturedLog.h"
#include "tests/support/PrivateRoot.h"

namespace tests {

/// A test that has a private root directory, and an installer bundle on a mounted volume in it. Skipped, with the
/// reason, where no such root can be had or what it needs cannot run in it.
class InPrivateRoot : public ::testing::Test {
 protected:
  using PropertyList = foundation::PropertyList;

  static constexpr const char* kBundle = "/Volumes/Disk Image/Installer.app";
  static constexpr const char* kProduct = "Guard";

  void SetUp() override {
    if (const auto reason = support::PrivateRoot::whyImpossible()) {
      GTEST_SKIP() << *reason;
    }
    makeRoot();
    if (!root_->hasProcesses() && std::string_view(CORVANE_SANITIZERS) != "") {
      GTEST_SKIP() << "a program with sanitizers needs a /proc: " << root_->whyNoMounts();
    }
    if (needsProc() && !root_->hasProcesses()) {
      GTEST_SKIP() << root_->whyNoMounts();
    }
  }

  /// Whether the test is of programs that look for other processes.
  [[nodiscard]] virtual bool needsProc() const { return false; }

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
