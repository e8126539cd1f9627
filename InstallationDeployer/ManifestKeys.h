#pragma once

#include <string_view>

/// The keys of the manifest index, the component manifests and the plists they are authored from. Nothing else spells a
/// key out.
namespace deployer {

// Manifest index, top level.
inline constexpr std::string_view kManifestIndexDictionaryOfProducts = "Products";
inline constexpr std::string_view kManifestIndexProductDetectionArray = "ProductDetectionList";
inline constexpr std::string_view kManifestIndexProductRemovals = "ProductRemovals";
inline constexpr std::string_view kManifestIndexProductCleanup = "ProductCleanup";
inline constexpr std::string_view kManifestIndexPayloadSize = "PayloadSize";
inline constexpr std::string_view kManifestIndexReceiptSize = "ReceiptSize";
inline constexpr std::string_view kManifestIndexReceiptHasPayloadContents = "ReceiptHasPayloadContents";
inline constexpr std::string_view kManifestIndexPayloadVersion = "PayloadVersion";
inline constexpr std::string_view kManifestIndexInstallerVersion = "InstallerVersion";

// A product.
inline constexpr std::string_view kManifestIndexListOfPhases = "ListOfInstallPhases";
inline constexpr std::string_view kManifestIndexCrossGrades = "CrossGrades";

// An install phase.
inline constexpr std::string_view kQVNInstallPhaseType = "InstallPhaseType";
inline constexpr std::string_view kQVNInstallPhaseLocalPayload = "LocalPayload";
inline constexpr std::string_view kQVNInstallPhaseExternalInstallationDeployer = "ExternalInstallationDeployer";
inline constexpr std::string_view kManifestIndexListOfComponents = "ListOfComponents";
inline constexpr std::string_view kQVNInstallPhaseExternalBundlePath = "BundlePath";
inline constexpr std::string_view kQVNInstallPhaseExternalProductName = "ProductName";

// A cross-grade, a product to detect or to remove.
inline constexpr std::string_view kManifestIndexProductName = "ProductName";
inline constexpr std::string_view kManifestIndexAllowCrossGrades = "AllowCrossGrades";
inline constexpr std::string_view kManifestIndexTreatAsUpdate = "TreatAsUpdate";
inline constexpr std::string_view kManifestIndexProductDetectionPaths = "ProductDetectionPaths";

// A component manifest.
inline constexpr std::string_view kManifestComponentName = "ComponentName";
inline constexpr std::string_view kManifestComponentVersion = "ComponentVersion";
inline constexpr std::string_view kManifestComponentSize = "ComponentSize";
inline constexpr std::string_view kManifestListOfFiles = "ListOfFiles";
inline constexpr std::string_view kManifestListOfExecutables = "ListOfExecutables";
inline constexpr std::string_view kManifestListOfLaunchDaemons = "ListOfLaunchDaemons";
inline constexpr std::string_view kManifestListOfLaunchAgents = "ListOfLaunchAgents";
inline constexpr std::string_view kManifestRebuildKextCache = "RebuildKextCache";
inline constexpr std::string_view kManifestListOfModifiableFiles = "ListOfModifiableFiles";

// A file of a component.
inline constexpr std::string_view kManifestFilePath = "Path";
inline constexpr std::string_view kManifestIsDirectory = "IsDirectory";
inline constexpr std::string_view kManifestIsSymbolicLink = "IsSymbolicLink";
inline constexpr std::string_view kManifestSymbolicLinkTarget = "SymbolicLinkTarget";
inline constexpr std::string_view kManifestSHAChecksum = "SHAChecksum";
inline constexpr std::string_view kManifestIsModifiableFile = "IsModifiableFile";
inline constexpr std::string_view kManifestExternalSourcePath = "ExternalSourcePath";
inline constexpr std::string_view kManifestCheckForExternalFileChanges = "CheckForExternalFileChanges";
inline constexpr std::string_view kManifestIsWildcardPath = "IsWildcardPath";
inline constexpr std::string_view kManifestRemoveDirectoryAndContents = "RemoveDirectoryAndContents";
inline constexpr std::string_view kFileOwnerAccountID = "NSFileOwnerAccountID";
inline constexpr std::string_view kFileGroupOwnerAccountID = "NSFileGroupOwnerAccountID";
inline constexpr std::string_view kFilePosixPermissions = "NSFilePosixPermissions";

// An executable of a component; its path is under kManifestFilePath.
inline constexpr std::string_view kManifestListOfArguments = "ListOfArguments";
inline constexpr std::string_view kManifestRunOnce = "RunOnce";
inline constexpr std::string_view kManifestExecuteOnInstall = "ExecuteOnInstall";
inline constexpr std::string_view kManifestIsApplication = "IsApplication";
inline constexpr std::string_view kManifestBundleIdentifier = "BundleIdentifier";

}  // namespace deployer
