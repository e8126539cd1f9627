#pragma once

#include <sys/stat.h>
#include <unistd.h>

#include <cstdint>
#include <memory>
#include <span>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "InstallationDeployer/QVNInstallerChecksum.h"
#include "InstallationDeployer/install/QVNInstallComponentsStrategy.h"
#include "general/foundation/files/FileAttributes.h"
#include "tests/support/PropertyLists.h"
#include "tests/support/StepTest.h"

namespace tests {

/// A test of the step that installs: a payload, manifests and a target folder that stands for the volume's root.
/// Runs with a umask that would take everything away from group and others.
class InstallComponentsTest : public StepTest {
 protected:
  using PropertyList = foundation::PropertyList;
  using Step = deployer::QVNInstallComponentsStrategy;

  InstallComponentsTest() : umask_(umask(077)) {}
  ~InstallComponentsTest() override { umask(umask_); }

  void SetUp() override {
    if (geteuid() != 0) {
      GTEST_SKIP() << "gives files to other users, which only root can";
    }
    ASSERT_EQ(mkdir(target().c_str(), 0755), 0);
    run().configuration().setTargetPath(target());
  }

  [[nodiscard]] std::string target(std::string_view below = "") const { return path("target") + std::string(below); }
  [[nodiscard]] std::string payload(const std::string& component = "Core") const {
    return run_path() + "/" + component;
  }

  /// Puts content into the component's payload; returns its checksum.
  std::string addPayload(std::string_view content, const std::string& component = "Core") {
    std::string checksum = checksumOf(content);
    writeFile(payload(component) + "/" + checksum, content);
    return checksum;
  }
  [[nodiscard]] static std::string checksumOf(std::string_view content) {
    return deployer::QVNInstallerChecksum::generateSHA256(std::as_bytes(std::span(content)));
  }

  [[nodiscard]] static PropertyList fileWithChecksum(std::string_view path, std::string_view checksum,
                                                     Keys keys = attributes(0644)) {
    return entry(path, joined(std::move(keys), {{std::string(deployer::kManifestSHAChecksum), checksum}}));
  }
  [[nodiscard]] PropertyList file(std::string_view path, std::string_view content, Keys keys = attributes(0644)) {
    return fileWithChecksum(path, addPayload(content), std::move(keys));
  }
  void describe(const std::string& component, Entries entries) {
    writeComponent(component, manifestOf(std::move(entries)));
  }
  /// Describes the component Core and installs it.
  bool install(Entries entries) {
    describe("Core", std::move(entries));
    return installComponents({"Core"});
  }
  bool installComponents(const deployer::Plan& components) {
    step_ = makeStep<Step>(components);
    return step_->InstallComponents(components);
  }
  [[nodiscard]] deployer::QVNInstallerState state() const { return step_->installerState(); }

  [[nodiscard]] static struct stat statusOf(const std::string& path) {
    struct stat status {};
    EXPECT_EQ(lstat(path.c_str(), &status), 0) << path;
    return status;
  }
  /// Owner, group and permissions as "owner:group mode".
  [[nodiscard]] static std::string attributesOf(const std::string& path) {
    const auto status = statusOf(path);
    char mode[8];
    std::snprintf(mode, sizeof mode, "%04o", status.st_mode & 07777U);
    return std::to_string(status.st_uid) + ":" + std::to_string(status.st_gid) + " " + mode;
  }
  [[nodiscard]] static bool exists(const std::string& path) {
    struct stat status {};
    return lstat(path.c_str(), &status) == 0;
  }

  std::unique_ptr<Step> step_;

 private:
  [[nodiscard]] std::string run_path() const { return bundle() + "/" + std::string(deployer::kQVNPayloadRootPath); }

  mode_t umask_;
};

}  // namespace tests
