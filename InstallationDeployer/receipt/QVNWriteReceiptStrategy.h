#pragma once

#include <string>
#include <vector>

#include "InstallationDeployer/receipt/ReceiptComparison.h"
#include "InstallationDeployer/steps/QVNInstallStepStrategy.h"
#include "general/foundation/Result.h"
#include "general/foundation/files/FileAttributes.h"
#include "general/foundation/files/FileBuffer.h"

namespace deployer {

/// Leaves the receipt: a copy of the running installer bundle in the product's folder at the receipt location, with the
/// payload only when the manifest index asks for it.
///
/// The copy is made beside its final place and then takes the place of an older receipt, so a receipt is whole or
/// absent, never in between and never a mixture of two. A file that cannot be copied is logged and sets a failure
/// state; it makes execute() return false only when later runs need it, see validateContents().
///
/// A run that could not read one of its manifests leaves no receipt, for nobody knows what it would vouch for.
class QVNWriteReceiptStrategy : public QVNInstallStepStrategy {
 public:
  using FileAttributes = foundation::FileAttributes;
  using QVNInstallStepStrategy::QVNInstallStepStrategy;

  /// After the failure of an earlier step, removes what the install may have left at the receipt location.
  bool execute(bool previousSuccess) override;
  [[nodiscard]] std::string_view className() const override { return "QVNWriteReceiptStrategy"; }

  /// Copies the folders and regular files of a tree; links are left out. `to` must exist.
  /// @return false when an item directly in `source` could not be copied; a failure further down shows in the state.
  bool copySourceDirectoryContents(const std::string& source, const std::string& to,
                                   const FileAttributes& fileAttributes, const FileAttributes& directoryAttributes,
                                   bool excludePayloadContents);
  /// Copies one item that has the same path relative to both roots. Of a file only the bytes are taken over.
  bool copyFile(const std::string& relativePath, const std::string& source, const std::string& destination,
                const FileAttributes& fileAttributes, const FileAttributes& directoryAttributes, bool isDirectory);

  /// Whether the staged receipt may be published. It may when it has what later runs need, as it is in the bundle: the
  /// index, the manifests of the product's components and of those that its removal cleans up, the executables, and the
  /// payload where receipts carry it. What is missing is in the log, the step has failed, and what was staged goes.
  /// When an override says no, the receipt stays where it was staged and the step succeeds.
  [[nodiscard]] virtual bool validateContents();

 private:
  [[nodiscard]] bool work() override;
  [[nodiscard]] std::string temporaryPath() const;
  [[nodiscard]] std::string stagingPath() const;

  bool stageBundle(const std::string& bundlePath);
  bool makeStagingFolder(const std::string& bundlePath);
  /// Takes away what an earlier run staged, so that nothing of it gets into this run's receipt.
  [[nodiscard]] foundation::Status clearStagingFolder(const std::string& bundlePath);
  bool makeExecutablesRunnable();
  [[nodiscard]] bool holdsManifests(ReceiptComparison& comparison);
  [[nodiscard]] bool holdsWhatWasCopied();
  [[nodiscard]] bool holdsPayload(const ReceiptComparison& comparison);
  [[nodiscard]] Plan componentsOfLaterRuns();
  [[nodiscard]] bool carriesPayload();
  bool discardStagedReceipt();
  bool publishStagedReceipt();
  bool removeExistingReceipt();
  bool moveReceiptIntoPlace();
  void removeTemporaryFolder();
  /// Waits until everything written to the receipt's file system so far is on disk.
  bool putOnDisk();

  foundation::FileBuffer buffer_;
  bool isWhole_ = true;
  std::vector<std::string> failedCopies_;  // paths below the bundle
};

}  // namespace deployer
