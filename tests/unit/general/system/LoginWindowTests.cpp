#include <gtest/gtest.h>

#include <algorithm>
#include <string_view>
#include <vector>

#include "general/system/LoginWindow.h"

namespace {

using platform::chooseLoginWindow;
using platform::LoginWindow;
using platform::ProcessRecord;

ProcessRecord process(std::string_view command, std::int32_t processId, std::uint32_t userId) {
  ProcessRecord record{};
  std::copy(command.begin(), command.end(), std::begin(record.command));
  record.processId = processId;
  record.effectiveUserId = userId;
  return record;
}

void expectChoice(const LoginWindow& chosen, std::uint32_t userId, std::int32_t processId) {
  EXPECT_EQ(chosen.userId, userId);
  EXPECT_EQ(chosen.processId, processId);
}

TEST(LoginWindow, WithTwoUsersLoggedInTheSessionUsersIsChosenNotTheNewest) {
  const std::vector<ProcessRecord> records{process("loginwindow", 90, 501), process("loginwindow", 150, 502),
                                           process("loginwindow", 300, 501)};
  expectChoice(chooseLoginWindow(records, 502), 502, 150);
}

TEST(LoginWindow, OfSeveralOfTheSessionUserTheFirstInTheListIsChosen) {
  const std::vector<ProcessRecord> records{process("loginwindow", 200, 501), process("loginwindow", 100, 501),
                                           process("loginwindow", 300, 501)};
  expectChoice(chooseLoginWindow(records, 501), 501, 200);
}

TEST(LoginWindow, WithoutASessionTheNewestThatIsNotRootsIsChosen) {
  const std::vector<ProcessRecord> records{process("loginwindow", 200, 502), process("loginwindow", 250, 501),
                                           process("loginwindow", 100, 503), process("loginwindow", 900, 0)};
  expectChoice(chooseLoginWindow(records, std::nullopt), 501, 250);
  expectChoice(chooseLoginWindow(records, 0), 501, 250);
}

TEST(LoginWindow, OneOwnedByRootIsNeverChosen) {
  const std::vector<ProcessRecord> records{process("loginwindow", 100, 0)};
  expectChoice(chooseLoginWindow(records, std::nullopt), 0, 0);
  expectChoice(chooseLoginWindow(records, 0), 0, 0);
  expectChoice(chooseLoginWindow(records, 501), 0, 0);
}

TEST(LoginWindow, ASessionUserWithoutALoginWindowHasNone) {
  const std::vector<ProcessRecord> records{process("loginwindow", 100, 501), process("loginwindow", 200, 502)};
  expectChoice(chooseLoginWindow(records, 503), 0, 0);
}

TEST(LoginWindow, OnlyTheExactCommandNameCounts) {
  const std::vector<ProcessRecord> records{process("loginwindow2", 100, 501), process("LoginWindow", 101, 501),
                                           process("loginwindo", 102, 501), process("", 103, 501)};
  expectChoice(chooseLoginWindow(records, 501), 0, 0);
  expectChoice(chooseLoginWindow(records, std::nullopt), 0, 0);
}

TEST(LoginWindow, NoProcessesMeanNone) { expectChoice(chooseLoginWindow({}, std::nullopt), 0, 0); }

}  // namespace
