#pragma once

#include <optional>
#include <string>

namespace deployer {

/// What a run was asked to do: the options of the command line and what the controller learned from the machine. A
/// plain value; a fresh one asks for nothing. Used by the main thread only.
class QVNInstallConfiguration {
 public:
  [[nodiscard]] bool install() const { return install_; }
  void setInstall(bool value) { install_ = value; }
  [[nodiscard]] bool remove() const { return remove_; }
  void setRemove(bool value) { remove_ = value; }
  /// A receipt of the product lies on the machine.
  [[nodiscard]] bool hasInstallerReceipt() const { return hasInstallerReceipt_; }
  void setHasInstallerReceipt(bool value) { hasInstallerReceipt_ = value; }
  [[nodiscard]] bool receipt() const { return receipt_; }
  void setReceipt(bool value) { receipt_ = value; }
  /// Vend the status service for a watcher.
  [[nodiscard]] bool statusServer() const { return statusServer_; }
  void setStatusServer(bool value) { statusServer_ = value; }
  /// Another engine started this one as a part of its own run.
  [[nodiscard]] bool isNested() const { return nested_; }
  void setNested(bool value) { nested_ = value; }
  /// Path of a prepared plan. No option sets it; while it is set, no mode but the receipt's is valid.
  [[nodiscard]] const std::optional<std::string>& planPath() const { return planPath_; }
  void setPlanPath(std::optional<std::string> value) { planPath_ = std::move(value); }
  /// Root of the target volume.
  [[nodiscard]] const std::optional<std::string>& targetPath() const { return targetPath_; }
  void setTargetPath(std::optional<std::string> value) { targetPath_ = std::move(value); }
  /// The installer bundle (or receipt) the engine runs from.
  [[nodiscard]] const std::optional<std::string>& bundlePath() const { return bundlePath_; }
  void setBundlePath(std::optional<std::string> value) { bundlePath_ = std::move(value); }
  [[nodiscard]] const std::optional<std::string>& productName() const { return productName_; }
  void setProductName(std::optional<std::string> value) { productName_ = std::move(value); }
  /// Treat the install as an update of another product that is installed.
  [[nodiscard]] bool treatAsUpdate() const { return treatAsUpdate_; }
  void setTreatAsUpdate(bool value) { treatAsUpdate_ = value; }
  /// `bundlePath` is the product's receipt.
  [[nodiscard]] bool bundlePathIsReceipt() const { return bundlePathIsReceipt_; }
  void setBundlePathIsReceipt(bool value) { bundlePathIsReceipt_ = value; }

  [[nodiscard]] bool isInstallMode() const;
  /// Does not look at `remove`: "--ui --install --remove" is an install.
  [[nodiscard]] bool isGUIInstallMode() const;
  [[nodiscard]] bool isRemoveMode() const;
  [[nodiscard]] bool isGUIRemoveMode() const;
  [[nodiscard]] bool isReceiptMode() const;
  [[nodiscard]] bool isValid() const;

  /// The folder of the product's receipt: the receipt location and, below it, the product's name.
  [[nodiscard]] std::string receiptDirectory() const;
  /// The receipt in it: a copy of the installer bundle.
  [[nodiscard]] std::string receiptPath() const;

 private:
  bool install_ = false;
  bool remove_ = false;
  bool hasInstallerReceipt_ = false;
  bool receipt_ = false;
  bool statusServer_ = false;
  bool nested_ = false;
  std::optional<std::string> planPath_;
  std::optional<std::string> targetPath_;
  std::optional<std::string> bundlePath_;
  std::optional<std::string> productName_;
  bool treatAsUpdate_ = false;
  bool bundlePathIsReceipt_ = false;
};

}  // namespace deployer
