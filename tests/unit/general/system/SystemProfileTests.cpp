#include <gtest/gtest.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <cstring>
#include <ctime>
#include <set>
#include <string>

#include "general/system/SystemProfile.h"
#include "general/system/linux/BootIdentity.h"
#include "tests/support/CapturedLog.h"
#include "tests/support/TemporaryDirectory.h"
#include "tests/unit/general/system/ChildRun.h"

namespace {

using platform::ProfileData;
using platform::systemBootTime;

TEST(SystemBootTime, IsWholeSecondsInThePast) {
  const double time = systemBootTime();
  EXPECT_EQ(time, std::floor(time));
  EXPECT_GT(time, 0.0);
  EXPECT_LT(time, static_cast<double>(std::time(nullptr)));
}

TEST(SystemBootTime, IsTheSameInEveryProcess) {
  const double mine = systemBootTime();
  EXPECT_EQ(tests::runInChild([mine] { return systemBootTime() == mine ? 0 : 1; }), 0);
}

TEST(SystemBootTime, ComesFromTheBootsIdentityAlone) {
  std::set<std::int64_t> times;
  for (int i = 0; i < 100; ++i) {
    const std::string identity = "0b0d6b1e-6d6f-4e3c-9d8e-" + std::to_string(100000000000 + i);
    const std::int64_t seconds = platform::secondsForBootIdentity(identity);
    EXPECT_EQ(seconds, platform::secondsForBootIdentity(identity));
    EXPECT_GE(seconds, 1072915200);
    EXPECT_LT(seconds, 1072915200 + (std::int64_t{1} << 29));
    times.insert(seconds);
  }
  EXPECT_EQ(times.size(), 100U);
}

TEST(SystemBootTime, IsMinusOneWithTheSystemsErrorWhenTheSystemDoesNotSay) {
  if (geteuid() != 0) {
    GTEST_SKIP() << "only root may change its root directory";
  }
  const tests::TemporaryDirectory empty;
  const tests::CapturedLog captured;
  const int result = tests::runInChild([&empty] {
    if (chroot(empty.path().c_str()) != 0) {
      return 2;
    }
    return systemBootTime() == -1.0 ? 0 : 1;
  });
  EXPECT_EQ(result, 0);
  EXPECT_EQ(captured.text(), "sysctl: No such file or directory\n");
}

TEST(SystemProfileData, IsEqualInEveryCallAndEveryProcess) {
  const ProfileData data = platform::systemProfileData();
  EXPECT_EQ(platform::systemProfileData(), data);
  EXPECT_EQ(tests::runInChild([&data] { return platform::systemProfileData() == data ? 0 : 1; }), 0);
}

TEST(ClientProfileData, IsEqualInEveryCallAndEveryProcess) {
  const ProfileData data = platform::clientProfileData();
  EXPECT_EQ(platform::clientProfileData(), data);
  EXPECT_EQ(tests::runInChild([&data] { return platform::clientProfileData() == data ? 0 : 1; }), 0);
}

TEST(SystemProfileData, DiffersFromTheClients) {
  EXPECT_NE(platform::systemProfileData(), platform::clientProfileData());
}

TEST(SystemProfileData, BelongsToTheBootTime) {
  const double bootTime = systemBootTime();
  EXPECT_EQ(platform::systemProfileData(), platform::systemProfileDataFor(bootTime));
  EXPECT_EQ(platform::clientProfileData(), platform::clientProfileDataFor(bootTime));
}

TEST(SystemProfileData, ChangesWithTheLowByteOfTheBootTimeInEveryByte) {
  for (auto* const dataFor : {&platform::systemProfileDataFor, &platform::clientProfileDataFor}) {
    const ProfileData first = dataFor(1400000000.0);
    const ProfileData second = dataFor(1400000000.0 + 0x5a);
    const auto difference = static_cast<std::byte>((1400000000 & 0xff) ^ ((1400000000 + 0x5a) & 0xff));
    for (std::size_t i = 0; i < first.size(); ++i) {
      EXPECT_EQ(first[i] ^ second[i], difference);
    }
    EXPECT_EQ(dataFor(1400000000.0 + 256.0), first);
  }
}

ProfileData bytes(const char* text) {
  ProfileData data{};
  std::memcpy(data.data(), text, data.size());
  return data;
}

TEST(SystemProfileData, NeverChangesBetweenVersions) {
  // With a boot byte of 0: the first run, its first half combined with the second run, which the system's turns around.
  EXPECT_EQ(platform::systemProfileDataFor(0.0),
            bytes("\x9d\x31\xcd\x1a\xc0\x1e\x37\xa8\x12\x16\xe0\x24\xa9\x26\xca\x38"));
  EXPECT_EQ(platform::clientProfileDataFor(0.0),
            bytes("\x72\x50\xb0\xa7\x19\xa1\xdb\x5e\x09\x55\xa8\x73\xf2\xe1\xec\xd0"));
}

TEST(SystemProfileData, TakesAnUnknownBootTime) {
  const ProfileData unknown = platform::systemProfileDataFor(-1.0);
  EXPECT_EQ(unknown[15], std::byte{0x38} ^ std::byte{0xff});
}

}  // namespace
