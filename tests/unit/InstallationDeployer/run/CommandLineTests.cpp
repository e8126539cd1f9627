#include <gtest/gtest.h>

#include "InstallationDeployer/run/CommandLine.h"
#include "general/foundation/files/FileManager.h"
#include "tests/support/CapturedLog.h"

namespace deployer {
namespace {

struct Parsed {
  std::optional<int> exitCode;
  QVNInstallConfiguration configuration;
};

Parsed parse(std::vector<std::string> options) {
  options.insert(options.begin(), "InstallationDeployer");
  Parsed parsed;
  parsed.exitCode = parseCommandLine(options, parsed.configuration);
  return parsed;
}

TEST(CommandLine, NoArgumentsAreNoValidRun) { EXPECT_EQ(parse({}).exitCode, 1); }

TEST(CommandLine, UserInterfaceAloneIsNoValidRun) { EXPECT_EQ(parse({"--ui"}).exitCode, 1); }

TEST(CommandLine, InstallIsAnInstall) {
  const Parsed parsed = parse({"--install"});
  EXPECT_FALSE(parsed.exitCode);
  EXPECT_TRUE(parsed.configuration.isInstallMode());
  EXPECT_FALSE(parsed.configuration.productName());
}

TEST(CommandLine, InstallClearsWhatAnEarlierInstallLeft) {
  QVNInstallConfiguration configuration;
  configuration.setHasInstallerReceipt(true);
  configuration.setTreatAsUpdate(true);
  EXPECT_FALSE(parseCommandLine({"InstallationDeployer", "--install"}, configuration));
  EXPECT_FALSE(configuration.hasInstallerReceipt());
  EXPECT_FALSE(configuration.treatAsUpdate());
}

TEST(CommandLine, WatchedInstallIsValidEvenTogetherWithRemove) {
  EXPECT_TRUE(parse({"--ui", "--install"}).configuration.isGUIInstallMode());
  const Parsed both = parse({"--ui", "--install", "--remove"});
  EXPECT_FALSE(both.exitCode);
  EXPECT_TRUE(both.configuration.isGUIInstallMode());
}

TEST(CommandLine, InstallAndRemoveWithoutUserInterfaceExcludeEachOther) {
  EXPECT_EQ(parse({"--install", "--remove"}).exitCode, 1);
}

TEST(CommandLine, RemovalIsValidWatchedAndUnwatched) {
  EXPECT_TRUE(parse({"--remove"}).configuration.isRemoveMode());
  EXPECT_TRUE(parse({"--ui", "--remove"}).configuration.isGUIRemoveMode());
  EXPECT_FALSE(parse({"--ui", "--remove"}).exitCode);
}

TEST(CommandLine, ReceiptWithUserInterfaceIsReceiptMode) {
  for (const auto& options : {std::vector<std::string>{"--receipt"}, {"--receipt", "--ui"}, {"--ui", "--receipt"}}) {
    const Parsed parsed = parse(options);
    EXPECT_FALSE(parsed.exitCode);
    EXPECT_TRUE(parsed.configuration.isReceiptMode());
    EXPECT_TRUE(parsed.configuration.statusServer());
  }
}

TEST(CommandLine, ReceiptWithInstallOrRemoveIsNoValidRun) {
  EXPECT_EQ(parse({"--receipt", "--install"}).exitCode, 1);
  EXPECT_EQ(parse({"--receipt", "--remove"}).exitCode, 1);
}

TEST(CommandLine, ProductNameTakesWhateverFollowsEvenAnOption) {
  const Parsed parsed = parse({"--install", "--product_name", "--remove"});
  EXPECT_FALSE(parsed.exitCode);
  EXPECT_TRUE(parsed.configuration.isInstallMode());
  EXPECT_EQ(parsed.configuration.productName(), "--remove");
}

TEST(CommandLine, ProductNameWithoutANameEndsWithZero) {
  EXPECT_EQ(parse({"--install", "--product_name"}).exitCode, 0);
  EXPECT_EQ(parse({"--unknown", "--product_name"}).exitCode, 0);
}

TEST(CommandLine, ProductNameIsAcceptedBeforeReceiptButNotAfterIt) {
  EXPECT_FALSE(parse({"--product_name", "P", "--receipt"}).exitCode);
  EXPECT_EQ(parse({"--receipt", "--product_name", "P"}).exitCode, 1);
  EXPECT_EQ(parse({"--receipt", "--product_name"}).exitCode, 1);
}

TEST(CommandLine, HelpEndsWithOneAtOnce) {
  const Parsed parsed = parse({"-?", "--install"});
  EXPECT_EQ(parsed.exitCode, 1);
  EXPECT_FALSE(parsed.configuration.install());
}

TEST(CommandLine, UnknownOptionsAndStrayWordsEndWithOneAfterTheWalk) {
  const Parsed unknown = parse({"--nonsense", "--install"});
  EXPECT_EQ(unknown.exitCode, 1);
  EXPECT_TRUE(unknown.configuration.install());
  EXPECT_EQ(parse({"--install", "word"}).exitCode, 1);
  EXPECT_EQ(parse({"--install", ""}).exitCode, 1);
  EXPECT_EQ(parse({"--install", "-ui"}).exitCode, 1);
}

TEST(CommandLine, OptionsAreComparedExactly) {
  EXPECT_EQ(parse({"--INSTALL"}).exitCode, 1);
  EXPECT_EQ(parse({"--install="}).exitCode, 1);
}

TEST(CommandLine, RepeatedOptionsAndTheLastProductNameCount) {
  const Parsed parsed = parse({"--product_name", "A", "--install", "--install", "--product_name", "B"});
  EXPECT_FALSE(parsed.exitCode);
  EXPECT_EQ(parsed.configuration.productName(), "B");
}

TEST(CommandLine, VisitedArgumentsAreLoggedButNoProductName) {
  const tests::CapturedLog log;
  static_cast<void>(parse({"--install", "--product_name", "Secret", "word"}));
  EXPECT_TRUE(log.contains("Debug", "argument = --install"));
  EXPECT_TRUE(log.contains("Debug", "argument = --product_name"));
  EXPECT_TRUE(log.contains("Debug", "argument = word"));
  EXPECT_FALSE(log.contains("Debug", "argument = Secret"));
}

TEST(CommandLine, NextArgumentAdvancesAndStopsAtTheEnd) {
  const std::vector<std::string> arguments = {"a", "b"};
  std::size_t index = 0;
  EXPECT_EQ(getNextStringArgument(arguments, index), "b");
  EXPECT_EQ(index, 1U);
  EXPECT_FALSE(getNextStringArgument(arguments, index));
  EXPECT_EQ(index, 1U);
}

TEST(CommandLine, NextPathIsMadeAbsoluteByTheCurrentDirectory) {
  const std::vector<std::string> arguments = {"a", "/b", "c"};
  std::size_t index = 0;
  EXPECT_EQ(getNextPathArgument(arguments, index), "/b");
  const auto directory = foundation::files::currentDirectory();
  ASSERT_TRUE(directory.ok());
  EXPECT_EQ(getNextPathArgument(arguments, index), *directory + "/c");
  EXPECT_FALSE(getNextPathArgument(arguments, index));
  EXPECT_EQ(index, 2U);
}

TEST(Configuration, FreshOneAsksForNothing) {
  const QVNInstallConfiguration configuration;
  EXPECT_FALSE(configuration.isValid());
  EXPECT_FALSE(configuration.install() || configuration.remove() || configuration.receipt() ||
               configuration.statusServer() || configuration.hasInstallerReceipt() || configuration.treatAsUpdate() ||
               configuration.bundlePathIsReceipt());
  EXPECT_FALSE(configuration.planPath() || configuration.targetPath() || configuration.bundlePath() ||
               configuration.productName());
}

TEST(Configuration, PreparedPlanLeavesOnlyTheReceiptModeValid) {
  for (const auto& options : {std::vector<std::string>{"--install"},
                              {"--ui", "--install"},
                              {"--remove"},
                              {"--ui", "--remove"},
                              {"--receipt"}}) {
    QVNInstallConfiguration configuration = parse(options).configuration;
    EXPECT_TRUE(configuration.isValid());
    configuration.setPlanPath("/plan");
    EXPECT_EQ(configuration.isValid(), configuration.receipt());
  }
}

TEST(Configuration, ReceiptDirectoryIsNamedAfterTheProduct) {
  QVNInstallConfiguration configuration;
  configuration.setProductName("Some Product");
  EXPECT_EQ(configuration.receiptDirectory(), "/Library/Application Support/Corvane/Some Product");
  EXPECT_EQ(configuration.receiptPath(), "/Library/Application Support/Corvane/Some Product/Installer.app");
}

}  // namespace
}  // namespace deployer
