#pragma once

#include <memory>
#include <optional>
#include <set>
#include <string>
#include <string_view>

#include "InstallationDeployer/QVNInstallConfiguration.h"
#include "InstallationDeployer/QVNInstallerManifest.h"
#include "InstallationDeployer/journal/ChangeJournal.h"
#include "InstallationDeployer/journal/JournalStore.h"
#include "InstallationDeployer/steps/ChangeRecord.h"
#include "general/foundation/propertylist/PropertyList.h"

namespace deployer {

/// The journal of this run, and what the journal of an interrupted one left to it. Runs that change nothing of their
/// own (those that serve as receipt) write none. Used on the main thread.
class RunJournal : public ChangeRecord {
 public:
  /// @param manifest of the bundle the engine runs from; it and the configuration outlive this.
  RunJournal(const QVNInstallConfiguration& configuration, QVNInstallerManifest& manifest,
             JournalStore store = JournalStore());

  /// Looks for the journal of an interrupted run of the product and says in the log what it finds. One that makes no
  /// sense is set aside, and then everything counts as half changed. False, and an error in the log, when it cannot be
  /// read or set aside.
  /// @param outerRun the process that has the product to itself and started this run as a part of its own, if any. Its
  /// journal stands for both.
  [[nodiscard]] bool open(std::optional<int> outerRun = std::nullopt);
  /// Whether an interrupted run treated its install as an update of another product, which may be gone by now.
  [[nodiscard]] bool continuesUpdate() const { return interrupted_ && interrupted_->treatedAsUpdate; }

  [[nodiscard]] Names damagedComponents() const override { return damagedComponents_; }
  void noteInstalled(const foundation::PropertyList& componentsAndVersions) override;
  [[nodiscard]] bool begin(const Names& components) override;
  void note(std::string_view what, const Names& components) override;
  [[nodiscard]] bool finish() override;
  [[nodiscard]] const Names& owedFiles() const override { return journal_.owedFiles; }
  void noteOwedFile(const std::string& path, bool fromElsewhere) override;
  [[nodiscard]] std::shared_ptr<const void> lockCache() override;
  [[nodiscard]] foundation::Result<bool> sharesCache() const override;
  [[nodiscard]] const std::set<std::string, std::less<>>& modifiableFilesToWrite() const override {
    return modifiableFilesToWrite_;
  }

 private:
  [[nodiscard]] bool writesJournal() const {
    return (configuration_.install() || configuration_.remove()) && !isPartOfOuterRun_;
  }
  [[nodiscard]] std::string product() const { return configuration_.productName().value_or(""); }
  [[nodiscard]] bool weigh(const ChangeJournal& found);
  void takeOver(ChangeJournal found);
  [[nodiscard]] bool setAside(const foundation::Error& error);
  [[nodiscard]] std::optional<ChangeJournal> everything();
  [[nodiscard]] bool addManifests(const Names& components, ChangeJournal& journal);
  [[nodiscard]] bool addManifest(QVNInstallerManifest& manifest, JournaledManifest entry, ChangeJournal& journal);
  [[nodiscard]] bool write();
  [[nodiscard]] bool recover();

  const QVNInstallConfiguration& configuration_;
  QVNInstallerManifest& manifest_;
  JournalStore store_;
  ChangeJournal journal_;                     ///< of this run
  std::optional<ChangeJournal> interrupted_;  ///< what an earlier run left
  Names damagedComponents_;
  std::set<std::string, std::less<>> announced_;
  std::set<std::string, std::less<>> modifiableFilesToWrite_;
  bool isPartOfOuterRun_ = false;
  bool isWritten_ = false;
};

}  // namespace deployer
