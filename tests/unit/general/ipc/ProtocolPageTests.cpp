// What docs/protocol.md says in bytes and numbers is what the code does.

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <fstream>
#include <iterator>
#include <sstream>
#include <string>
#include <string_view>
#include <vector>

#include "general/ipc/Frame.h"
#include "general/ipc/Message.h"
#include "general/system/SystemProfile.h"
#include "general/system/linux/BootIdentity.h"
#include "tests/unit/general/ipc/VendingProcess.h"

namespace {

using ipc::Message;
using ipctests::frameOf;

constexpr std::string_view kBootIdentity = "3f0d9a52-7c64-4e1b-9b8e-5d2a61c0f4e7";
constexpr std::int64_t kSecondsOfBoot = 1160518244;
constexpr std::size_t kDigitsOfAByte = 2;

std::string page() {
  std::ifstream file(CORVANE_PROTOCOL_PAGE);
  return {std::istreambuf_iterator<char>(file), {}};
}

bool isByte(const std::string& word) {
  return word.size() == kDigitsOfAByte && word.find_first_not_of("0123456789abcdef") == std::string::npos;
}

/// The bytes of a line of hexadecimal digits in pairs; none of any other line.
std::string bytesOf(const std::string& line) {
  std::istringstream words(line);
  std::string bytes;
  for (std::string word; words >> word;) {
    if (!isByte(word)) {
      return {};
    }
    bytes.push_back(static_cast<char>(std::stoi(word, nullptr, 16)));
  }
  return bytes;
}

/// All bytes that stand between a heading and the next.
std::string bytesUnder(const std::string& heading) {
  std::istringstream lines(page());
  std::string bytes;
  bool within = false;
  for (std::string line; std::getline(lines, line);) {
    if (line.starts_with("#")) {
      within = line == heading;
    } else if (within) {
      bytes += bytesOf(line);
    }
  }
  return bytes;
}

std::string bytesAfter(const std::string& label) {
  std::istringstream lines(page());
  for (std::string line; std::getline(lines, line);) {
    if (const auto at = line.find(label); at != std::string::npos) {
      return bytesOf(line.substr(at + label.size()));
    }
  }
  return {};
}

std::string textOf(const platform::ProfileData& data) {
  return {reinterpret_cast<const char*>(data.data()), data.size()};
}

/// Shows given data, as either end would.
class Shown : public ipc::ConnectionDelegate {
 public:
  explicit Shown(const platform::ProfileData& data) : data_(data) {}
  std::vector<std::byte> authenticationDataForComponents(std::span<const std::byte> /*components*/) override {
    return {data_.begin(), data_.end()};
  }
  bool authenticateComponents(std::span<const std::byte> /*components*/, std::span<const std::byte> data) override {
    return std::ranges::equal(data, data_);
  }

 private:
  platform::ProfileData data_;
};

TEST(ProtocolPage, NamesTheNumberOfTheBootInItsExample) {
  EXPECT_EQ(platform::secondsForBootIdentity(kBootIdentity), kSecondsOfBoot);
  EXPECT_NE(page().find(kBootIdentity), std::string::npos);
  EXPECT_NE(page().find("the seconds are " + std::to_string(kSecondsOfBoot) + ", and K is `64`"), std::string::npos);
  EXPECT_EQ(kSecondsOfBoot & 0xff, 0x64);
}

TEST(ProtocolPage, NamesTheConstantsOfTheAuthentication) {
  // Of a boot whose K is zero.
  EXPECT_EQ(bytesAfter("shown by clients:"), textOf(platform::systemProfileDataFor(0)));
  EXPECT_EQ(bytesAfter("shown by servers:"), textOf(platform::clientProfileDataFor(0)));
}

TEST(ProtocolPage, ShowsTheRequestInItsBytes) {
  Shown client(platform::systemProfileDataFor(static_cast<double>(kSecondsOfBoot)));
  EXPECT_EQ(bytesUnder("### The request"), frameOf(ipctests::callOf("getCurrentState", {}, 1), client));
}

TEST(ProtocolPage, ShowsTheAnswerInItsBytes) {
  Shown server(platform::clientProfileDataFor(static_cast<double>(kSecondsOfBoot)));
  Message reply = ipctests::messageOf(Message::Kind::Reply);
  reply.number = 1;
  reply.result = 15;
  EXPECT_EQ(bytesUnder("### The answer"), frameOf(reply, server));
}

}  // namespace
