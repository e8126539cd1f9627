#include "tests/sweep/Flows.h"

#include <algorithm>
#include <stdexcept>

namespace sweep {
namespace {

Command install(const Bundle& bundle, const std::string& product = {}) {
  std::vector<std::string> options{"--install"};
  if (!product.empty()) {
    options.insert(options.end(), {"--product_name", product});
  }
  return {bundle.engine(), options};
}

Command remove(const std::string& product) {
  return {receiptOf(product).engine(), {"--remove", "--product_name", product}};
}

/// Makes flows by letting every run be made once.
class FlowMaker {
 public:
  explicit FlowMaker(support::PrivateRoot& root) : root_(root), store_(root) {}

  Flow make(const std::string& name) {
    const Machine empty = store_.take({});
    if (name == "cross-grade") {
      return crossGrade(empty);
    }
    if (name == "nested") {
      return nested(empty);
    }
    if (name == "install") {
      return guard(name, install(kFirst), empty, install(kSecond));
    }
    if (name == "downgrade") {
      return guard(name, install(kFirst), edited(after(empty, {install(kSecond)})), install(kSecond));
    }
    const Machine first = edited(after(empty, {install(kFirst)}));
    if (name == "repair") {
      return guard(name, install(kFirst), damaged(first), install(kSecond));
    }
    if (name == "removal") {
      return removal(first);
    }
    Flow made = guard(name, install(kSecond), first, install(kFirst));
    if (name == "watched") {
      made.command.isWatched = true;
      made.command.options.insert(made.command.options.begin(), "--ui");
    }
    return made;
  }

 private:
  Machine after(const Machine& start, const std::vector<Command>& commands) {
    store_.put(start);
    for (const Command& command : commands) {
      const support::Outcome outcome = root_.run(command.arguments());
      if (!outcome.succeeded()) {
        throw std::runtime_error("an undisturbed run fails: " + outcome.description());
      }
    }
    return store_.take(start);
  }
  Machine edited(const Machine& machine) {
    store_.put(machine);
    root_.writeFile(kConfiguration, kEdited, 0640);
    return store_.take(machine);
  }
  Machine damaged(const Machine& machine) {
    store_.put(machine);
    static_cast<void>(root_.shell("rm /opt/tools/one /Library/Guard/link && rm -r /Library/Guard/folder"));
    return store_.take(machine);
  }

  Flow flow(const std::string& name, const Command& command, const Machine& start) {
    Flow made;
    made.name = name;
    made.command = command;
    made.start = start;
    made.result = after(start, {command});
    return made;
  }
  Way way(const std::string& name, const Machine& start, const std::vector<Command>& commands) {
    return {name, commands, after(start, commands)};
  }
  Flow guard(const std::string& name, const Command& command, const Machine& start, const Command& other) {
    Flow made = flow(name, command, start);
    made.ways.push_back(way("same", start, {command}));
    made.ways.push_back(way("other", start, {other}));
    made.ways.push_back(way("removal", made.result, {remove(kGuard)}));
    return made;
  }
  Flow removal(const Machine& start) {
    Flow made = flow("removal", remove(kGuard), start);
    made.ways.push_back(way("removal", start, {remove(kGuard)}));
    made.ways.push_back(way("same", start, {install(kFirst)}));
    made.ways.push_back(way("other", start, {install(kSecond)}));
    made.mayLoseSettings = true;
    return made;
  }
  Flow crossGrade(const Machine& empty) {
    store_.put(empty);
    furnishClassic(root_);
    Machine start = store_.take(empty);
    start.services.insert("/Library/LaunchDaemons/com.corvane.classic.plist");
    Flow made = flow("cross-grade", install(kSuccessor, kGuard), start);
    made.ways.push_back(way("same", start, {made.command}));
    made.ways.push_back(way("other", start, {install(kSecondSuccessor, kGuard)}));
    made.ways.push_back(way("removal", made.result, {remove(kGuard)}));
    return made;
  }
  Flow nested(const Machine& empty) {
    Flow made = flow("nested", install(kOuter), empty);
    made.ways.push_back(way("same", empty, {made.command}));
    made.ways.push_back(way("other", empty, {install(kSecondOuter)}));
    made.ways.push_back(way("removal", made.result, {remove(kSuite), remove(kExtras)}));
    made.helper = {"Failed to launch external deployer at",
                   {kInner.engine(), {"--ui", "--install", "--product_name", kExtras}}};
    return made;
  }

  support::PrivateRoot& root_;
  MachineStore store_;
};

}  // namespace

std::vector<std::string> Command::arguments() const {
  std::vector<std::string> all{engine};
  all.insert(all.end(), options.begin(), options.end());
  return all;
}

const std::vector<std::string>& flowNames() {
  static const std::vector<std::string> kNames = {"install", "upgrade",     "downgrade", "repair",
                                                  "removal", "cross-grade", "nested",    "watched"};
  return kNames;
}

Flow makeFlow(support::PrivateRoot& root, const std::string& name) {
  if (std::ranges::find(flowNames(), name) == flowNames().end()) {
    throw std::invalid_argument("no flow is named " + name);
  }
  return FlowMaker(root).make(name);
}

}  // namespace sweep
