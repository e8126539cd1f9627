#include "tests/support/PairMachine.h"

#include <algorithm>
#include <chrono>
#include <filesystem>
#include <span>
#include <sstream>
#include <thread>

#include "InstallationDeployer/QVNInstallerChecksum.h"
#include "tests/support/TreeCopy.h"

namespace tests {
namespace {

namespace fs = std::filesystem;
using support::PrivateRootError;
using support::Snapshot;
using support::SnapshotEntry;
using support::TreeExpectation;
using Version = ProductPair::Version;

constexpr const char* kReceipts = "/Library/Application Support/Corvane";
constexpr const char* kReceipt = "/Library/Application Support/Corvane/Guard/Installer.app";
constexpr const char* kReceiptEngine =
    "/Library/Application Support/Corvane/Guard/Installer.app/Contents/MacOS/InstallationDeployer";
constexpr const char* kJournals = "/var/db/com.corvane.installer";
constexpr const char* kCache = "/Library/Caches/com.corvane.installer";
constexpr const char* kCachedFiles = "/Library/Caches/com.corvane.installer/tmp";
constexpr const char* kStates = "/states/";
constexpr const char* kChanging[] = {"/Library", "/var/db", "/var/log"};

constexpr const char* kMade = "made by the product";

constexpr uid_t kUser = 501;
constexpr gid_t kStaff = 20;

bool isBelow(const std::string& path, const std::string& folder) {
  return path == folder || path.starts_with(folder + "/");
}

bool isTemporary(const std::string& path) { return path.find("/.com.corvane.installer.") != std::string::npos; }

/// A file as the user leaves it: in his own name.
struct UsersFile {
  const char* path;
  const char* content;
  mode_t mode;
};

constexpr UsersFile kOfFirst[] = {{ProductPair::kSettings, "settings of the user", 0600},
                                  {ProductPair::kFirstSettings, "first settings of the user", 0644},
                                  {ProductPair::kDefaultRule, "rule of the user", 0644},
                                  {ProductPair::kOwnNote, "note of the user", 0600}};
constexpr UsersFile kOfSecond[] = {{ProductPair::kSettings, "settings of the user", 0600},
                                   {ProductPair::kSecondSettings, "second settings of the user", 0644},
                                   {ProductPair::kDefaultRule, "rule of the user", 0644}};
constexpr UsersFile kOfClassic[] = {{ProductPair::kSettings, "settings of the user", 0600},
                                    {ProductPair::kClassicSettings, "older settings of the user", 0644},
                                    {ProductPair::kDefaultRule, "rule of the user", 0644},
                                    {ProductPair::kOwnRule, "own rule of the user", 0600}};

std::span<const UsersFile> filesOf(Start start) {
  switch (start) {
    case Start::First:
      return kOfFirst;
    case Start::Second:
      return kOfSecond;
    case Start::Classic:
      return kOfClassic;
    default:
      return {};
  }
}

std::string checksumOf(std::string_view text) {
  return deployer::QVNInstallerChecksum::generateSHA256(std::as_bytes(std::span(text)));
}

SnapshotEntry entryOf(const UsersFile& file) {
  const std::string_view content = file.content;
  return {file.path, '-', file.mode, kUser, kStaff, content.size(), "", checksumOf(content)};
}

const SnapshotEntry* find(const Snapshot& snapshot, const std::string& path) {
  const auto found = std::ranges::find(snapshot, path, &SnapshotEntry::path);
  return found == snapshot.end() ? nullptr : &*found;
}

bool isModifiable(const std::string& path) {
  const auto paths = ProductPair::modifiableFiles();
  return std::ranges::find(paths, path) != paths.end();
}

/// Enough to see what is wrong, and how much.
std::string firstLines(const std::string& text) {
  constexpr std::ptrdiff_t kEnough = 12;
  std::istringstream lines(text);
  std::string first;
  std::ptrdiff_t count = 0;
  for (std::string line; std::getline(lines, line); ++count) {
    first += count < kEnough ? line + "\n" : "";
  }
  return count <= kEnough ? first : first + "and " + std::to_string(count - kEnough) + " more\n";
}

/// The jobs that are loaded once these calls of launchctl are done.
std::set<std::string> loadedJobs(const std::vector<support::RecordedCall>& calls) {
  std::set<std::string> loaded;
  for (const support::RecordedCall& call : calls) {
    const std::string label = fs::path(call.arguments.back()).extension() == ".plist"
                                  ? fs::path(call.arguments.back()).stem().string()
                                  : call.arguments.back();
    if (std::ranges::find(call.arguments, "load") != call.arguments.end()) {
      loaded.insert(label);
    } else {
      loaded.erase(label);
    }
  }
  return loaded;
}

}  // namespace

std::string nameOf(Start start) {
  switch (start) {
    case Start::First:
      return "1.0";
    case Start::Second:
      return "1.1";
    case Start::Classic:
      return "the older product";
    default:
      return "no product";
  }
}

std::string nameOf(Way way) {
  switch (way) {
    case Way::First:
      return "1.0 is installed";
    case Way::Second:
      return "1.1 is installed";
    default:
      return "it is removed";
  }
}

PairMachine::PairMachine(support::PrivateRoot& root, const ProductPair& pair) : root_(root), pair_(pair) {
  furnish();
  empty_ = machine();
  learnReceipts();
}

PairMachine::PairMachine(support::PrivateRoot& root, const PairMachine& learnt)
    : root_(root), pair_(learnt.pair_), empty_(learnt.empty_), receipts_(learnt.receipts_) {
  logIn();
}

void PairMachine::logIn() {
  root_.setConsoleUser(kUser);
  static_cast<void>(root_.startProcess("loginwindow", kUser));
  ownProcesses_ = processes();
}

void PairMachine::start() {
  for (const char* folder : {"/Library/LaunchDaemons", "/Library/LaunchAgents"}) {
    for (const SnapshotEntry& entry : root_.snapshot(folder)) {
      if (entry.path.ends_with(".plist")) {
        static_cast<void>(root_.run({"/bin/launchctl", "load", entry.path}));
      }
    }
  }
}

void PairMachine::furnish() {
  for (const char* folder : {"/Library/Application Support", "/Library/Caches", "/Library/LaunchDaemons",
                             "/Library/LaunchAgents", "/var/db", "/var/log", "/states"}) {
    root_.makeDirectory(folder);
  }
  root_.writeFile(ProductPair::kLicence, "licensed");
  for (const Version version : {Version::First, Version::Second}) {
    root_.copyIn(pair_.bundle(version).path(), bundleInRoot(version));
  }
  logIn();
}

/// A receipt is what a run that nothing disturbs leaves.
void PairMachine::learnReceipts() {
  for (const Version version : {Version::First, Version::Second}) {
    const auto installed = install(version);
    const Snapshot receipt = root_.snapshot(kReceipt);
    if (!installed.succeeded() || receipt.empty() || !remove().succeeded()) {
      throw PrivateRootError("learning the receipt of " + ProductPair::versionText(version) + ": " +
                             installed.description());
    }
    receipts_[version] = receipt;
  }
  root_.forgetRecordedCalls();
}

void PairMachine::use(Start start) {
  for (const UsersFile& file : filesOf(start)) {
    root_.writeFile(file.path, file.content, file.mode, kUser, kStaff);
  }
  if (start == Start::First) {
    root_.writeFile(ProductPair::kMadeInCache, kMade);
    fs::remove(root_.path(ProductPair::kTool));
  }
}

void PairMachine::begin(Start start) {
  editedSettings_.clear();
  if (start == Start::First || start == Start::Second) {
    const auto outcome = install(start == Start::First ? Version::First : Version::Second);
    if (!outcome.succeeded()) {
      throw PrivateRootError("making the start " + nameOf(start) + ": " + outcome.description());
    }
  } else if (start == Start::Classic) {
    for (const SnapshotEntry& item : ProductPair::classicTree()) {
      if (item.type == 'd') {
        root_.makeDirectory(item.path, item.mode, item.user, item.group);
      } else {
        root_.writeFile(item.path, ProductPair::classicContent(item.path), item.mode, item.user, item.group);
      }
    }
    const std::string job = "/Library/LaunchDaemons/" + ProductPair::classicJob() + ".plist";
    static_cast<void>(root_.run({"/bin/launchctl", "load", "-w", job}));
  }
  use(start);
}

void PairMachine::keep(const std::string& name) {
  waitUntilQuiet();
  support::removeTree(root_.path(kStates + name));
  root_.makeDirectory(kStates + name, 0700);
  for (const std::string folder : kChanging) {
    support::makeDirectory(root_.path(kStates + name + fs::path(folder).parent_path().string()), 0700);
    support::copyTree(root_.path(folder), root_.path(kStates + name + folder));
  }
  root_.writeFile(kStates + name + "/calls", root_.readFile(std::string(support::kRecorderCalls)));
}

void PairMachine::putBack(const std::string& name) {
  waitUntilQuiet();
  for (const std::string folder : kChanging) {
    support::removeTree(root_.path(folder));
    support::copyTree(root_.path(kStates + name + folder), root_.path(folder));
  }
  root_.writeFile(std::string(support::kRecorderCalls), root_.readFile(kStates + name + "/calls"), 0666);
}

std::string PairMachine::bundleInRoot(Version version) {
  return "/Volumes/Guard " + ProductPair::versionText(version) + "/Installer.app";
}

std::vector<std::string> PairMachine::installCommand(Version version) {
  return {bundleInRoot(version) + "/Contents/MacOS/InstallationDeployer", "--install", "--product_name",
          ProductPair::kProduct};
}

std::vector<std::string> PairMachine::removeCommand() {
  return {kReceiptEngine, "--remove", "--product_name", ProductPair::kProduct};
}

bool PairMachine::hasReceipt() const { return root_.exists(kReceipt); }

support::Outcome PairMachine::go(Way way) {
  if (way != Way::Removal) {
    return install(way == Way::First ? Version::First : Version::Second);
  }
  if (!hasReceipt()) {
    if (auto before = install(Version::Second); !before.succeeded()) {
      return before;
    }
  }
  return remove();
}

bool PairMachine::settingsAreTheUsers() const {
  return root_.exists(ProductPair::kSettings) && root_.readFile(ProductPair::kSettings) == kOfFirst[0].content;
}

void PairMachine::editSettings(const std::string& content) {
  root_.writeFile(ProductPair::kSettings, content, 0600, kUser, kStaff);
  editedSettings_ = content;
}

std::set<std::string> PairMachine::processes() const {
  std::set<std::string> numbers;
  for (const auto& item : fs::directory_iterator(root_.path("/proc"))) {
    const std::string name = item.path().filename();
    if (name.find_first_not_of("0123456789") == std::string::npos) {
      numbers.insert(name);
    }
  }
  return numbers;
}

void PairMachine::waitUntilQuiet() const {
  const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(20);
  while (!std::ranges::includes(ownProcesses_, processes())) {
    if (std::chrono::steady_clock::now() > deadline) {
      throw PrivateRootError("a process does not end");
    }
    std::this_thread::yield();
  }
}

Snapshot PairMachine::machine() const {
  Snapshot all = root_.snapshot("/Library");
  std::erase_if(all, [](const SnapshotEntry& entry) {
    return isBelow(entry.path, kReceipts) || entry.path == kCache || isBelow(entry.path, kCachedFiles);
  });
  return all;
}

std::map<std::string, SnapshotEntry> PairMachine::usersFiles(Start start) const {
  std::map<std::string, SnapshotEntry> files;
  for (const UsersFile& file : filesOf(start)) {
    files[file.path] = entryOf(file);
  }
  if (!editedSettings_.empty()) {
    files[ProductPair::kSettings] = entryOf({ProductPair::kSettings, editedSettings_.c_str(), 0600});
  }
  return files;
}

TreeExpectation PairMachine::expected(Start start, Way way, Story story) const {
  TreeExpectation tree(empty_);
  if (way == Way::Removal) {
    expectRemoved(tree, start, story);
  } else {
    const Version version = way == Way::First ? Version::First : Version::Second;
    for (const SnapshotEntry& entry : ProductPair::tree(version)) {
      if (!isModifiable(entry.path)) {
        tree.require(entry);
      }
    }
    expectModifiableFiles(tree, start, version, story);
  }
  expectUsersThings(tree, start, way, story);
  return tree;
}

/// What the user edited is kept, and never written by an upgrade; a first installation writes what it delivers.
void PairMachine::expectModifiableFiles(TreeExpectation& tree, Start start, Version version, Story story) const {
  const Snapshot own = ProductPair::tree(version);
  const Snapshot others = ProductPair::tree(ProductPair::other(version));
  const auto users = usersFiles(start);
  const bool isFirstInstallation = start == Start::Nothing || start == Start::Classic;
  for (const std::string& path : ProductPair::modifiableFiles()) {
    const SnapshotEntry* delivered = find(own, path);
    const SnapshotEntry* otherwise = find(others, path);
    const auto mine = users.find(path);
    const bool mayHaveGone = story == Story::DisturbedRemoval || story == Story::RemovedMeanwhile;
    if (mine != users.end() && !mayHaveGone) {
      tree.require(mine->second);
      continue;
    }
    if (story == Story::Undisturbed) {
      if (delivered != nullptr && isFirstInstallation) {
        tree.require(*delivered);
      }
      continue;
    }
    // Either version may have been installed first, and the other one then leaves alone what it finds.
    if (mine != users.end()) {
      tree.allow(mine->second);
    }
    for (const SnapshotEntry* entry : {otherwise, delivered}) {
      if (entry != nullptr) {
        tree.allow(*entry);
      }
    }
    const bool wasThere = mine != users.end() && story != Story::RemovedMeanwhile;
    if (delivered == nullptr || (otherwise == nullptr && !wasThere)) {
      tree.allowMissing(path);
    }
  }
}

void PairMachine::expectUsersThings(TreeExpectation& tree, Start start, Way way, Story story) const {
  const Snapshot first = ProductPair::tree(Version::First);
  if (start == Start::First) {
    tree.require(*find(first, ProductPair::kFolder));
    tree.require(*find(first, fs::path(ProductPair::kOwnNote).parent_path()));
    tree.require(usersFiles(start).at(ProductPair::kOwnNote));
  }
  if (start == Start::First && way == Way::First) {
    const std::string_view made = kMade;
    tree.allow({ProductPair::kMadeInCache, '-', 0644, 0, 0, made.size(), "", checksumOf(made)});
    if (story != Story::Undisturbed) {
      tree.allowMissing(ProductPair::kMadeInCache);
    }
  }
}

/// Removal takes what the removed version lists, and what the interrupted one listed; nothing else.
void PairMachine::expectRemoved(TreeExpectation& tree, Start start, Story story) const {
  const Snapshot first = ProductPair::tree(Version::First);
  const Snapshot second = ProductPair::tree(Version::Second);
  const auto users = usersFiles(start);
  const auto mayStay = [&](const std::string& path) {
    tree.allow(*find(first, ProductPair::kFolder));
    tree.allowMissing(ProductPair::kFolder);
    for (const SnapshotEntry* entry : {find(first, path), find(second, path)}) {
      if (entry != nullptr) {
        tree.allow(*entry);
      }
    }
    if (const auto file = users.find(path); file != users.end()) {
      tree.allow(file->second);
    }
    tree.allowMissing(path);
  };
  if (story != Story::Undisturbed) {
    mayStay(ProductPair::kFirstSettings);
    mayStay(ProductPair::kSecondSettings);
    mayStay(ProductPair::kClassicSettings);
  }
  if (start == Start::Classic) {
    tree.require(*find(first, ProductPair::kFolder));
    tree.require(*find(first, ProductPair::kRules));
    tree.require(users.at(ProductPair::kOwnRule));
    if (story == Story::Undisturbed) {
      tree.require(users.at(ProductPair::kClassicSettings));
    }
  }
}

std::string PairMachine::whatIsWrong(Start start, Way way, Story story) const {
  waitUntilQuiet();
  return firstLines(expected(start, way, story).differences(machine()) + wrongReceipt(way) + wrongServices(way) +
                    leftovers());
}

std::string PairMachine::wrongServices(Way way) const {
  std::set<std::string> wanted;
  if (way != Way::Removal) {
    const auto jobs = ProductPair::jobs(way == Way::First ? Version::First : Version::Second);
    wanted.insert(jobs.begin(), jobs.end());
  }
  const std::set<std::string> loaded = loadedJobs(root_.recordedCalls());
  std::string text;
  for (const std::string& job : wanted) {
    text += loaded.contains(job) ? "" : "job " + job + ": not loaded\n";
  }
  for (const std::string& job : loaded) {
    text += wanted.contains(job) ? "" : "job " + job + ": still loaded\n";
  }
  if (way != Way::Removal) {
    std::istringstream runs(root_.exists(ProductPair::kProgramRuns) ? root_.readFile(ProductPair::kProgramRuns) : "");
    std::string last;
    for (std::string line; std::getline(runs, line);) {
      // The program does not flush what it writes: of its earlier lines a power cut may leave zeros alone.
      last = line.substr(std::min(line.find_first_not_of('\0'), line.size()));
    }
    const std::string version = ProductPair::versionText(way == Way::First ? Version::First : Version::Second);
    text += last == version ? "" : "program: last run was that of \"" + last + "\" instead of " + version + "\n";
  }
  return text;
}

std::string PairMachine::wrongReceipt(Way way) const {
  if (way == Way::Removal) {
    return hasReceipt() ? "receipt: still there\n" : "";
  }
  const TreeExpectation receipt(receipts_.at(way == Way::First ? Version::First : Version::Second));
  return receipt.differences(root_.snapshot(kReceipt));
}

std::string PairMachine::leftovers() const {
  std::string text;
  for (const SnapshotEntry& entry : root_.snapshot(kReceipts)) {
    const bool isFolder = entry.path == kReceipts || (hasReceipt() && entry.path == fs::path(kReceipt).parent_path());
    if (!isFolder && !isBelow(entry.path, kReceipt)) {
      text += entry.path + ": left among the receipts\n";
    }
  }
  for (const SnapshotEntry& entry : root_.snapshot(kCachedFiles)) {
    text += entry.path + ": left in the cache\n";
  }
  for (const SnapshotEntry& entry : root_.snapshot(kJournals)) {
    text += entry.type == 'd' ? "" : entry.path + ": a journal is left\n";
  }
  return text;
}

std::string PairMachine::tornItems(Start start) const {
  TreeExpectation tree(empty_);
  const auto users = usersFiles(start);
  for (const Snapshot& snapshot : {ProductPair::tree(Version::First), ProductPair::tree(Version::Second),
                                   start == Start::Classic ? ProductPair::classicTree() : Snapshot{}}) {
    std::ranges::for_each(snapshot, [&](const SnapshotEntry& entry) { tree.allow(entry); });
  }
  std::ranges::for_each(users, [&](const auto& file) { tree.allow(file.second); });
  const std::string_view made = kMade;
  tree.allow({ProductPair::kMadeInCache, '-', 0644, 0, 0, made.size(), "", checksumOf(made)});
  std::string text;
  for (const SnapshotEntry& entry : machine()) {
    if (!isTemporary(entry.path) && !tree.allows(entry)) {
      text += entry.path + ": torn (" + tree.differences({entry}).substr(0, 200) + ")\n";
    }
  }
  return text;
}

std::string PairMachine::whatIsLost(Start start, bool removes) const {
  return tornReceipt() + (removes ? "" : lostFiles(start));
}

bool PairMachine::hasJournal() const {
  return std::ranges::any_of(root_.snapshot(kJournals), [](const SnapshotEntry& entry) { return entry.type == '-'; });
}

std::string PairMachine::tornReceipt() const {
  const Snapshot found = root_.snapshot(kReceipt);
  const bool isWhole =
      found.empty() || std::ranges::any_of(receipts_, [&](const auto& receipt) { return receipt.second == found; });
  return isWhole ? "" : "receipt: torn\n";
}

std::string PairMachine::lostFiles(Start start) const {
  std::string text;
  for (const auto& [path, entry] : usersFiles(start)) {
    const auto holds = [&, &path = path, &entry = entry](const std::string& place) {
      const Snapshot found = root_.snapshot(place + path);
      return found.size() == 1 && found.front().checksum == entry.checksum;
    };
    text += holds("") || holds(kCachedFiles) ? "" : path + ": lost\n";
  }
  return text;
}

}  // namespace tests
