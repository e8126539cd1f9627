#pragma once

#include <optional>
#include <string>
#include <string_view>

#include "general/ipc/Notification.h"

namespace deployer {

/// User-info key of the start notifications.
inline constexpr std::string_view kQVNInstallationStatusServiceName = "serviceName";

/// A start notification: tells who watches for `object` that a service can be reached, and under which name.
[[nodiscard]] ipc::Notification serviceAnnouncement(std::string_view notification, std::string object,
                                                    const std::string& serviceName);

/// The service that a start notification names; nothing when it names none.
[[nodiscard]] std::optional<std::string> announcedService(const ipc::Notification& notification);

}  // namespace deployer
