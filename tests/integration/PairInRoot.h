#pragma once

#include <memory>
#include <optional>
#include <ostream>
#include <string>

#include "tests/integration/InPrivateRoot.h"
#include "tests/support/PairMachine.h"

namespace tests {

// What a parameter of a test is called in its name.
inline void PrintTo(Start start, std::ostream* stream) { *stream << nameOf(start); }
inline void PrintTo(Way way, std::ostream* stream) { *stream << nameOf(way); }

/// A test with a machine that knows both versions of a product and what each way of going on promises.
class PairInRoot : public InPrivateRoot {
 protected:
  using Version = ProductPair::Version;

  [[nodiscard]] bool needsProc() const override { return true; }
  void prepare() override { machine_ = std::make_unique<PairMachine>(root(), pair()); }

  /// What a run complained of, without the rest of what it said.
  static std::string errorsOf(const support::Outcome& outcome) {
    std::string text = outcome.signal == 0 ? "" : "signal " + std::to_string(outcome.signal) + "\n";
    for (const LoggedMessage& message : parseLog(outcome.standardError)) {
      text += message.level == "Error" ? message.text + "\n" : "";
    }
    return text;
  }

  PairMachine& machine() { return *machine_; }

  /// Made once for all tests: the bundles are the same.
  static const ProductPair& pair() {
    static const ProductPair pair(CORVANE_ENGINE);
    return pair;
  }

 private:
  std::unique_ptr<PairMachine> machine_;
};

}  // namespace tests
