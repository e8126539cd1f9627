#pragma once

#include <gtest/gtest.h>
#include <sys/stat.h>

#include <filesystem>
#include <fstream>
#include <iterator>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "InstallationDeployer/BundleLayout.h"
#include "InstallationDeployer/ManifestKeys.h"
#include "InstallationDeployer/steps/QVNInstallStepStrategy.h"
#include "general/foundation/propertylist/PropertyListFile.h"
#include "tests/support/CapturedLog.h"
#include "tests/support/FakeStepContext.h"
#include "tests/support/PropertyLists.h"
#include "tests/support/TemporaryDirectory.h"

namespace tests {

/// Whether the text stands anywhere on the captured standard error.
inline bool mentions(const CapturedLog& log, std::string_view part) {
  return log.text().find(part) != std::string::npos;
}

/// A test of a single step: a bundle in a scratch directory of the test's own, a run and the plan.
class StepTest : public ::testing::Test, protected PropertyLists {
 protected:
  StepTest() {
    std::filesystem::create_directories(bundle() + "/" + std::string(deployer::kQVNManifestDirectoryPath));
    run_ = std::make_unique<FakeStepContext>(bundle());
    run_->configuration().setProductName(product_);
  }

  [[nodiscard]] std::string bundle() const { return scratch_.path("Installer.app"); }
  [[nodiscard]] std::string path(std::string_view name) const { return scratch_.path(name); }

  void writeIndex(const PropertyList& components) {
    const PropertyList phase = localPayload({}).with(deployer::kManifestIndexListOfComponents, components);
    write(indexOf(product_, product({phase})), std::string(deployer::kQVNManifestIndexName));
  }
  void writeComponent(const std::string& name, const foundation::PropertyList& manifest) {
    write(manifest, name + ".plist");
  }
  static void writeFile(const std::string& path, std::string_view content, mode_t mode = 0644) {
    std::filesystem::create_directories(std::filesystem::path(path).parent_path());
    std::ofstream(path, std::ios::binary) << content;
    ASSERT_EQ(chmod(path.c_str(), mode), 0);
  }
  [[nodiscard]] static std::string contentOf(const std::string& path) {
    std::ifstream file(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(file), {}};
  }
  [[nodiscard]] static unsigned modeOf(const std::string& path) {
    struct stat status {};
    return lstat(path.c_str(), &status) == 0 ? status.st_mode & 07777U : 0U;
  }

  /// A step of the class under test, for the plan.
  template <class Step>
  [[nodiscard]] std::unique_ptr<Step> makeStep(deployer::Plan plan) {
    return std::make_unique<Step>(foundation::PropertyList(), "step", nullptr, *run_,
                                  std::make_shared<deployer::Plan>(std::move(plan)));
  }
  FakeStepContext& run() { return *run_; }

  const std::string product_ = "Product.of.a.unit.test";

 private:
  void write(const foundation::PropertyList& value, const std::string& name) const {
    // In the form that can hold any text, a NUL included.
    const auto written = foundation::plist::writeFile(
        value, bundle() + "/" + std::string(deployer::kQVNManifestDirectoryPath) + "/" + name,
        foundation::plist::Format::Binary);
    ASSERT_TRUE(written.ok()) << written.error().description();
  }

  TemporaryDirectory scratch_;
  std::unique_ptr<FakeStepContext> run_;
};

}  // namespace tests
