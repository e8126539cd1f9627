#pragma once

#include <string_view>

/// Where things lie in an installer bundle, and where installed products leave their receipts.
namespace deployer {

inline constexpr std::string_view kQVNManifestDirectoryPath = "Contents/Install/Manifests";
inline constexpr std::string_view kQVNManifestIndexName = "Index.plist";
inline constexpr std::string_view kQVNManifestExtension = "plist";
inline constexpr std::string_view kQVNPayloadRootPath = "Contents/Install/Root";
inline constexpr std::string_view kQVNExecutablesPath = "Contents/MacOS";
inline constexpr std::string_view kQVNInstallationDeployerPath = "Contents/MacOS/InstallationDeployer";
inline constexpr std::string_view kQVNInstallationDeployerName = "InstallationDeployer";
inline constexpr std::string_view kQVNInstallerFrontEndName = "Installer";
inline constexpr std::string_view kQVNInstallerApplicationName = "Installer.app";

/// Each installed product has a folder of its name here, with its receipt in it.
inline constexpr std::string_view kQVNInstallerReceiptPath = "/Library/Application Support/Corvane";
/// Name of the folder for things in the making, below the receipt location or a product's folder there.
inline constexpr std::string_view kQVNInstallerTemporaryName = "temp";
/// The installed product's own folder, from which no installer may run.
inline constexpr std::string_view kQVNInstalledProductFolder = "/Library/Corvane Anti-Virus/";

inline constexpr std::string_view kQVNLaunchDaemonsPath = "/Library/LaunchDaemons";
inline constexpr std::string_view kQVNLaunchAgentsPath = "/Library/LaunchAgents";

}  // namespace deployer
