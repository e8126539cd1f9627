#include <gtest/gtest.h>
#include <sys/stat.h>

#include <string>

#include "general/system/ConsoleSessionPrimitives.h"
#include "general/system/linux/LoginSessions.h"
#include "tests/support/TemporaryDirectory.h"

namespace {

using platform::activeSeatUserId;

/// The login manager's folder with the records of seat0 and of session c1.
class LoginRecords {
 public:
  void seat(const std::string& content) const { directory_.write("seats/seat0", content); }
  void session(const std::string& content) const { directory_.write("sessions/c1", content); }
  [[nodiscard]] std::optional<std::uint32_t> user() const { return activeSeatUserId(directory_.path()); }
  [[nodiscard]] const tests::TemporaryDirectory& directory() const { return directory_; }

 private:
  tests::TemporaryDirectory directory_;
};

const std::string kSeat = "# comment\nIS_SEAT0=1\nCAN_TTY=1\nACTIVE=c1\nACTIVE_UID=1000\nSESSIONS=c1\n";

TEST(ConsoleSession, IsTheActiveSessionOfTheSeat) {
  const LoginRecords records;
  records.seat(kSeat);
  records.session("UID=1000\nUSER=ann\nACTIVE=1\nSTATE=active\nTYPE=x11\nCLASS=user\n");
  EXPECT_EQ(records.user(), 1000U);
}

TEST(ConsoleSession, IsWhatTheSeatSaysWithoutASessionsRecord) {
  const LoginRecords records;
  records.seat(kSeat);
  EXPECT_EQ(records.user(), 1000U);
}

TEST(ConsoleSession, BelongsToTheUserOfTheSessionsRecord) {
  const LoginRecords records;
  records.seat("ACTIVE=c1\n");
  records.session("UID=501\n");
  EXPECT_EQ(records.user(), 501U);
}

TEST(ConsoleSession, OfAGreeterIsNobodys) {
  const LoginRecords records;
  records.seat(kSeat);
  for (const char* const kind : {"greeter", "lock-screen", "background", "manager"}) {
    records.session("UID=120\nACTIVE=1\nCLASS=" + std::string(kind) + "\n");
    EXPECT_EQ(records.user(), std::nullopt) << kind;
  }
  records.session("UID=120\nACTIVE=1\nCLASS=user-early\n");
  EXPECT_EQ(records.user(), 120U);
}

TEST(ConsoleSession, ThatIsNotActiveIsNone) {
  const LoginRecords records;
  records.seat(kSeat);
  records.session("UID=1000\nACTIVE=0\nCLASS=user\n");
  EXPECT_EQ(records.user(), std::nullopt);
}

TEST(ConsoleSession, IsNoneWithoutASeatOrAnActiveSession) {
  const LoginRecords records;
  EXPECT_EQ(records.user(), std::nullopt);
  for (const char* const seat : {"", "IS_SEAT0=1\n", "ACTIVE=\nACTIVE_UID=1000\n", "ACTIVE_UID=1000\n", "ACTIVE=c1\n",
                                 "XACTIVE=c1\nACTIVE_UID=1000\n", "ACTIVE\nACTIVE_UID=1000\n"}) {
    records.seat(seat);
    EXPECT_EQ(records.user(), std::nullopt) << seat;
  }
}

TEST(ConsoleSession, IsNoneWhenTheUserIdIsNoNumber) {
  const LoginRecords records;
  for (const char* const userId : {"", "-1", "+5", "12x", " 12", "4294967295", "4294967296", "99999999999999999999"}) {
    records.seat("ACTIVE=c1\nACTIVE_UID=" + std::string(userId) + "\n");
    EXPECT_EQ(records.user(), std::nullopt) << userId;
  }
}

TEST(ConsoleSession, DoesNotFollowASessionsNameOutOfItsFolder) {
  const LoginRecords records;
  records.directory().write("outside", "UID=502\n");
  records.directory().makeDirectory("sessions");
  records.seat("ACTIVE=../outside\nACTIVE_UID=1000\n");
  EXPECT_EQ(records.user(), std::nullopt);
}

TEST(ConsoleSession, ReadsNoFileBeyondAnySensibleLength) {
  const LoginRecords records;
  records.seat(kSeat + std::string(1 << 20, '#'));
  EXPECT_EQ(records.user(), std::nullopt);
}

TEST(ConsoleSession, DoesNotWaitForAFifoInPlaceOfTheRecord) {
  const LoginRecords records;
  records.directory().makeDirectory("seats");
  ASSERT_EQ(mkfifo(records.directory().path("seats/seat0").c_str(), 0600), 0);
  EXPECT_EQ(records.user(), std::nullopt);
}

}  // namespace
