#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstring>
#include <optional>
#include <stdexcept>
#include <string>
#include <thread>

#include "general/foundation/Descriptor.h"
#include "general/logging/LogService.h"
#include "tests/support/TemporaryDirectory.h"

namespace {

using foundation::Descriptor;
using logging::LogMessage;
using logging::LogOrigin;
using logging::LogService;

/// A service's end of a datagram socket.
class Listener {
 public:
  explicit Listener(const std::string& path) : socket_(::socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0)) {
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    std::copy(path.begin(), path.end(), std::begin(address.sun_path));
    if (bind(socket_.number(), reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0) {
      throw std::runtime_error("cannot bind " + path);
    }
  }

  /// The next datagram that waits; nothing when there is none.
  [[nodiscard]] std::optional<std::string> receive() {
    std::string bytes(65536, '\0');
    alignas(cmsghdr) char control[CMSG_SPACE(sizeof(int))] = {};
    iovec room{bytes.data(), bytes.size()};
    msghdr header{};
    header.msg_iov = &room;
    header.msg_iovlen = 1;
    header.msg_control = control;
    header.msg_controllen = sizeof control;
    const ssize_t count = recvmsg(socket_.number(), &header, MSG_DONTWAIT | MSG_CMSG_CLOEXEC);
    if (count < 0) {
      return std::nullopt;
    }
    if (const cmsghdr* const rights = CMSG_FIRSTHDR(&header); rights != nullptr) {
      int number = -1;
      std::memcpy(&number, CMSG_DATA(rights), sizeof number);
      file_ = Descriptor(number);
    }
    bytes.resize(static_cast<std::size_t>(count));
    return bytes;
  }

  /// The file that came with the last datagram.
  [[nodiscard]] const Descriptor& file() const { return file_; }

 private:
  Descriptor socket_;
  Descriptor file_;
};

LogMessage messageOf(std::string_view text) {
  LogMessage message;
  message.set(logging::kSenderKey, "tester");
  message.setLevel(logging::Level::Info);
  message.set(logging::kMessageKey, text);
  return message;
}

const LogOrigin kOrigin{{}, "box", 7};

TEST(LogService, SendsFieldsToTheJournal) {
  const tests::TemporaryDirectory directory;
  Listener journal(directory.path("journal"));
  Listener syslog(directory.path("log"));
  const LogService service({directory.path("journal"), directory.path("log")});
  ASSERT_TRUE(service.isConnected());
  service.send(messageOf("hello"), kOrigin);
  EXPECT_EQ(journal.receive(), logging::journalDatagram(messageOf("hello"), kOrigin));
  EXPECT_EQ(syslog.receive(), std::nullopt);
}

TEST(LogService, FallsBackToTheClassicSocketWithoutAJournal) {
  const tests::TemporaryDirectory directory;
  Listener syslog(directory.path("log"));
  const LogService service({directory.path("journal"), directory.path("log")});
  ASSERT_TRUE(service.isConnected());
  service.send(messageOf("hello"), kOrigin);
  EXPECT_EQ(syslog.receive(), logging::syslogDatagram(messageOf("hello"), kOrigin));
}

TEST(LogService, StaysUnconnectedWithoutAService) {
  const tests::TemporaryDirectory directory;
  const LogService service({directory.path("journal"), directory.path("log")});
  EXPECT_FALSE(service.isConnected());
  service.send(messageOf("hello"), kOrigin);
  // A service that comes up later is not looked for by every message.
  Listener journal(directory.path("journal"));
  service.send(messageOf("hello"), kOrigin);
  EXPECT_EQ(journal.receive(), std::nullopt);
}

TEST(LogService, TakesAPathThatNoSocketCanHaveForNoService) {
  EXPECT_FALSE(LogService({"", "/" + std::string(200, 'x')}).isConnected());
}

TEST(LogService, IsNotHeldUpForLongByAServiceThatDoesNotReadAndTellsItWhatItMissed) {
  const tests::TemporaryDirectory directory;
  Listener journal(directory.path("journal"));
  const LogService service({directory.path("journal"), ""});
  constexpr int kMoreThanAnyQueueHolds = 20000;
  for (int i = 0; i < kMoreThanAnyQueueHolds; ++i) {
    service.send(messageOf("hello"), kOrigin);
  }
  int received = 0;
  while (journal.receive()) {
    ++received;
  }
  EXPECT_GT(received, 0);
  EXPECT_LT(received, kMoreThanAnyQueueHolds);
  service.send(messageOf("again"), kOrigin);
  const LogMessage missed = logging::messageOfLoss(
      messageOf("again"), static_cast<std::size_t>(kMoreThanAnyQueueHolds - received), "the system log");
  EXPECT_EQ(journal.receive(), logging::journalDatagram(missed, kOrigin));
  EXPECT_EQ(journal.receive(), logging::journalDatagram(messageOf("again"), kOrigin));
}

TEST(LogService, WaitsForAServiceThatReadsSlowly) {
  const tests::TemporaryDirectory directory;
  Listener journal(directory.path("journal"));
  const LogService service({directory.path("journal"), ""}, std::chrono::hours(1));
  constexpr int kMoreThanAnyQueueHolds = 5000;
  int received = 0;
  std::thread reader([&] {
    while (received < kMoreThanAnyQueueHolds) {
      received += journal.receive() ? 1 : 0;
    }
  });
  for (int i = 0; i < kMoreThanAnyQueueHolds; ++i) {
    service.send(messageOf("hello"), kOrigin);
  }
  reader.join();
  EXPECT_EQ(journal.receive(), std::nullopt);
}

TEST(LogService, SurvivesAServiceThatWentAway) {
  const tests::TemporaryDirectory directory;
  auto journal = std::make_optional<Listener>(directory.path("journal"));
  const LogService service({directory.path("journal"), ""});
  journal.reset();
  service.send(messageOf("hello"), kOrigin);
  EXPECT_TRUE(service.isConnected());
}

TEST(LogService, HandsAMessageBeyondADatagramOverAsASealedFile) {
  const tests::TemporaryDirectory directory;
  Listener journal(directory.path("journal"));
  const LogService service({directory.path("journal"), ""});
  const LogMessage message = messageOf(std::string(4 << 20, 'x'));
  service.send(message, kOrigin);
  EXPECT_EQ(journal.receive(), "");
  ASSERT_TRUE(journal.file().isOpen());
  const std::string expected = logging::journalDatagram(message, kOrigin);
  std::string content(expected.size() + 1, '\0');
  const ssize_t count = pread(journal.file().number(), content.data(), content.size(), 0);
  ASSERT_EQ(count, static_cast<ssize_t>(expected.size()));
  content.resize(expected.size());
  EXPECT_TRUE(content == expected);
  EXPECT_LT(write(journal.file().number(), "x", 1), 0) << "the journal takes sealed files only";
}

TEST(LogService, DoesNotLeakItsSocketToChildren) {
  const tests::TemporaryDirectory directory;
  Listener journal(directory.path("journal"));
  const int next = fcntl(STDERR_FILENO, F_DUPFD_CLOEXEC, 0);
  close(next);
  const LogService service({directory.path("journal"), ""});
  EXPECT_EQ(fcntl(next, F_GETFD) & FD_CLOEXEC, FD_CLOEXEC);
}

}  // namespace
