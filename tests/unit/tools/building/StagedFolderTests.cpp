#include <sys/socket.h>
#include <sys/un.h>

#include "tests/unit/tools/PackagerFixture.h"

namespace {

namespace fs = std::filesystem;

class StagedFolder : public tests::PackagerFixture {};

TEST_F(StagedFolder, IsRefusedWhenItIsMissingOrNoFolder) {
  describeCore("StagedFolder", "Nowhere");
  EXPECT_TRUE(refuses("D.plist", "Components[0].StagedFolder", "is missing"));
  describeCore("StagedFolder", "Engine");
  EXPECT_TRUE(refuses("D.plist", "Components[0].StagedFolder", "is not a folder"));
}

TEST_F(StagedFolder, MustHoldNoSpecialFiles) {
  ASSERT_EQ(mkfifo(staged("opt/pipe").c_str(), 0600), 0);
  EXPECT_TRUE(refuses("Staged/Core/opt/pipe", "", "neither a file"));
  fs::remove(staged("opt/pipe"));
  const int socketDescriptor = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
  sockaddr_un address{};
  address.sun_family = AF_UNIX;
  staged("opt/s").copy(static_cast<char*>(address.sun_path), sizeof address.sun_path - 1);
  ASSERT_EQ(bind(socketDescriptor, reinterpret_cast<const sockaddr*>(&address), sizeof address), 0);
  EXPECT_TRUE(refuses("Staged/Core/opt/s", "", "neither a file"));
  close(socketDescriptor);
}

TEST_F(StagedFolder, MustHoldNoLinkAndNoFileInPlaceOfAFolderOfTheSystem) {
  fs::create_symlink("private", staged("Library"));
  EXPECT_TRUE(refuses("Staged/Core/Library", "", "belongs to the system"));
  fs::remove(staged("Library"));
  stage("Library", "abc");
  EXPECT_TRUE(refuses("Staged/Core/Library", "", "belongs to the system"));
}

TEST_F(StagedFolder, MustHoldNoNamesAndLinkTargetsThatAPropertyListCannotHold) {
  stage("opt/bad\xff", "abc");
  EXPECT_TRUE(refuses("Staged/Core/opt/bad\xff", "", "not valid UTF-8"));
  fs::remove(staged("opt/bad\xff"));
  fs::create_directory(staged("opt/folder\xc3"));
  EXPECT_TRUE(refuses("Staged/Core/opt/folder\xc3", "", "not valid UTF-8"));
  fs::remove(staged("opt/folder\xc3"));
  fs::create_symlink("bad\xff", staged("opt/link"));
  EXPECT_TRUE(refuses("Staged/Core/opt/link", "", "not valid UTF-8"));
}

TEST_F(StagedFolder, MustBeReadableAsAWhole) {
  constexpr uid_t kNobody = 65534;
  if (geteuid() != 0) {
    GTEST_SKIP() << "only root can become somebody who may build but not read";
  }
  ASSERT_EQ(chmod(folder_.path().c_str(), 0755), 0);
  ASSERT_EQ(chmod(path("out").c_str(), 0777), 0);
  ASSERT_EQ(chmod(staged("opt/file").c_str(), 0), 0);
  writePlist("D.plist", description_);
  ASSERT_EQ(chmod(folder_.path().c_str(), 0777), 0);
  ASSERT_EQ(seteuid(kNobody), 0);
  const auto file = refuses("Staged/Core/opt/file", "", "cannot be read");
  ASSERT_EQ(seteuid(0), 0);
  EXPECT_TRUE(file);
  ASSERT_EQ(chmod(staged("opt").c_str(), 0), 0);
  ASSERT_EQ(seteuid(kNobody), 0);
  const auto folder = refuses("Staged/Core/opt", "", "cannot be listed");
  ASSERT_EQ(seteuid(0), 0);
  EXPECT_TRUE(folder);
}

TEST_F(StagedFolder, MustHoldNoPathsBeyondTheLimits) {
  std::string prefix;
  while (prefix.size() < 1020) {
    prefix += "/" + std::string(50, 'p');
  }
  describeCore("RootPrefix", prefix.substr(0, 1020));
  EXPECT_TRUE(refuses("Staged/Core/opt", "", "longer than 1023 bytes"));
  describeCore("RootPrefix", prefix + prefix);
  EXPECT_TRUE(refuses("D.plist", "Components[0].RootPrefix", "longer than 1023 bytes"));
  describeCore("RootPrefix", "/" + std::string(256, 'n'));
  EXPECT_TRUE(refuses("D.plist", "Components[0].RootPrefix", "longer than 255 bytes"));
}

}  // namespace
