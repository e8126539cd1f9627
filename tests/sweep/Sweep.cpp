// fault-sweep: lets system calls of runs fail, one at a time, and looks at what comes of it.
//
// Every call of every kind in every flow, with each error that it really gives, unless options say less. Prints a table
// and writes a line for each fault that something was wrong after. Needs root and seccomp's user notifications.

#include <getopt.h>
#include <sys/mman.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <charconv>
#include <chrono>
#include <exception>
#include <fstream>
#include <iostream>
#include <iterator>
#include <map>
#include <new>
#include <set>
#include <sstream>
#include <stdexcept>
#include <string>
#include <vector>

#include "tests/sweep/SweepRoot.h"
#include "tests/sweep/SweepTable.h"

namespace {

using sweep::FaultCheck;
using sweep::FaultPoint;
using sweep::Flow;
using sweep::SweepRoot;
using sweep::SweepTable;

constexpr int kSomethingWrong = 1;
constexpr int kUsageError = 2;
constexpr int kCannot = 125;

constexpr const char* kUsage =
    "usage: fault-sweep [options]\n"
    "  --flows A,B      only these: install upgrade downgrade repair removal cross-grade nested watched\n"
    "  --calls A,B      only these kinds of calls: open read write rename and the like; allocation, no call and only "
    "on\n"
    "                   request, is memory\n"
    "  --jobs N         so many side by side (default: 1)\n"
    "  --minutes M      no new fault after so long\n"
    "  --sample I/K     the I-th (from 1) of every K, spread over all\n"
    "  --output FILE    where to write what was wrong after which fault (default: fault-sweep.txt)\n"
    "  --one \"POINT\"    only this one, as the file names it, with all that the run says\n"
    "Exit code 1: something was wrong; 2: a wrong call; 125: no calls can be made to fail here.\n";

struct Settings {
  std::set<std::string> flows;
  std::set<std::string> calls;
  unsigned jobs = 1;
  unsigned minutes = 0;
  std::size_t part = 1;  ///< of so many parts
  std::size_t parts = 1;
  std::string output = "fault-sweep.txt";
  std::string one;
};

std::set<std::string> words(const std::string& list) {
  std::set<std::string> result;
  std::istringstream text(list);
  for (std::string word; std::getline(text, word, ',');) {
    result.insert(word);
  }
  return result;
}

std::size_t number(const std::string& text) {
  std::size_t value = 0;
  const char* end = text.data() + text.size();
  const auto parsed = std::from_chars(text.data(), end, value);
  if (parsed.ptr != end || value == 0) {
    throw std::invalid_argument("not a number: " + text);
  }
  return value;
}

void takePart(const std::string& text, Settings& settings) {
  const std::size_t slash = text.find('/');
  if (slash == std::string::npos) {
    throw std::invalid_argument("not of the form I/K: " + text);
  }
  settings.part = number(text.substr(0, slash));
  settings.parts = number(text.substr(slash + 1));
}

std::vector<FaultPoint> partOf(const std::vector<FaultPoint>& points, const Settings& settings) {
  std::vector<FaultPoint> chosen;
  for (std::size_t index = (settings.part - 1) % settings.parts; index < points.size(); index += settings.parts) {
    chosen.push_back(points[index]);
  }
  return chosen;
}

void take(char letter, const std::string& value, Settings& settings) {
  switch (letter) {
    case 'f':
      settings.flows = words(value);
      break;
    case 'c':
      settings.calls = words(value);
      break;
    case 'j':
      settings.jobs = static_cast<unsigned>(number(value));
      break;
    case 'm':
      settings.minutes = static_cast<unsigned>(number(value));
      break;
    case 's':
      takePart(value, settings);
      break;
    case 'o':
      settings.output = value;
      break;
    case '1':
      settings.one = value;
      break;
    default:
      throw std::invalid_argument("no such option");
  }
}

Settings settingsFrom(int count, char** values) {
  static const option kOptions[] = {
      {"flows", 1, nullptr, 'f'},  {"calls", 1, nullptr, 'c'},  {"jobs", 1, nullptr, 'j'}, {"minutes", 1, nullptr, 'm'},
      {"sample", 1, nullptr, 's'}, {"output", 1, nullptr, 'o'}, {"one", 1, nullptr, '1'},  {nullptr, 0, nullptr, 0}};
  Settings settings;
  for (int letter = 0; (letter = getopt_long(count, values, "", kOptions, nullptr)) != -1;) {
    take(static_cast<char>(letter), optarg == nullptr ? "" : optarg, settings);
  }
  for (const std::string& kind : settings.calls) {
    if (kind != FaultPoint::kAllocation) {
      static_cast<void>(sweep::kindNamed(kind));
    }
  }
  if (optind != count) {
    throw std::invalid_argument(std::string("not understood: ") + values[optind]);
  }
  return settings;
}

struct Work {
  std::map<std::string, Flow> flows;
  std::vector<FaultPoint> points;
};

void takePoints(FaultCheck check, const Settings& settings, std::vector<FaultPoint>& points) {
  if (settings.calls.contains(FaultPoint::kAllocation)) {
    std::ranges::copy(check.allocationPoints(), std::back_inserter(points));
  }
  if (settings.calls == std::set<std::string>{FaultPoint::kAllocation}) {
    return;
  }
  std::ranges::copy_if(check.points(), std::back_inserter(points), [&](const FaultPoint& point) {
    return settings.calls.empty() || settings.calls.contains(point.kind);
  });
}

Work makeWork(const sweep::Products& products, const Settings& settings) {
  SweepRoot place(products, CORVANE_STATUS_WATCHER);
  const auto empty = sweep::MachineStore(place.root()).take({});
  Work work;
  for (const std::string& name : sweep::flowNames()) {
    if (!settings.flows.empty() && !settings.flows.contains(name)) {
      continue;
    }
    sweep::MachineStore(place.root()).put(empty);
    const Flow& flow = work.flows.emplace(name, sweep::makeFlow(place.root(), name)).first->second;
    takePoints(FaultCheck(place.root(), flow), settings, work.points);
  }
  if (work.points.empty()) {
    throw std::invalid_argument("nothing to do: no such flow or call");
  }
  sweep::mix(work.points);
  work.points = partOf(work.points, settings);
  return work;
}

/// Takes points one after the other until none is left or the time is over.
void workOff(const Work& work, const sweep::Products& products, std::atomic<std::size_t>& next,
             const Settings& settings, const std::string& output) {
  const auto end = std::chrono::steady_clock::now() + std::chrono::minutes(settings.minutes);
  SweepRoot place(products, CORVANE_STATUS_WATCHER);
  std::map<std::string, FaultCheck> checks;
  std::ofstream results(output);
  for (std::size_t index = 0; (index = next++) < work.points.size();) {
    if (settings.minutes != 0 && std::chrono::steady_clock::now() > end) {
      break;
    }
    const FaultPoint& point = work.points[index];
    FaultCheck& check = checks.try_emplace(point.flow, place.root(), work.flows.at(point.flow)).first->second;
    SweepTable::write(results, point, check.check(point));
    results.flush();
  }
}

std::string fileOf(const std::string& output, unsigned job) { return output + "." + std::to_string(job); }

/// In processes of their own, for a private root belongs to the thread that made it.
bool workSideBySide(const Work& work, const sweep::Products& products, const Settings& settings) {
  void* page =
      mmap(nullptr, sizeof(std::atomic<std::size_t>), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0);
  if (page == MAP_FAILED) {
    support::throwErrno("sharing memory");
  }
  auto* next = new (page) std::atomic<std::size_t>(0);
  for (unsigned job = 0; job < settings.jobs; ++job) {
    if (fork() == 0) {
      try {
        workOff(work, products, *next, settings, fileOf(settings.output, job));
      } catch (const std::exception& error) {
        std::cerr << "fault-sweep: " << error.what() << '\n';
        _exit(kCannot);
      }
      _exit(0);
    }
  }
  bool allWorked = true;
  for (int status = 0; wait(&status) > 0;) {
    allWorked = allWorked && status == 0;
  }
  return allWorked;
}

SweepTable gather(const Settings& settings) {
  SweepTable table;
  std::ofstream findings(settings.output);
  for (unsigned job = 0; job < settings.jobs; ++job) {
    const std::string part = fileOf(settings.output, job);
    std::ifstream written(part);
    table.read(written, findings);
    unlink(part.c_str());
  }
  return table;
}

int checkOne(const sweep::Products& products, const std::string& text) {
  const auto point = FaultPoint::fromText(text);
  if (!point) {
    throw std::invalid_argument("not a point: " + text);
  }
  SweepRoot place(products, CORVANE_STATUS_WATCHER);
  const Flow flow = sweep::makeFlow(place.root(), point->flow);
  const sweep::Verdict verdict = FaultCheck(place.root(), flow).check(*point);
  std::cout << verdict.log;
  SweepTable::write(std::cout, *point, verdict);
  return verdict.findings.empty() ? 0 : kSomethingWrong;
}

int sweepAll(const sweep::Products& products, const Settings& settings) {
  const Work work = makeWork(products, settings);
  std::cout << work.points.size() << " faults" << std::endl;
  const bool allWorked = workSideBySide(work, products, settings);
  const SweepTable table = gather(settings);
  table.print(std::cout);
  if (!allWorked) {
    return kCannot;
  }
  return table.nothingIsWrong() ? 0 : kSomethingWrong;
}

}  // namespace

int main(int count, char** values) {
  try {
    const Settings settings = settingsFrom(count, values);
    if (const auto reason = support::FaultyRun::whyImpossible()) {
      std::cerr << "fault-sweep: " << *reason << '\n';
      return kCannot;
    }
    const sweep::Products products(CORVANE_ENGINE);
    return settings.one.empty() ? sweepAll(products, settings) : checkOne(products, settings.one);
  } catch (const std::invalid_argument& error) {
    std::cerr << "fault-sweep: " << error.what() << '\n' << kUsage;
    return kUsageError;
  } catch (const std::exception& error) {
    std::cerr << "fault-sweep: " << error.what() << '\n';
    return kCannot;
  }
}
