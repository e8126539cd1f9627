#include <gtest/gtest.h>

#include <string>
#include <utility>
#include <vector>

#include "InstallationDeployer/ExecutableEntry.h"

namespace deployer {
namespace {

using foundation::PropertyList;

ExecutableEntry entryWith(std::vector<std::pair<std::string, PropertyList>> keys) {
  return ExecutableEntry(PropertyList::dictionary(std::move(keys)));
}

TEST(ExecutableEntry, AnswersEveryQuestionAboutNothing) {
  const ExecutableEntry nothing{PropertyList()};
  EXPECT_EQ(nothing.path(), "");
  EXPECT_EQ(nothing.arguments(), std::vector<std::string>());
  EXPECT_FALSE(nothing.isApplication() || nothing.runsOnInstall() || nothing.runsOnce());
  EXPECT_EQ(nothing.bundleIdentifier(), "");
}

TEST(ExecutableEntry, TellsWhatTheManifestSays) {
  const ExecutableEntry entry = entryWith({{"Path", "/opt/tool"},
                                           {"ListOfArguments", PropertyList(std::vector<std::string>{"-a", "b"})},
                                           {"IsApplication", "YES"},
                                           {"ExecuteOnInstall", 1},
                                           {"RunOnce", true},
                                           {"BundleIdentifier", "com.corvane.tool"}});
  EXPECT_EQ(entry.path(), "/opt/tool");
  EXPECT_EQ(entry.arguments(), (std::vector<std::string>{"-a", "b"}));
  EXPECT_TRUE(entry.isApplication() && entry.runsOnInstall() && entry.runsOnce());
  EXPECT_EQ(entry.bundleIdentifier(), "com.corvane.tool");
}

TEST(ExecutableEntry, ArgumentsThatAreNotAllTextsAreNoArguments) {
  EXPECT_FALSE(entryWith({{"ListOfArguments", "-a"}}).arguments());
  EXPECT_FALSE(entryWith({{"ListOfArguments", PropertyList::Array{"-a", 7}}}).arguments());
  EXPECT_TRUE(entryWith({{"ListOfArguments", PropertyList::Array{}}}).arguments());
}

}  // namespace
}  // namespace deployer
