// idle-process: what a process that waits spends while it waits.
//
//   idle-process PROCESS SECONDS
//
// Watches the process for so long and prints one line per fact, "name value": its processor time, and how often its
// threads went to sleep again, which is how often they had woken.

#include <time.h>
#include <unistd.h>

#include <chrono>
#include <cstdint>
#include <exception>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <stdexcept>
#include <string>
#include <thread>

namespace {

constexpr double kNanosecondsInAMillisecond = 1e6;
constexpr double kNanosecondsInASecond = 1e9;
constexpr const char* kSleeps = "voluntary_ctxt_switches:";

struct Spent {
  double processorNanoseconds = 0;
  std::int64_t sleeps = 0;
};

std::int64_t sleepsOf(const std::filesystem::path& thread) {
  std::ifstream status(thread / "status");
  std::string word;
  std::int64_t count = 0;
  while (status >> word) {
    if (word == kSleeps && status >> count) {
      return count;
    }
  }
  throw std::runtime_error("cannot read " + (thread / "status").string());
}

// The clock of the process is as fine as the system's own accounts; the times in its stat file are hundredths of
// seconds.
double processorNanosecondsOf(pid_t process) {
  clockid_t clock{};
  timespec time{};
  if (clock_getcpuclockid(process, &clock) != 0 || clock_gettime(clock, &time) != 0) {
    throw std::runtime_error("cannot read the processor time");
  }
  return static_cast<double>(time.tv_sec) * kNanosecondsInASecond + static_cast<double>(time.tv_nsec);
}

Spent spentBy(pid_t process) {
  Spent spent;
  for (const auto& thread : std::filesystem::directory_iterator("/proc/" + std::to_string(process) + "/task")) {
    spent.sleeps += sleepsOf(thread.path());
  }
  spent.processorNanoseconds = processorNanosecondsOf(process);
  return spent;
}

void watch(pid_t process, int seconds) {
  const Spent before = spentBy(process);
  std::this_thread::sleep_for(std::chrono::seconds(seconds));
  const Spent after = spentBy(process);
  const double nanoseconds = after.processorNanoseconds - before.processorNanoseconds;
  std::cout << "processor-milliseconds-per-second " << nanoseconds / kNanosecondsInAMillisecond / seconds << "\n"
            << "wake-ups-per-second " << static_cast<double>(after.sleeps - before.sleeps) / seconds << "\n";
}

}  // namespace

int main(int count, char** values) {
  try {
    if (count != 3) {
      std::cerr << "usage: idle-process PROCESS SECONDS\n";
      return 2;
    }
    watch(std::stoi(values[1]), std::stoi(values[2]));
    return 0;
  } catch (const std::exception& problem) {
    std::cerr << "idle-process: " << problem.what() << '\n';
    return 1;
  }
}
