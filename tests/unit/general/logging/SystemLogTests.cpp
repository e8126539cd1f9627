#include <fcntl.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <cerrno>
#include <regex>
#include <string>
#include <thread>
#include <vector>

#include "general/logging/SystemLog.h"
#include "tests/support/CapturedLog.h"

namespace {

using logging::Client;
using tests::CapturedLog;
using tests::LoggedMessage;

void* recordOfThisThread() {
  return logging::g_asl_client_key_created ? pthread_getspecific(logging::g_asl_client_key) : nullptr;
}

/// Runs on a thread that has no client yet, and joins it.
template <class Body>
void onFreshThread(const Body& body) {
  std::thread(body).join();
}

TEST(SystemLog, TwoOpensAndOneCloseLeaveTheClientOpenAndTheSecondCloseFreesIt) {
  onFreshThread([] {
    logging::corvanelogger_open("first", "one");
    const Client* const client = logging::corvanelogger_getclient();
    logging::corvanelogger_open("second", "two");
    EXPECT_EQ(logging::corvanelogger_getclient(), client);
    EXPECT_EQ(client->sender(), "first");
    EXPECT_EQ(client->facility(), "one");
    logging::corvanelogger_close();
    EXPECT_NE(recordOfThisThread(), nullptr);
    EXPECT_EQ(logging::corvanelogger_getclient(), client);
    logging::corvanelogger_close();
    EXPECT_EQ(recordOfThisThread(), nullptr);
  });
}

TEST(SystemLog, ACloseOnAThreadThatNeverOpenedDoesNothing) {
  onFreshThread([] {
    logging::corvanelogger_close();
    EXPECT_EQ(recordOfThisThread(), nullptr);
  });
}

TEST(SystemLog, AFreshThreadGetsTheDefaultClient) {
  onFreshThread([] {
    const Client* const client = logging::corvanelogger_getclient();
    ASSERT_NE(client, nullptr);
    EXPECT_EQ(client->sender(), "<no asl_client>");
    EXPECT_EQ(client->facility(), "com.corvane.logger");
    logging::corvanelogger_close();
    EXPECT_EQ(recordOfThisThread(), nullptr);
  });
}

TEST(SystemLog, EveryThreadHasAClientOfItsOwn) {
  logging::corvanelogger_open("here", "test");
  const Client* const mine = logging::corvanelogger_getclient();
  onFreshThread([mine] {
    logging::corvanelogger_open("there", "test");
    EXPECT_NE(logging::corvanelogger_getclient(), mine);
    EXPECT_EQ(logging::corvanelogger_getclient()->sender(), "there");
    logging::corvanelogger_close();
  });
  EXPECT_EQ(logging::corvanelogger_getclient(), mine);
  logging::corvanelogger_close();
}

TEST(SystemLog, TheKeysDestructorLeavesTheRecordToItsThread) {
  int record = 5;
  logging::corvanelogger_client_destructor(&record);
  logging::corvanelogger_logging_error();
  EXPECT_EQ(record, 5);
}

TEST(SystemLog, CopiesEveryMessageToStandardErrorWithItsSenderAndProcess) {
  onFreshThread([] {
    logging::corvanelogger_open("Corvane Installer", "install");
    const CapturedLog captured;
    logging::error("cannot read %@ (%d)", "a file", 5);
    const std::string text = captured.text();
    const std::regex expected(R"([A-Z][a-z]{2} [ 0-9]\d \d\d:\d\d:\d\d [^ .]+ Corvane Installer\[)" +
                              std::to_string(getpid()) + R"(\] <Error>: cannot read a file \(5\)\n)");
    EXPECT_TRUE(std::regex_match(text, expected)) << text;
    logging::corvanelogger_close();
  });
}

TEST(SystemLog, LogsAtTheLevelOfTheCall) {
  onFreshThread([] {
    const CapturedLog captured;
    logging::error("e");
    logging::notice("n");
    logging::info("i");
    logging::debug("d");
    logging::log(logging::Level::Warning, "w");
    const std::vector<LoggedMessage> expected{
        {"Error", "e"}, {"Notice", "n"}, {"Info", "i"}, {"Debug", "d"}, {"Warning", "w"}};
    EXPECT_EQ(captured.messages(), expected);
    logging::corvanelogger_close();
  });
}

TEST(SystemLog, MessagesOfManyThreadsDoNotMixLines) {
  constexpr int kThreads = 4;
  constexpr int kMessages = 200;
  const std::string text = "one\n" + std::string(500, 'x');
  const CapturedLog captured;
  std::vector<std::thread> threads;
  threads.reserve(kThreads);
  for (int i = 0; i < kThreads; ++i) {
    threads.emplace_back([&text] {
      for (int message = 0; message < kMessages; ++message) {
        logging::send(logging::Level::Notice, text);
      }
      logging::corvanelogger_close();
    });
  }
  for (std::thread& thread : threads) {
    thread.join();
  }
  EXPECT_EQ(captured.count("Notice", text), std::size_t{kThreads} * kMessages);
}

TEST(SystemLog, GoesOnWithoutStandardError) {
  const int original = fcntl(STDERR_FILENO, F_DUPFD_CLOEXEC, 3);
  close(STDERR_FILENO);
  onFreshThread([] {
    logging::error("nobody reads this");
    logging::corvanelogger_close();
  });
  dup2(original, STDERR_FILENO);
  close(original);
  const CapturedLog captured;
  logging::error("but this");
  EXPECT_EQ(captured.texts("Error"), std::vector<std::string>{"but this"});
  logging::corvanelogger_close();
}

TEST(SecureLog, SetsItsKeysInOrderWithTheGroupTwice) {
  using Entry = logging::LogMessage::Entry;
  const std::vector<Entry> expected{
      {"GID", "80"}, {"UID", "0"}, {"Level", "Notice"}, {"Facility", "com.corvane.tidewell"}, {"Message", "text"}};
  EXPECT_EQ(logging::secureMessage("text").entries(), expected);
}

TEST(SecureLog, SendsUnderItsSenderAndLeavesTheThreadsClientAlone) {
  onFreshThread([] {
    const CapturedLog captured;
    logging::corvane_secure_log("guard", "%s=%d", "answer", 42);
    EXPECT_NE(captured.text().find(" guard[" + std::to_string(getpid()) + "] <Notice>: answer=42\n"),
              std::string::npos);
    EXPECT_EQ(recordOfThisThread(), nullptr);
  });
}

TEST(SecureLog, CutsAMessageAt8191Bytes) {
  const CapturedLog captured;
  logging::corvane_secure_log("guard", "%s", std::string(8191, 'a').c_str());
  logging::corvane_secure_log("guard", "%s", (std::string(8191, 'b') + "cut").c_str());
  const std::vector<std::string> expected{std::string(8191, 'a'), std::string(8191, 'b')};
  EXPECT_TRUE(captured.texts("Notice") == expected);
}

TEST(SecureLog, DoesNothingWithoutAFormat) {
  const CapturedLog captured;
  const char* const nothing = nullptr;
  logging::corvane_secure_log("guard", nothing);
  EXPECT_EQ(captured.text(), "");
}

TEST(SecureLog, TakesANullSender) {
  const CapturedLog captured;
  logging::corvane_secure_log(nullptr, "%s", "text");
  EXPECT_EQ(captured.texts("Notice"), std::vector<std::string>{"text"});
}

}  // namespace
