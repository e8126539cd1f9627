#pragma once

#include <functional>
#include <memory>
#include <set>
#include <string>
#include <string_view>
#include <vector>

#include "InstallationDeployer/steps/ChangeRecord.h"

namespace tests {

/// Remembers what steps tell of their changes, and answers as a test says.
class FakeChangeRecord : public deployer::ChangeRecord {
 public:
  Names damagedComponents() const override { return damaged; }
  void noteInstalled(const foundation::PropertyList& componentsAndVersions) override {
    installed = componentsAndVersions;
  }
  bool begin(const Names& components) override {
    begun.push_back(components);
    return mayBegin;
  }
  void note(std::string_view what, const Names& components) override {
    std::string text(what);
    for (const std::string& component : components) {
      text.append(" ").append(component);
    }
    notes.push_back(text);
  }
  bool finish() override {
    ++finished;
    return mayFinish;
  }
  const Names& owedFiles() const override { return owed; }
  void noteOwedFile(const std::string& path, bool fromElsewhere) override {
    owed.push_back(path);
    if (fromElsewhere) {
      elsewhere.push_back(path);
    }
  }
  std::shared_ptr<const void> lockCache() override { return std::make_shared<const int>(); }
  foundation::Result<bool> sharesCache() const override { return shared; }
  const std::set<std::string, std::less<>>& modifiableFilesToWrite() const override { return toWrite; }

  Names damaged;
  foundation::PropertyList installed;
  std::vector<Names> begun;
  bool mayBegin = true;
  Names notes;
  int finished = 0;
  bool mayFinish = true;
  Names owed;
  Names elsewhere;
  bool shared = false;
  std::set<std::string, std::less<>> toWrite;
};

}  // namespace tests
