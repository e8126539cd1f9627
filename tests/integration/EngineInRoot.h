#pragma once

#include <gtest/gtest.h>

#include <algorithm>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "tests/support/BundleMaker.h"
#include "tests/support/CapturedLog.h"
#include "tests/support/PrivateRoot.h"

namespace tests {

/// The real engine, started as root from a bundle on a mounted volume, in a private root directory.
class EngineInRoot : public ::testing::Test {
 protected:
  using PropertyList = foundation::PropertyList;

  static constexpr const char* kBundle = "/Volumes/Disk Image/Installer.app";
  static constexpr const char* kEngine = "/Volumes/Disk Image/Installer.app/Contents/MacOS/InstallationDeployer";
  static constexpr const char* kProduct = "Guard";
  static constexpr const char* kReceipt = "/Library/Application Support/Corvane/Guard/Installer.app";

  void SetUp() override {
    if (const auto reason = support::PrivateRoot::whyImpossible()) {
      GTEST_SKIP() << *reason;
    }
    makeRoot();
    if (!root_->hasProcesses() && std::string_view(CORVANE_SANITIZERS) != "") {
      GTEST_SKIP() << "a program with sanitizers needs a /proc: " << root_->whyNoMounts();
    }
  }

  /// Begins again with an empty root.
  void makeRoot(const support::PrivateRoot::Options& options = {}) {
    root_.reset();
    root_ = std::make_unique<support::PrivateRoot>(options);
  }
  support::PrivateRoot& root() { return *root_; }
  BundleMaker& bundle() { return bundle_; }

  /// Brings the bundle as it is now to its place in the root.
  void deliverBundle() {
    [[maybe_unused]] const auto removed = root().run({"/bin/rm", "-rf", kBundle});
    root().copyIn(bundle_.path(), kBundle);
  }
  support::Outcome runEngine(const std::vector<std::string>& options, const support::RunOptions& surroundings = {}) {
    std::vector<std::string> arguments{kEngine};
    arguments.insert(arguments.end(), options.begin(), options.end());
    return root().run(arguments, surroundings);
  }
  support::Outcome install(const support::RunOptions& surroundings = {}) {
    return runEngine({"--install"}, surroundings);
  }

  static PropertyList dictionary(std::vector<std::pair<std::string, PropertyList>> entries) {
    return PropertyList::dictionary(std::move(entries));
  }
  static PropertyList array(PropertyList::Array elements) { return PropertyList(std::move(elements)); }

  static bool logged(const support::Outcome& outcome, std::string_view level, std::string_view text) {
    const auto messages = parseLog(outcome.standardError);
    return std::ranges::find(messages, LoggedMessage{std::string(level), std::string(text)}) != messages.end();
  }
  static bool loggedBeginning(const support::Outcome& outcome, std::string_view level, std::string_view beginning) {
    return std::ranges::any_of(parseLog(outcome.standardError), [&](const LoggedMessage& message) {
      return message.level == level && message.text.starts_with(beginning);
    });
  }

 private:
  std::unique_ptr<support::PrivateRoot> root_;
  BundleMaker bundle_{CORVANE_ENGINE};
};

}  // namespace tests
