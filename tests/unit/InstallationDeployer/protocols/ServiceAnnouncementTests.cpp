#include <gtest/gtest.h>

#include "InstallationDeployer/protocols/ServiceAnnouncement.h"
#include "general/foundation/propertylist/PropertyList.h"

namespace deployer {
namespace {

using foundation::PropertyList;

TEST(ServiceAnnouncement, SaysWhichServiceCanBeReachedForWhom) {
  const ipc::Notification announcement = serviceAnnouncement("name", "/the/object", "com.corvane.installer.12");
  EXPECT_EQ(announcement.name, "name");
  EXPECT_EQ(announcement.object, "/the/object");
  EXPECT_EQ(announcement.userInfo, PropertyList::dictionary({{"serviceName", "com.corvane.installer.12"}}));
}

TEST(ServiceAnnouncement, IsReadBack) {
  EXPECT_EQ(announcedService(serviceAnnouncement("name", "object", "service")), "service");
}

TEST(ServiceAnnouncement, ThatNamesNoServiceIsNoneOfAny) {
  EXPECT_EQ(announcedService({"name", "object", {}}), std::nullopt);
  EXPECT_EQ(announcedService({"name", "object", PropertyList::dictionary({{"serviceName", 5}})}), std::nullopt);
  EXPECT_EQ(announcedService({"name", "object", PropertyList::dictionary({{"Service", "service"}})}), std::nullopt);
}

}  // namespace
}  // namespace deployer
