#include "tools/building/Interruption.h"

#include <array>
#include <csignal>

namespace bundletool {

namespace {

constexpr std::array<int, 3> kSignals{SIGINT, SIGTERM, SIGHUP};

volatile std::sig_atomic_t noted = 0;
std::array<void (*)(int), kSignals.size()> earlierHandlers{};

void note(int) { noted = 1; }

}  // namespace

Interruption::Interruption() {
  noted = 0;
  for (std::size_t index = 0; index < kSignals.size(); ++index) {
    earlierHandlers[index] = std::signal(kSignals[index], note);
    // What is ignored from outside (a command started in the background) stays ignored.
    if (earlierHandlers[index] == SIG_IGN) {
      static_cast<void>(std::signal(kSignals[index], SIG_IGN));
    }
  }
}

Interruption::~Interruption() {
  for (std::size_t index = 0; index < kSignals.size(); ++index) {
    static_cast<void>(std::signal(kSignals[index], earlierHandlers[index]));
  }
  noted = 0;
}

bool Interruption::requested() { return noted != 0; }

}  // namespace bundletool
