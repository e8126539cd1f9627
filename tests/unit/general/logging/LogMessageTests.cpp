#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "general/logging/LogMessage.h"

namespace {

using logging::Level;
using logging::LogMessage;

TEST(LogMessage, KeepsKeysInTheOrderInWhichTheyWereFirstSet) {
  LogMessage message;
  message.set("B", "1");
  message.set("A", "2");
  ASSERT_EQ(message.entries().size(), 2U);
  EXPECT_EQ(message.entries()[0].first, "B");
  EXPECT_EQ(message.entries()[1].first, "A");
}

TEST(LogMessage, ReplacesTheValueOfAKeyThatIsSetAgain) {
  LogMessage message;
  message.set("GID", "0");
  message.set("GID", "80");
  ASSERT_EQ(message.entries().size(), 1U);
  EXPECT_EQ(message.value("GID"), "80");
}

TEST(LogMessage, HasAnEmptyValueForAKeyThatWasNeverSet) { EXPECT_EQ(LogMessage().value("GID"), ""); }

TEST(LogMessage, NamesEveryLevel) {
  const std::vector<std::string> names{"Emergency", "Alert", "Critical", "Error", "Warning", "Notice", "Info", "Debug"};
  for (int level = 0; level < 8; ++level) {
    EXPECT_EQ(logging::levelName(static_cast<Level>(level)), names.at(static_cast<std::size_t>(level)));
    LogMessage message;
    message.setLevel(static_cast<Level>(level));
    EXPECT_EQ(message.level(), static_cast<Level>(level));
  }
}

TEST(LogMessage, TakesAnUnknownLevelForDebug) {
  LogMessage message;
  message.set(logging::kLevelKey, "Loud");
  EXPECT_EQ(message.level(), Level::Debug);
}

TEST(LogMessage, OfALossCountsUnderTheNamesOfTheLatestOne) {
  LogMessage latest;
  latest.set(logging::kSenderKey, "engine");
  latest.set(logging::kFacilityKey, "install");
  latest.set(logging::kMessageKey, "text");
  const LogMessage loss = logging::messageOfLoss(latest, 12, "standard error");
  EXPECT_EQ(loss.value(logging::kSenderKey), "engine");
  EXPECT_EQ(loss.value(logging::kFacilityKey), "install");
  EXPECT_EQ(loss.level(), logging::Level::Warning);
  EXPECT_EQ(loss.value(logging::kMessageKey), "12 messages could not be written to standard error.");
}

}  // namespace
