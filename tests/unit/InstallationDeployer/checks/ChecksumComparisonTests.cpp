#include <gtest/gtest.h>

#include <fstream>

#include "InstallationDeployer/checks/ChecksumComparison.h"
#include "tests/unit/InstallationDeployer/checks/CheckedBundle.h"

namespace deployer {
namespace {

using Kind = BundleProblem::Kind;
using tests::CheckedBundle;

class ChecksumComparing : public ::testing::Test {
 protected:
  /// Takes the content as a file of the component Core, stored in the payload.
  std::string add(const std::string& content) {
    std::string stored = bundle_.store("Core", content);
    entries_.push_back(CheckedBundle::file("/opt/file" + std::to_string(entries_.size()), content));
    return stored;
  }
  void compare() {
    payload_.beginComponent({{.component = "Core",
                              .source = bundle_.path("Contents/Install/Root"),
                              .destination = "/",
                              .directoryAttributes = {}},
                             CheckedBundle::array(entries_)});
    for (std::size_t index = 0; index < entries_.size(); ++index) {
      payload_.add(index, 0);
    }
    ChecksumComparison(payload_, 100, problems_, progress_).run();
  }
  static void overwrite(const std::string& path, const std::string& content) { std::ofstream(path) << content; }

  CheckedBundle bundle_;
  CheckedBundle::Entries entries_;
  PayloadFiles payload_;
  BundleProblems problems_;
  CheckProgress progress_;
};

TEST_F(ChecksumComparing, FindsNothingWrongWithFilesOfEveryLength) {
  std::size_t bytes = 0;
  for (const std::size_t length : {0U, 1U, 131071U, 131072U, 131073U, 1000000U}) {
    add(std::string(length, 'x'));
    bytes += length;
  }
  progress_.expect(bytes);
  compare();
  EXPECT_EQ(problems_.count(), 0U);
  EXPECT_EQ(progress_.percent(), 100);
}

TEST_F(ChecksumComparing, NamesFileAndBothChecksums) {
  add("whole");
  const std::string damaged = add("content");
  overwrite(damaged, "Content");
  compare();
  ASSERT_EQ(problems_.count(), 1U);
  const BundleProblem problem = problems_.first().front();
  EXPECT_EQ(problem.kind, Kind::Checksum);
  EXPECT_EQ(problem.file, damaged);
  EXPECT_EQ(problem.component, "Core");
  EXPECT_EQ(problem.what, "is damaged: its checksum is another one (it becomes /opt/file1)");
  EXPECT_EQ(problem.expected, CheckedBundle::checksumOf("content"));
  EXPECT_EQ(problem.found, CheckedBundle::checksumOf("Content"));
}

TEST_F(ChecksumComparing, FindsAllThatIsWrongInTheBundlesOrder) {
  std::vector<std::string> stored;
  for (int file = 0; file < 300; ++file) {
    stored.push_back(add("content " + std::to_string(file)));
    overwrite(stored.back(), "x");
  }
  compare();
  EXPECT_EQ(problems_.count(), 300U);
  const auto first = problems_.first();
  for (std::size_t index = 0; index < first.size(); ++index) {
    EXPECT_EQ(first[index].file, stored[index]);
  }
}

TEST_F(ChecksumComparing, TellsOfAFileThatIsGoneByNow) {
  std::filesystem::remove(add("content"));
  compare();
  ASSERT_EQ(problems_.count(), 1U);
  EXPECT_EQ(problems_.first().front().kind, Kind::Missing);
}

TEST_F(ChecksumComparing, ComparesNothingMoreOnceItIsStopped) {
  overwrite(add("content"), "x");
  progress_.stop();
  compare();
  EXPECT_EQ(problems_.count(), 0U);
}

}  // namespace
}  // namespace deployer
