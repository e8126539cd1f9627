#pragma once

#include <gtest/gtest.h>
#include <stdlib.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdio>
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
#include "general/foundation/PropertyListFile.h"
#include "tests/support/FakeInstallRun.h"

namespace tests {

/// Keeps what is written to standard error, where the log is copied to, while it lives.
class CapturedLog {
 public:
  CapturedLog() : saved_(dup(STDERR_FILENO)), file_(std::tmpfile()) {
    std::fflush(stderr);
    dup2(fileno(file_), STDERR_FILENO);
  }
  ~CapturedLog() {
    dup2(saved_, STDERR_FILENO);
    close(saved_);
    std::fclose(file_);
  }
  CapturedLog(const CapturedLog&) = delete;
  CapturedLog& operator=(const CapturedLog&) = delete;

  [[nodiscard]] std::string text() const {
    std::string content;
    char piece[4096];
    off_t offset = 0;
    ssize_t count = 0;
    while ((count = pread(fileno(file_), piece, sizeof piece, offset)) > 0) {
      content.append(piece, static_cast<std::size_t>(count));
      offset += count;
    }
    return content;
  }
  /// How many messages consist of exactly this level and text, as in "<Error>: text".
  [[nodiscard]] int count(std::string_view message) const {
    const std::string log = text();
    const std::string line = " " + std::string(message) + "\n";
    int found = 0;
    for (std::size_t at = log.find(line); at != std::string::npos; at = log.find(line, at + 1)) {
      ++found;
    }
    return found;
  }
  [[nodiscard]] bool contains(std::string_view part) const { return text().find(part) != std::string::npos; }

 private:
  int saved_;
  FILE* file_;
};

/// A test of a single step: a bundle in a scratch directory of the test's own, a run and the plan.
class StepTest : public ::testing::Test {
 protected:
  StepTest() {
    std::string name = (std::filesystem::temp_directory_path() / "step.XXXXXX").string();
    if (mkdtemp(name.data()) == nullptr) {
      throw std::runtime_error("no scratch directory can be made");
    }
    scratch_ = std::filesystem::canonical(name).string();
    std::filesystem::create_directories(bundle() + "/" + std::string(deployer::kQVNManifestDirectoryPath));
    run_ = std::make_unique<FakeInstallRun>(bundle());
    run_->configuration().setProductName(product_);
  }
  ~StepTest() override {
    std::error_code ignored;
    std::filesystem::remove_all(scratch_, ignored);
  }

  [[nodiscard]] std::string bundle() const { return scratch_ + "/Installer.app"; }
  [[nodiscard]] std::string path(std::string_view name) const { return scratch_ + "/" + std::string(name); }

  void writeIndex(const foundation::PropertyList& components) {
    using foundation::PropertyList;
    const auto phase =
        PropertyList::dictionary({{std::string(deployer::kQVNInstallPhaseType), deployer::kQVNInstallPhaseLocalPayload},
                                  {std::string(deployer::kManifestIndexListOfComponents), components}});
    const auto product = PropertyList::dictionary(
        {{std::string(deployer::kManifestIndexListOfPhases), PropertyList(PropertyList::Array{phase})}});
    const auto index = PropertyList::dictionary(
        {{std::string(deployer::kManifestIndexDictionaryOfProducts), PropertyList::dictionary({{product_, product}})}});
    write(index, std::string(deployer::kQVNManifestIndexName));
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
  FakeInstallRun& run() { return *run_; }

  const std::string product_ = "Product.of.a.unit.test";

 private:
  void write(const foundation::PropertyList& value, const std::string& name) const {
    const auto written = foundation::plist::writeFile(
        value, bundle() + "/" + std::string(deployer::kQVNManifestDirectoryPath) + "/" + name);
    ASSERT_TRUE(written.ok()) << written.error().description();
  }

  std::string scratch_;
  std::unique_ptr<FakeInstallRun> run_;
};

}  // namespace tests
