#include <gtest/gtest.h>

#include <filesystem>

#include "frontend/BundleExamination.h"
#include "frontend/JsonPresenter.h"
#include "tests/support/CapturedLog.h"
#include "tests/unit/InstallationDeployer/checks/CheckedBundle.h"
#include "tests/unit/frontend/PrintedRun.h"

namespace frontend {
namespace {

using tests::CheckedBundle;

class ExaminingABundle : public ::testing::Test {
 protected:
  ExaminingABundle() {
    bundle_.writeIndex(CheckedBundle::indexOfComponents("Guard", {"Core"}));
    bundle_.writeManifest("Core", CheckedBundle::component({CheckedBundle::file("/opt/core", "content")}));
    static_cast<void>(bundle_.store("Core", "content"));
  }

  CheckedBundle bundle_;
  Printed printed_;
  JsonPresenter presenter_{printed_.toOutput()};
  BundleExamination examination_{presenter_, {bundle_.path(), std::nullopt, true}};
};

TEST_F(ExaminingABundle, GivesWhatWasFound) {
  const auto report = examination_.examine();
  ASSERT_TRUE(report);
  EXPECT_TRUE(report->isFit());
  EXPECT_EQ(report->bytes, 7U);
  EXPECT_TRUE(printed_.output.starts_with("{\"event\": \"checking\", \"percent\": 0}\n"));
}

TEST_F(ExaminingABundle, ShowsHowFarItIsAndIsLeftFromAHandlerOfTheLoop) {
  // Far more than is read before the handler has its turn.
  CheckedBundle::Entries entries;
  for (int number = 0; number < 16; ++number) {
    const std::string name = "large" + std::to_string(number);
    entries.push_back(CheckedBundle::entry("/opt/" + name, {{"SHAChecksum", name}}));
    std::filesystem::resize_file(bundle_.directory().write("Installer.app/Contents/Install/Root/Core/" + name, ""),
                                 std::uint64_t{1} << 30U);
  }
  bundle_.writeManifest("Core", CheckedBundle::component(entries));
  const auto leaving = foundation::RunLoop::current()->addTimer(std::chrono::milliseconds(1), true, [this] {
    // Progress is seen first.
    if (printed_.output.find("}\n{") != std::string::npos) {
      examination_.leave();
    }
  });
  EXPECT_FALSE(examination_.examine());
  EXPECT_NE(printed_.output.find("}\n{\"event\": \"checking\", \"percent\": "), std::string::npos) << printed_.output;
}

TEST_F(ExaminingABundle, IsLeftByWhatTheLoopServesHoweverSoonTheCheckIsDone) {
  const auto leaving =
      foundation::RunLoop::current()->addTimer(std::chrono::milliseconds(0), false, [this] { examination_.leave(); });
  EXPECT_FALSE(examination_.examine());
}

}  // namespace
}  // namespace frontend
