// Cuts the power of a machine whose root lies on a loop device: copies the device at a moment of a run, with what it
// had received by then and nothing of what the system still held in memory, starts a machine from the copy and looks.
// See scripts/power-cuts.sh.

#include <fcntl.h>
#include <getopt.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <charconv>
#include <climits>
#include <filesystem>
#include <iostream>
#include <memory>
#include <optional>
#include <random>
#include <sstream>
#include <string>
#include <vector>

#include "tests/support/KilledRun.h"
#include "tests/support/LoopDevice.h"
#include "tests/support/PairMachine.h"
#include "tests/support/TemporaryDirectory.h"

namespace {

namespace fs = std::filesystem;
using support::KilledRun;
using support::KillMoment;
using support::PrivateRoot;
using support::PrivateRootError;
using tests::PairMachine;
using tests::ProductPair;
using tests::Start;
using tests::Story;
using tests::Way;

constexpr int kUsageError = 64;
constexpr int kSkipped = 77;
constexpr const char* kUsage =
    "usage: power-cuts --file-system TYPE [--flow NAME] [--moments NUMBER] [--seed NUMBER] [--folder FOLDER]\n"
    "  flows: install upgrade downgrade removal cross-grade; without a name all of them\n";
constexpr std::uint64_t kMebibyte = std::uint64_t{1024} * 1024;
/// One run in so many comes to its end before the power goes.
constexpr unsigned long kEnds = 8;

struct Flow {
  const char* name;
  Start start;
  Way way;
};
constexpr Flow kFlows[] = {{"install", Start::Nothing, Way::First},
                           {"upgrade", Start::First, Way::Second},
                           {"downgrade", Start::Second, Way::First},
                           {"removal", Start::First, Way::Removal},
                           {"cross-grade", Start::Classic, Way::Second}};

struct Wishes {
  std::string fileSystem;
  std::string flow;
  std::string folder;
  unsigned long moments = 30;
  unsigned long seed = 1;
};

struct Figures {
  unsigned long moments = 0;
  unsigned long atTheEnd = 0;
  unsigned long ways = 0;
  unsigned long unfinished = 0;  ///< cuts after which a new item showed without its content, under a journal
  unsigned long wrong = 0;
};

/// What a run complained of, without the rest of what it said.
std::string errorsOf(const support::Outcome& outcome) {
  std::istringstream lines(outcome.standardError);
  std::string text;
  for (std::string line; std::getline(lines, line);) {
    text += line.find("<Error>") == std::string::npos ? "" : line + "\n";
  }
  return text;
}

/// A root on a copy of an image; both are gone with it.
class Disk {
 public:
  Disk(const std::string& image, const std::string& fileSystem) : image_(image), device_(image) {
    PrivateRoot::Options options;
    options.way = PrivateRoot::Way::Mounts;
    options.device = device_.path();
    options.fileSystem = fileSystem;
    root_ = std::make_unique<PrivateRoot>(options);
  }
  ~Disk() {
    root_.reset();
    std::error_code ignored;
    fs::remove(image_, ignored);
  }
  Disk(const Disk&) = delete;
  Disk& operator=(const Disk&) = delete;

  PrivateRoot& root() { return *root_; }
  [[nodiscard]] const std::string& image() const { return image_; }
  /// Everything that was written until now reaches the device.
  void flush() {
    const int folder = open(root_->path("/").c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    const bool flushed = folder >= 0 && syncfs(folder) == 0;
    close(folder);
    if (!flushed) {
      throw PrivateRootError("flushing a root failed");
    }
  }

 private:
  std::string image_;
  support::LoopDevice device_;
  std::unique_ptr<PrivateRoot> root_;
};

/// Every cut of one flow on one kind of file system.
class Cuts {
 public:
  Cuts(const Flow& flow, const Wishes& wishes, const ProductPair& pair, const std::string& folder)
      : flow_(flow), wishes_(wishes), folder_(folder), random_(wishes.seed) {
    const std::uint64_t size = wishes.fileSystem == "xfs" ? 320 * kMebibyte : 200 * kMebibyte;
    support::makeImage(path("base"), wishes.fileSystem, size);
    Disk disk(path("base"), wishes.fileSystem);
    learnt_ = std::make_unique<PairMachine>(disk.root(), pair);
    learnt_->begin(flow.start);
    disk.flush();
    support::copyImage(disk.image(), path("start"));
    calls_ = changesOf(disk);
  }
  Cuts(const Cuts&) = delete;
  Cuts& operator=(const Cuts&) = delete;

  Figures run() {
    for (unsigned long index = 0; index < wishes_.moments; ++index) {
      const bool ends = index % kEnds == kEnds - 1;
      cut(ends ? ULONG_MAX : std::uniform_int_distribution<unsigned long>(1, calls_)(random_));
    }
    return figures_;
  }

 private:
  [[nodiscard]] std::string path(const std::string& name) const { return folder_ + "/" + name; }
  [[nodiscard]] bool removes() const { return flow_.way == Way::Removal; }
  [[nodiscard]] std::vector<std::string> command() const {
    return removes() ? PairMachine::removeCommand()
                     : PairMachine::installCommand(flow_.way == Way::First ? ProductPair::Version::First
                                                                           : ProductPair::Version::Second);
  }
  support::KilledOutcome killAt(PrivateRoot& root, unsigned long number) {
    KillMoment moment;
    moment.calls = KilledRun::nameAndAttributeChanges();
    moment.calls.insert(moment.calls.end(), {SYS_fsync, SYS_fdatasync, SYS_syncfs});
    moment.number = number;
    moment.when = random_() % 2 == 0 ? KillMoment::When::Before : KillMoment::When::After;
    return KilledRun::run(root, command(), moment);
  }
  unsigned long changesOf(Disk& disk) {
    const auto whole = killAt(disk.root(), ULONG_MAX);
    if (whole.outcome.exitCode != 0) {
      throw PrivateRootError("a run that nothing disturbs failed: " + whole.outcome.description());
    }
    return whole.callsSeen;
  }

  void cut(unsigned long number) {
    ++figures_.moments;
    const std::string what =
        std::string(flow_.name) + " on " + wishes_.fileSystem + ", " +
        (number == ULONG_MAX ? "at its end" : "at change " + std::to_string(number) + " of " + std::to_string(calls_));
    support::copyImage(path("start"), path("run"));
    bool ended = false;
    {
      Disk disk(path("run"), wishes_.fileSystem);
      const PairMachine machine(disk.root(), *learnt_);
      disk.flush();
      ended = !killAt(disk.root(), number).reached;
      letSomeOfItReachTheDevice(disk.root());
      support::copyImage(disk.image(), path("cut"));
    }
    if (ended) {
      ++figures_.atTheEnd;
      look(what, [&](PairMachine& machine) { return whatIsWrongAtTheEnd(machine); });
    } else {
      look(what, [&](PairMachine& machine) { return whatIsTorn(machine); });
    }
    for (const Way way : {Way::First, Way::Second, Way::Removal}) {
      ++figures_.ways;
      look(what + ", then " + nameOf(way), [&](PairMachine& machine) { return goAndLook(machine, way, ended); });
    }
    fs::remove(path("cut"));
  }

  /// The system writes back what it likes when it likes; here: some items that chance picks, or none.
  void letSomeOfItReachTheDevice(PrivateRoot& root) {
    unsigned long wanted = random_() % 2 == 0 ? 0 : 1 + random_() % 3;
    const support::Snapshot tree = root.snapshot("/Library");
    while (wanted-- > 0) {
      const support::SnapshotEntry& entry = tree[random_() % tree.size()];
      const int item = entry.type == 'd' || entry.type == '-'
                           ? open(root.path(entry.path).c_str(), O_RDONLY | O_NOFOLLOW | O_CLOEXEC)
                           : -1;
      if (item >= 0) {
        static_cast<void>(fsync(item));
        close(item);
      }
    }
  }

  /// A run flushes what it put in place before anything vouches for it. Until then the journal says that it is not
  /// done, and the next run puts it in place again; what is the user's may be lost at no moment.
  std::string whatIsTorn(const PairMachine& machine) {
    const std::string items = machine.tornItems(flow_.start);
    if (items.empty() || machine.hasJournal()) {
      figures_.unfinished += items.empty() ? 0 : 1;
      return machine.whatIsLost(flow_.start, removes());
    }
    return items + machine.whatIsLost(flow_.start, removes());
  }

  /// Everything is there. That the journal is gone may not have reached the device; the next run drops it then.
  std::string whatIsWrongAtTheEnd(const PairMachine& machine) {
    std::istringstream lines(machine.whatIsWrong(flow_.start, flow_.way, Story::Undisturbed));
    std::string text;
    for (std::string line; std::getline(lines, line);) {
      text += line.ends_with(": a journal is left") ? "" : line + "\n";
    }
    return text;
  }

  std::string goAndLook(PairMachine& machine, Way way, bool ended) {
    const auto outcome = machine.go(way);
    std::string wrong = machine.whatIsWrong(flow_.start, way, removes() ? Story::DisturbedRemoval : Story::Disturbed);
    if (ended && removes() && !wrong.empty()) {
      // What the user had edited is gone with the product.
      wrong = machine.whatIsWrong(Start::Nothing, way, Story::Disturbed);
    }
    if (outcome.exitCode != 0) {
      wrong += "exit code " + std::to_string(outcome.exitCode) + "\n" + errorsOf(outcome);
    }
    return wrong;
  }

  /// Starts a machine from what the device had received, and has something seen there.
  template <class See>
  void look(const std::string& what, See see) {
    std::string wrong;
    try {
      support::copyImage(path("cut"), path("seen"));
      Disk disk(path("seen"), wishes_.fileSystem);
      PairMachine machine(disk.root(), *learnt_);
      machine.start();
      wrong = see(machine);
    } catch (const PrivateRootError& error) {
      wrong = error.what();
    }
    if (!wrong.empty()) {
      ++figures_.wrong;
      std::cout << what << ":\n" << wrong << std::flush;
    }
  }

  const Flow& flow_;
  const Wishes& wishes_;
  std::string folder_;
  std::mt19937_64 random_;
  std::unique_ptr<PairMachine> learnt_;
  unsigned long calls_ = 0;
  Figures figures_;
};

bool takeNumber(const char* text, unsigned long& number) {
  const std::string_view digits = text;
  const auto parsed = std::from_chars(digits.data(), digits.data() + digits.size(), number);
  return parsed.ec == std::errc{} && parsed.ptr == digits.data() + digits.size();
}

std::optional<Wishes> parse(int count, char** values) {
  static const option kOptions[] = {
      {"file-system", required_argument, nullptr, 't'}, {"flow", required_argument, nullptr, 'w'},
      {"moments", required_argument, nullptr, 'm'},     {"seed", required_argument, nullptr, 's'},
      {"folder", required_argument, nullptr, 'f'},      {nullptr, 0, nullptr, 0}};
  Wishes wishes;
  bool good = true;
  for (int found = 0; (found = getopt_long(count, values, "", kOptions, nullptr)) != -1;) {
    if (found == 't') {
      wishes.fileSystem = optarg;
    } else if (found == 'w') {
      wishes.flow = optarg;
    } else if (found == 'f') {
      wishes.folder = optarg;
    } else if (found == 'm') {
      good = good && takeNumber(optarg, wishes.moments);
    } else if (found == 's') {
      good = good && takeNumber(optarg, wishes.seed);
    } else {
      good = false;
    }
  }
  return good && optind == count && !wishes.fileSystem.empty() ? std::optional(wishes) : std::nullopt;
}

std::optional<std::string> whyImpossible(const std::string& fileSystem) {
  if (auto reason = support::whyNoFileSystem(fileSystem)) {
    return reason;
  }
  if (auto reason = PrivateRoot::whyImpossible(PrivateRoot::Way::Mounts)) {
    return reason;
  }
  if (auto reason = support::LoopDevice::whyImpossible()) {
    return reason;
  }
  return KilledRun::whyImpossible();
}

int run(const Wishes& wishes) {
  const ProductPair pair(CORVANE_ENGINE);
  if (!wishes.folder.empty()) {
    setenv("TMPDIR", wishes.folder.c_str(), 1);
  }
  unsigned long wrong = 0;
  for (const Flow& flow : kFlows) {
    if (!wishes.flow.empty() && wishes.flow != flow.name) {
      continue;
    }
    const tests::TemporaryDirectory folder;
    Cuts cuts(flow, wishes, pair, folder.path());
    const Figures figures = cuts.run();
    wrong += figures.wrong;
    std::cout << wishes.fileSystem << " " << flow.name << ": " << figures.moments << " cuts, " << figures.atTheEnd
              << " of them at the end, " << figures.unfinished << " with unfinished items under a journal; "
              << figures.ways << " ways gone; " << figures.wrong << " wrong\n"
              << std::flush;
  }
  return wrong == 0 ? 0 : 1;
}

}  // namespace

int main(int count, char** values) {
  const auto wishes = parse(count, values);
  if (!wishes) {
    std::cerr << kUsage;
    return kUsageError;
  }
  try {
    if (const auto reason = whyImpossible(wishes->fileSystem)) {
      std::cerr << "power-cuts: skipped: " << *reason << "\n";
      return kSkipped;
    }
    return run(*wishes);
  } catch (const std::exception& error) {
    std::cerr << "power-cuts: " << error.what() << "\n";
    return 1;
  }
}
