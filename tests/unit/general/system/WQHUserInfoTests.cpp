#include <gtest/gtest.h>
#include <sched.h>
#include <sys/mount.h>
#include <unistd.h>

#include <string>

#include "general/system/GroupMembershipPrimitives.h"
#include "general/system/WQHUserInfo.h"
#include "tests/support/TemporaryDirectory.h"
#include "tests/unit/general/system/ChildRun.h"

namespace {

using platform::isMemberOfGroup;
using platform::WQHUserInfo;

constexpr int kCannotReplaceDatabases = 99;

/// A user and group database that only the processes asked through it see.
class Databases {
 public:
  Databases(const std::string& users, const std::string& groups) {
    directory_.write("passwd", users);
    directory_.write("group", groups);
    directory_.write("nsswitch.conf", "passwd: files\ngroup: files\ninitgroups: files\n");
  }

  template <class Question>
  [[nodiscard]] int answer(const Question& question) const {
    return tests::runInChild([&] {
      const bool replaced = unshare(CLONE_NEWNS) == 0 &&
                            mount(nullptr, "/", nullptr, MS_REC | MS_PRIVATE, nullptr) == 0 && replace("passwd") &&
                            replace("group") && replace("nsswitch.conf");
      if (!replaced) {
        return kCannotReplaceDatabases;
      }
      return question() ? 1 : 0;
    });
  }

 private:
  [[nodiscard]] bool replace(const std::string& name) const {
    const std::string original = "/etc/" + name;
    return mount(directory_.path(name).c_str(), original.c_str(), nullptr, MS_BIND, nullptr) == 0;
  }

  tests::TemporaryDirectory directory_;
};

const std::string kUsers =
    "root:x:0:0::/:/bin/sh\nann:x:501:20::/:/bin/sh\nbob:x:502:90::/:/bin/sh\ncid:x:503:20::/:/bin/sh\n";
const std::string kGroups = "root:x:0:\nstaff:x:20:\nadmin:x:90:ann\n";

class WQHUserInfoTest : public ::testing::Test {
 protected:
  void SetUp() override {
    if (databases_.answer([] { return true; }) == kCannotReplaceDatabases) {
      GTEST_SKIP() << "this machine allows no mounts to replace the user database with";
    }
  }
  Databases databases_{kUsers, kGroups};
};

TEST_F(WQHUserInfoTest, AUserOfTheGroupIsAMember) {
  EXPECT_EQ(databases_.answer([] { return WQHUserInfo::isMemberOfAdminForUid(501); }), 1);
}

TEST_F(WQHUserInfoTest, AUserWhosePrimaryGroupItIsIsAMember) {
  EXPECT_EQ(databases_.answer([] { return WQHUserInfo::isMemberOfAdminForUid(502); }), 1);
}

TEST_F(WQHUserInfoTest, AnotherUserIsNoMember) {
  EXPECT_EQ(databases_.answer([] { return WQHUserInfo::isMemberOfAdminForUid(503); }), 0);
}

TEST_F(WQHUserInfoTest, AnUnknownUserIsNoMember) {
  EXPECT_EQ(databases_.answer([] { return WQHUserInfo::isMemberOfAdminForUid(504); }), 0);
}

TEST_F(WQHUserInfoTest, WithoutTheGroupNobodyIsAMember) {
  const Databases databases(kUsers, "root:x:0:\nbadmin:x:90:ann\n");
  EXPECT_EQ(databases.answer([] { return WQHUserInfo::isMemberOfAdminForUid(501); }), 0);
}

TEST_F(WQHUserInfoTest, AsksForTheRealUserId) {
  EXPECT_EQ(databases_.answer([] { return setresuid(501, 503, 503) == 0 && WQHUserInfo::isMemberOfAdmin(); }), 1);
  EXPECT_EQ(databases_.answer([] { return setresuid(503, 501, 501) == 0 && WQHUserInfo::isMemberOfAdmin(); }), 0);
}

TEST_F(WQHUserInfoTest, AGroupOfThousandsOfMembersIsSearchedInFull) {
  std::string group = "admin:x:90:";
  for (int i = 0; i < 5000; ++i) {
    group += "member" + std::to_string(i) + ",";
  }
  const Databases databases(kUsers, group + "cid\n");
  EXPECT_EQ(databases.answer([] { return WQHUserInfo::isMemberOfAdminForUid(503); }), 1);
}

TEST_F(WQHUserInfoTest, AMemberOfHundredsOfGroupsIsAMemberOfTheLast) {
  std::string groups;
  for (int i = 0; i < 500; ++i) {
    groups += "group" + std::to_string(i) + ":x:" + std::to_string(1000 + i) + ":cid\n";
  }
  const Databases databases(kUsers, groups + "admin:x:90:cid\n");
  EXPECT_EQ(databases.answer([] { return WQHUserInfo::isMemberOfAdminForUid(503); }), 1);
}

TEST(GroupMembership, RootIsAMemberOfItsOwnGroup) {
  EXPECT_TRUE(isMemberOfGroup(0, "root"));
  EXPECT_FALSE(isMemberOfGroup(0, "no such group"));
}

}  // namespace
