#include <sys/xattr.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <string>
#include <string_view>

#include "tests/unit/tools/PackagerFixture.h"

namespace {

namespace fs = std::filesystem;

class UnkeptExtras : public tests::PackagerFixture {
 protected:
  /// Whether a build warns by this name, of this one item and with these words, and tells nothing once it is silenced.
  testing::AssertionResult warnsOf(const std::string& name, const std::string& below, const std::string& words) {
    if (!build(true) || warnings(name).size() != 1 || warnings(name)[0].file != staged(below) ||
        warnings(name)[0].what.find(words) == std::string::npos) {
      return testing::AssertionFailure() << "not one warning of the item";
    }
    describe("SilencedWarnings", array({PropertyList(name)}));
    const bool isSilent = build(true) && warnings(name).empty();
    describe("SilencedWarnings", {});
    return isSilent ? testing::AssertionSuccess() : testing::AssertionFailure() << "it cannot be silenced";
  }
  /// False, with errno, where the file system or the user cannot do that.
  [[nodiscard]] bool give(const std::string& below, const char* attribute, std::string_view value) const {
    return lsetxattr(staged(below).c_str(), attribute, value.data(), value.size(), 0) == 0;
  }
};

TEST_F(UnkeptExtras, AreHardLinksWithinWhatIsStaged) {
  fs::create_hard_link(staged("opt/file"), path("outside"));
  ASSERT_TRUE(build());
  EXPECT_TRUE(warnings("hard-links").empty()) << "a build may stage by linking";
  fs::create_hard_link(staged("opt/file"), staged("opt/second"));
  EXPECT_TRUE(warnsOf("hard-links", "opt/second", "the file is " + staged("opt/file") + " as well"));
}

TEST_F(UnkeptExtras, AreNoHardLinksWhereTwoComponentsStageOneFolder) {
  fs::create_hard_link(staged("opt/file"), path("outside"));
  describe("Components",
           array({component(), component("Two").with("StagedFolder", "Staged/Core").with("RootPrefix", "/opt/two")}));
  ASSERT_TRUE(build());
  EXPECT_TRUE(warnings("hard-links").empty());
}

TEST_F(UnkeptExtras, AreExtendedAttributes) {
  ASSERT_TRUE(build());
  EXPECT_TRUE(warnings("extended-attributes").empty());
  if (!give("opt/file", "user.comment", "x")) {
    GTEST_SKIP() << "no extended attributes here: " << strerror(errno);
  }
  EXPECT_TRUE(warnsOf("extended-attributes", "opt/file", "user.comment is lost"));
  EXPECT_TRUE(warnings("acls").empty());
  EXPECT_TRUE(warnings("file-capabilities").empty());
}

TEST_F(UnkeptExtras, AreAccessControlLists) {
  using namespace std::string_view_literals;
  // Version 2; the owner, user 501, the group, the mask and others, each as tag, rights and number.
  constexpr auto kList =
      "\2\0\0\0"
      "\1\0\6\0\377\377\377\377"
      "\2\0\4\0\365\1\0\0"
      "\4\0\4\0\377\377\377\377"
      "\20\0\4\0\377\377\377\377"
      "\40\0\4\0\377\377\377\377"sv;
  if (!give("opt/file", "system.posix_acl_access", kList)) {
    GTEST_SKIP() << "no access control lists here: " << strerror(errno);
  }
  EXPECT_TRUE(warnsOf("acls", "opt/file", "system.posix_acl_access is lost"));
  EXPECT_TRUE(warnings("extended-attributes").empty());
}

TEST_F(UnkeptExtras, AreFileCapabilities) {
  using namespace std::string_view_literals;
  // Revision 2, effective; CAP_NET_BIND_SERVICE permitted.
  constexpr auto kCapabilities = "\1\0\0\2\0\4\0\0\0\0\0\0\0\0\0\0\0\0\0\0"sv;
  if (!give("opt/file", "security.capability", kCapabilities)) {
    GTEST_SKIP() << "no file capabilities here: " << strerror(errno);
  }
  EXPECT_TRUE(warnsOf("file-capabilities", "opt/file", "security.capability is lost"));
  EXPECT_TRUE(warnings("extended-attributes").empty());
}

TEST_F(UnkeptExtras, AreHoles) {
  ASSERT_TRUE(build());
  EXPECT_TRUE(warnings("holes").empty());
  ASSERT_EQ(truncate(staged("opt/file").c_str(), 1 << 20), 0);
  EXPECT_TRUE(warnsOf("holes", "opt/file", "holes in the file"));
}

}  // namespace
