#include "general/ipc/Notification.h"

#include "general/foundation/propertylist/TextFormat.h"

namespace ipc {

std::string Notification::description() const {
  return foundation::format("{name = %@; object = %@; userInfo = %@}", name, object, userInfo);
}

}  // namespace ipc
