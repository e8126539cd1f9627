#include "InstallationDeployer/protocols/ServiceAnnouncement.h"

#include <utility>

#include "general/foundation/propertylist/PropertyList.h"

namespace deployer {

using foundation::PropertyList;

ipc::Notification serviceAnnouncement(std::string_view notification, std::string object,
                                      const std::string& serviceName) {
  return {std::string(notification), std::move(object),
          PropertyList::dictionary({{std::string(kQVNInstallationStatusServiceName), serviceName}})};
}

std::optional<std::string> announcedService(const ipc::Notification& notification) {
  const auto name = notification.userInfo[kQVNInstallationStatusServiceName].string();
  return name ? std::optional<std::string>(*name) : std::nullopt;
}

}  // namespace deployer
