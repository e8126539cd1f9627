#pragma once

#include <gtest/gtest.h>
#include <sys/stat.h>

#include <algorithm>
#include <cstdint>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "general/foundation/propertylist/PropertyListFile.h"
#include "tests/support/PropertyLists.h"
#include "tests/support/TemporaryDirectory.h"
#include "tools/building/BundleBuilder.h"
#include "tools/building/BundleDescription.h"

namespace tests {

/// A packager's folder with everything a bundle needs: a component "Core" of product "P" with one file, a front end and
/// an engine. Tests change what they are about.
class PackagerFixture : public ::testing::Test, protected PropertyLists {
 protected:
  PackagerFixture() {
    stage("opt/file", "abc");
    makeExecutable("FrontEnd");
    makeExecutable("Engine");
    folder_.makeDirectory("out");
  }

  static PropertyList component(const std::string& name = "Core", PropertyList products = array({"P"})) {
    return dictionary(
        {{"Name", name}, {"Version", "1"}, {"StagedFolder", "Staged/" + name}, {"Products", std::move(products)}});
  }

  void stage(const std::string& below, const std::string& content, const std::string& name = "Core") {
    folder_.write("Staged/" + name + "/" + below, content);
  }
  [[nodiscard]] std::string staged(const std::string& below, const std::string& name = "Core") const {
    return path("Staged/" + name + "/" + below);
  }
  void makeExecutable(const std::string& name) {
    EXPECT_EQ(chmod(folder_.write(name, "#!/bin/sh\n").c_str(), 0755), 0);
  }
  void writePlist(const std::string& name, const PropertyList& content) {
    EXPECT_TRUE(foundation::plist::writeFile(content, path(name)).ok());
  }
  [[nodiscard]] std::string path(const std::string& below) const { return folder_.path(below); }
  [[nodiscard]] std::string bundle(const std::string& below = "") const {
    return path("out/Installer.app" + (below.empty() ? "" : "/" + below));
  }
  /// Sets one key of the description.
  void describe(const std::string& key, PropertyList value) { description_ = description_.with(key, std::move(value)); }
  /// Sets one key of the only component.
  void describeCore(const std::string& key, PropertyList value) {
    describe("Components", array({description_["Components"].at(0).with(key, std::move(value))}));
  }
  void useAuthoringPlist(const PropertyList& content) {
    writePlist("Core.plist", content);
    describeCore("AuthoringPlist", "Core.plist");
  }
  void useFileEntry(std::vector<std::pair<std::string, PropertyList>> entry) {
    useAuthoringPlist(dictionary({{"ListOfFiles", array({dictionary(std::move(entry))})}}));
  }
  void useOptionsPlist(const PropertyList& content) {
    writePlist("Options.plist", content);
    describe("Options", dictionary({{"OptionsPlist", "Options.plist"}}));
  }

  bool build(bool force = false) {
    writePlist("D.plist", description_);
    problems_ = {};
    const auto description = bundletool::readDescription(path("D.plist"), problems_);
    if (!problems_.none()) {
      return false;
    }
    bundletool::ProgressBar progress({}, 80);
    bundletool::BundleSettings settings{path("out"), path("DefaultEngine"), path("DefaultFrontEnd"), force};
    settings.rootOwnerGroup = rootOwnerGroup_;
    settings.builder = builder_;
    return bundletool::BundleBuilder(description, settings, problems_, progress).build().has_value();
  }
  /// Whether the build is refused for a key of a file with words that hold this part, and left nothing behind.
  testing::AssertionResult refuses(const std::string& file, const std::string& key, std::string_view part) {
    const auto before = contents("out");
    if (build()) {
      return testing::AssertionFailure() << "the bundle was built";
    }
    if (contents("out") != before) {
      return testing::AssertionFailure() << "something was left behind";
    }
    std::string all;
    for (const bundletool::Problem& problem : problems_.errors()) {
      if (problem.file == path(file) && problem.key == key && problem.what.find(part) != std::string::npos &&
          !problem.advice.empty()) {
        return testing::AssertionSuccess();
      }
      all += problem.text() + "\n";
    }
    return testing::AssertionFailure() << "not among the problems:\n" << all;
  }
  /// The kept warnings of a name; each test is about one kind, whatever else is odd where it runs.
  [[nodiscard]] std::vector<bundletool::Problem> warnings(std::string_view name) const {
    std::vector<bundletool::Problem> found;
    std::ranges::copy_if(problems_.warnings(), std::back_inserter(found),
                         [name](const bundletool::Problem& problem) { return problem.name == name; });
    return found;
  }
  /// Every item below a folder with its mode, and the content of files.
  [[nodiscard]] std::map<std::string, std::string> contents(const std::string& below) const {
    std::map<std::string, std::string> found;
    for (const auto& item : std::filesystem::recursive_directory_iterator(path(below))) {
      struct stat status {};
      EXPECT_EQ(lstat(item.path().c_str(), &status), 0);
      found[item.path().string()] =
          std::to_string(status.st_mode) + (item.is_regular_file() ? " " + contentOf(item.path()) : "");
    }
    return found;
  }
  [[nodiscard]] static std::string contentOf(const std::filesystem::path& file) {
    std::ifstream stream(file, std::ios::binary);
    return {std::istreambuf_iterator<char>(stream), {}};
  }

  TemporaryDirectory folder_;
  bool rootOwnerGroup_ = false;
  std::uint32_t builder_ = 0;
  bundletool::Problems problems_;
  PropertyList description_ =
      dictionary({{"FrontEnd", "FrontEnd"}, {"Engine", "Engine"}, {"Components", array({component()})}});
};

}  // namespace tests
