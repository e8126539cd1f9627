#include "InstallationDeployer/run/RunJournal.h"

#include <algorithm>
#include <cstdint>
#include <optional>
#include <utility>
#include <vector>

#include "InstallationDeployer/FileEntry.h"
#include "InstallationDeployer/installed/ComponentCache.h"
#include "InstallationDeployer/journal/JournalStanding.h"
#include "InstallationDeployer/run/InterruptedRunRecovery.h"
#include "general/foundation/CalendarDate.h"
#include "general/foundation/Error.h"
#include "general/foundation/ProcessStartPrimitives.h"
#include "general/foundation/files/FileBuffer.h"
#include "general/foundation/files/FileManager.h"
#include "general/ipc/NamedLock.h"
#include "general/logging/SystemLog.h"
#include "general/system/ProcessSelf.h"

namespace deployer {

using foundation::PropertyList;
using Role = JournaledManifest::Role;
namespace files = foundation::files;

namespace {

constexpr std::string_view kCacheLockName = ".cache";

using Names = std::vector<std::string>;

/// Paths of everything but directories, which many may list.
void collectItems(const PropertyList& manifest, std::set<std::string, std::less<>>& items) {
  for (const FileEntry& entry : fileEntriesOf(manifest)) {
    if (!entry.isDirectory() && entry.path()) {
      items.emplace(*entry.path());
    }
  }
}

std::optional<std::int64_t> startOf(int process) {
  const auto start = foundation::startOfProcess(process);
  return start ? std::optional(static_cast<std::int64_t>(*start)) : std::nullopt;
}

/// After a restart of the machine another process has the number.
bool wrote(int process, const ChangeJournal& journal) {
  return journal.process == process && journal.processStart == startOf(process);
}

/// Components of the bundle, beyond those of the journal, that list an item of it: it goes, and they are to bring it
/// back.
Names componentsThatShareFiles(const ChangeJournal& journal, QVNInstallerManifest& bundle, const std::string& product) {
  std::set<std::string, std::less<>> changed;
  for (const JournaledManifest& manifest : journal.manifests) {
    collectItems(manifest.content(), changed);
  }
  const Names journaled = journal.components();
  Names sharing;
  for (const std::string& component : bundle.componentListForProduct(product).value_or(Names{})) {
    std::set<std::string, std::less<>> items;
    collectItems(bundle.getManifestForComponent(component), items);
    const bool shares = std::ranges::any_of(items, [&](const std::string& item) { return changed.contains(item); });
    if (shares && std::ranges::find(journaled, component) == journaled.end()) {
      sharing.push_back(component);
    }
  }
  return sharing;
}

}  // namespace

RunJournal::RunJournal(const QVNInstallConfiguration& configuration, QVNInstallerManifest& manifest, JournalStore store)
    : configuration_(configuration), manifest_(manifest), store_(std::move(store)) {}

bool RunJournal::open(std::optional<int> outerRun) {
  if (!writesJournal()) {
    return true;
  }
  const auto found = store_.read(product());
  if (!found) {
    return setAside(found.error());
  }
  if (!found->has_value()) {
    return true;
  }
  isPartOfOuterRun_ = outerRun && wrote(*outerRun, **found);
  return isPartOfOuterRun_ || weigh(**found);
}

bool RunJournal::weigh(const ChangeJournal& found) {
  PropertyList versionsNow;
  if (configuration_.hasInstallerReceipt()) {
    QVNInstallerManifest receipt(configuration_.receiptPath());
    versionsNow = versionsIn(receipt, product());
    if (receipt.couldNotRead()) {
      return false;
    }
  }
  switch (standingOf(found, versionsNow)) {
    case JournalStanding::Interrupted:
      logging::notice("%@ What it may have left half changed is put right: %@", found.description(),
                      found.components());
      takeOver(found);
      return true;
    case JournalStanding::Finished:
      logging::notice("%@ Only its journal was left, which is dropped.", found.description());
      break;
    case JournalStanding::Overtaken:
      logging::notice("%@ Another engine has changed the product since, so its journal is dropped.",
                      found.description());
      break;
  }
  if (const auto removed = store_.remove(product()); !removed) {
    logging::error("Unable to remove the journal %@. %@", store_.pathFor(product()), removed.error());
    return false;
  }
  return true;
}

bool RunJournal::setAside(const foundation::Error& error) {
  const std::string path = store_.pathFor(product());
  if (error.code != foundation::kReadCorrupt) {
    logging::error("Unable to read the journal %@. %@", path, error);
    return false;
  }
  // What it may have stood for takes its place: this run, too, may end before it changes anything.
  auto all = everything();
  if (!all) {
    return false;
  }
  const auto aside = store_.setAsideFor(*all);
  if (!aside) {
    logging::error("Unable to set the journal %@ aside. %@", path, aside.error());
    return false;
  }
  logging::error("The journal %@ makes no sense and was set aside as %@. Every component counts as damaged. %@", path,
                 *aside, error);
  takeOver(*std::move(all));
  return true;
}

void RunJournal::takeOver(ChangeJournal found) {
  journal_.adopt(found);
  damagedComponents_ = found.components();
  for (std::string& component : componentsThatShareFiles(found, manifest_, product())) {
    damagedComponents_.push_back(std::move(component));
  }
  interrupted_ = std::move(found);
}

std::optional<ChangeJournal> RunJournal::everything() {
  ChangeJournal all;
  all.product = product();
  all.bundlePath = configuration_.bundlePath().value_or("");
  all.process = platform::self::processIdentifier();
  all.processStart = startOf(all.process);
  all.begunAt = foundation::secondsSince2001Now();
  Names components = manifest_.componentListForProduct(product()).value_or(Names{});
  if (configuration_.hasInstallerReceipt()) {
    QVNInstallerManifest receipt(configuration_.receiptPath());
    const Names installed = receipt.componentListForProduct(product()).value_or(Names{});
    components.insert(components.end(), installed.begin(), installed.end());
    all.versionsBefore = versionsIn(receipt, product());
    if (receipt.couldNotRead()) {
      return std::nullopt;
    }
  }
  if (!addManifests(components, all)) {
    return std::nullopt;
  }
  auto owed = component_cache::cachedFiles();
  if (!owed) {
    logging::error("Unable to tell which files wait in the cache. %@", owed.error());
    return std::nullopt;
  }
  all.owedFiles = *std::move(owed);
  // Nobody else fills the cache.
  all.treatedAsUpdate = !all.owedFiles.empty();
  return all;
}

void RunJournal::noteInstalled(const PropertyList& componentsAndVersions) {
  journal_.versionsBefore = componentsAndVersions;
}

bool RunJournal::begin(const Names& components) {
  if (!writesJournal()) {
    return true;
  }
  Names announced = components;
  if (!isWritten_ && configuration_.install() && !configuration_.hasInstallerReceipt()) {
    // A first install puts all of them in place. They are written down with what goes before, in one step.
    const Names all = manifest_.componentListForProduct(product()).value_or(Names{});
    announced.insert(announced.end(), all.begin(), all.end());
  }
  std::erase_if(announced, [this](const std::string& component) { return !announced_.insert(component).second; });
  const bool isFirst = !isWritten_;
  if (announced.empty() && !(isFirst && interrupted_)) {
    return true;
  }
  return addManifests(announced, journal_) && write() && (!isFirst || recover());
}

bool RunJournal::addManifests(const Names& components, ChangeJournal& journal) {
  const Names listed = manifest_.componentListForProduct(product()).value_or(Names{});
  const std::set<std::string_view> ofProduct(listed.begin(), listed.end());
  QVNInstallerManifest receipt(configuration_.receiptPath());
  for (const std::string& component : components) {
    const bool isPlaced = configuration_.install() && ofProduct.contains(component);
    const bool withModifiableFiles = isPlaced ? !configuration_.hasInstallerReceipt() : configuration_.remove();
    if (!addManifest(manifest_,
                     {.component = component,
                      .role = isPlaced ? Role::Placed : Role::Removed,
                      .withModifiableFiles = withModifiableFiles,
                      .document = {}},
                     journal)) {
      return false;
    }
    if (configuration_.install() && configuration_.hasInstallerReceipt() &&
        !addManifest(receipt, {.component = component, .role = Role::Removed, .document = {}}, journal)) {
      return false;
    }
  }
  return true;
}

bool RunJournal::addManifest(QVNInstallerManifest& manifest, JournaledManifest entry, ChangeJournal& journal) {
  const std::string path = manifest.getPathForComponent(entry.component);
  foundation::FileBuffer buffer;
  const auto content = files::read(path, buffer);
  if (!content) {
    if (content.error().isNoSuchFile()) {
      return true;
    }
    logging::error("Failed to read manifest for %@. %@", entry.component, content.error());
    return false;
  }
  entry.document = PropertyList::data(*content);
  journal.add(std::move(entry));
  return true;
}

bool RunJournal::write() {
  journal_.operation = configuration_.remove() && !configuration_.install() ? ChangeJournal::Operation::Remove
                                                                            : ChangeJournal::Operation::Install;
  journal_.product = product();
  journal_.bundlePath = configuration_.bundlePath().value_or("");
  journal_.process = platform::self::processIdentifier();
  journal_.processStart = startOf(journal_.process);
  journal_.begunAt = foundation::secondsSince2001Now();
  journal_.treatedAsUpdate = journal_.treatedAsUpdate || configuration_.treatAsUpdate();
  const PropertyList versions = versionsIn(manifest_, product());
  if (manifest_.couldNotRead()) {
    // By wrong versions the next run would take the journal for one that was overtaken.
    return false;
  }
  if (journal_.operation == ChangeJournal::Operation::Remove) {
    journal_.versionsBefore = versions;
  } else {
    journal_.versionsAfter = versions;
  }
  auto written = journal_.owedFiles.empty() ? foundation::Status() : component_cache::flush();
  if (written) {
    written = store_.write(journal_);
  }
  if (!written) {
    logging::error("Unable to write the journal %@, without which nothing is changed. %@", store_.pathFor(product()),
                   written.error());
    return false;
  }
  isWritten_ = true;
  return true;
}

bool RunJournal::recover() {
  if (!interrupted_) {
    return true;
  }
  const bool forGood = configuration_.remove() && !configuration_.install();
  if (const auto recovered = InterruptedRunRecovery(*interrupted_).run(forGood); !recovered) {
    logging::error("Unable to put right what an interrupted run left. %@", recovered.error());
    return false;
  }
  auto missing = InterruptedRunRecovery::missingModifiableFiles(journal_);
  if (!missing) {
    logging::error("Unable to put right what an interrupted run left. %@", missing.error());
    return false;
  }
  modifiableFilesToWrite_ = *std::move(missing);
  note("put right", interrupted_->components());
  return true;
}

void RunJournal::note(std::string_view what, const Names& components) {
  if (!isWritten_ || components.empty()) {
    return;
  }
  if (const auto appended = store_.append(product(), {std::string(what), components}); !appended) {
    // Whoever finds the journal does again what may be done already.
    logging::debug("Unable to add to the journal %@. %@", store_.pathFor(product()), appended.error());
  }
}

bool RunJournal::finish() {
  if (!isWritten_) {
    return true;
  }
  const auto isShared = sharesCache();
  if (journal_.operation == ChangeJournal::Operation::Remove && isShared && !*isShared) {
    // Nobody is left to put them back for.
    for (const std::string& path : journal_.owedFiles) {
      static_cast<void>(component_cache::removeCopy(path));
    }
  }
  if (const auto removed = store_.remove(product()); !removed) {
    logging::error("Unable to remove the journal %@. %@", store_.pathFor(product()), removed.error());
    return false;
  }
  isWritten_ = false;
  interrupted_.reset();
  return true;
}

void RunJournal::noteOwedFile(const std::string& path, bool fromElsewhere) {
  const auto add = [&path](Names& names) {
    if (std::ranges::find(names, path) == names.end()) {
      names.push_back(path);
    }
  };
  add(journal_.owedFiles);
  if (fromElsewhere) {
    add(journal_.owedFromElsewhere);
  }
}

std::shared_ptr<const void> RunJournal::lockCache() {
  auto lock = ipc::NamedLock::acquire(kCacheLockName);
  return lock ? std::make_shared<const ipc::NamedLock>(std::move(*lock)) : nullptr;
}

foundation::Result<bool> RunJournal::sharesCache() const { return store_.anotherOwesFiles(product()); }

}  // namespace deployer
