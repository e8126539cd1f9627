#include "tests/support/BundleMaker.h"

#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>
#include <stdexcept>

#include "InstallationDeployer/BundleLayout.h"
#include "InstallationDeployer/ManifestKeys.h"
#include "InstallationDeployer/QVNInstallerManifest.h"
#include "general/foundation/propertylist/PropertyListFile.h"
#include "tests/support/CapturedLog.h"

namespace tests {

using foundation::PropertyList;
namespace plist = foundation::plist;

namespace {

void require(bool success, const std::string& what) {
  if (!success) {
    throw std::runtime_error("cannot make the bundle: " + what);
  }
}

// The mode comes last: a change of owner clears set-id bits.
void setAttributes(const std::string& path, mode_t mode, uid_t owner, gid_t group) {
  require(lchown(path.c_str(), owner, group) == 0 && chmod(path.c_str(), mode) == 0, path);
}

}  // namespace

BundleMaker::BundleMaker(const std::string& engine) {
  directory_.makeDirectory("Installer.app/Contents/MacOS");
  directory_.makeDirectory("Installer.app/Contents/Install/Root");
  std::filesystem::copy_file(engine, path(deployer::kQVNInstallationDeployerPath));
  directory_.write("Installer.app/Contents/MacOS/Installer", "#!/bin/sh\nexit 0\n");
  require(chmod(path("Contents/MacOS/Installer").c_str(), 0755) == 0, "front end");
}

std::string BundleMaker::stagedPath(const std::string& component, const std::string& installPath) const {
  return directory_.path("staged/" + component + installPath);
}

std::string BundleMaker::stageFile(const std::string& component, const std::string& installPath,
                                   std::string_view content, mode_t mode, uid_t owner, gid_t group) {
  std::string path = directory_.write("staged/" + component + installPath, content);
  setAttributes(path, mode, owner, group);
  return path;
}

std::string BundleMaker::stageDirectory(const std::string& component, const std::string& installPath, mode_t mode,
                                        uid_t owner, gid_t group) {
  std::string path = directory_.makeDirectory("staged/" + component + installPath);
  setAttributes(path, mode, owner, group);
  return path;
}

std::string BundleMaker::stageLink(const std::string& component, const std::string& installPath,
                                   const std::string& target, uid_t owner, gid_t group) {
  std::string path = stagedPath(component, installPath);
  std::filesystem::create_directories(std::filesystem::path(path).parent_path());
  require(symlink(target.c_str(), path.c_str()) == 0 && lchown(path.c_str(), owner, group) == 0, path);
  return path;
}

void BundleMaker::addComponent(const std::string& component, const std::string& version, const std::string& product,
                               const PropertyList& authoring) {
  const std::string staged = directory_.makeDirectory("staged/" + component);
  std::optional<std::string> authoringPath;
  if (!authoring.isNil()) {
    authoringPath = directory_.path(component + ".authoring.plist");
    require(plist::writeFile(authoring, *authoringPath).ok(), *authoringPath);
  }
  const CapturedLog quiet;
  deployer::QVNInstallerManifest manifest(path());
  require(manifest.addComponentManifest(component, version, staged, "/", product, authoringPath), component);
  storePayload(component);
}

void BundleMaker::storePayload(const std::string& component) const {
  const std::string folder = path(deployer::kQVNPayloadRootPath) + "/" + component;
  std::filesystem::create_directories(folder);
  const PropertyList manifest = readManifest(component);
  for (const PropertyList& entry : manifest[deployer::kManifestListOfFiles].elements()) {
    const std::string installPath(entry[deployer::kManifestFilePath].text());
    const std::string staged = stagedPath(component, installPath);
    if (entry[deployer::kManifestSHAChecksum].isString() && std::filesystem::exists(staged)) {
      std::filesystem::copy_file(staged, payloadPath(component, installPath),
                                 std::filesystem::copy_options::skip_existing);
    }
  }
}

void BundleMaker::setOptions(const PropertyList& options, const PropertyList& optionsPlist) {
  std::optional<std::string> optionsPath;
  if (!optionsPlist.isNil()) {
    optionsPath = directory_.path("options.plist");
    require(plist::writeFile(optionsPlist, *optionsPath).ok(), *optionsPath);
  }
  const CapturedLog quiet;
  deployer::QVNInstallerManifest manifest(path());
  require(manifest.updateManifestIndexWithOptions(options, optionsPath), "options");
}

PropertyList BundleMaker::readManifest(const std::string& name) const {
  const auto content = plist::readDictionary(path(deployer::kQVNManifestDirectoryPath) + "/" + name + ".plist");
  require(content.ok(), name);
  return *content;
}

void BundleMaker::writeManifest(const std::string& name, const PropertyList& content) const {
  require(plist::writeFile(content, path(deployer::kQVNManifestDirectoryPath) + "/" + name + ".plist").ok(), name);
}

std::string BundleMaker::payloadPath(const std::string& component, const std::string& installPath) const {
  const PropertyList manifest = readManifest(component);
  for (const PropertyList& entry : manifest[deployer::kManifestListOfFiles].elements()) {
    if (entry[deployer::kManifestFilePath].text() == installPath) {
      return path(deployer::kQVNPayloadRootPath) + "/" + component + "/" +
             std::string(entry[deployer::kManifestSHAChecksum].text());
    }
  }
  throw std::runtime_error("no such file in " + component + ": " + installPath);
}

}  // namespace tests
