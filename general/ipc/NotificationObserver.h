#pragma once

#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

#include "general/ipc/Notification.h"

namespace ipc {

/// Hears the distributed notifications that root posts. Handlers run on the run loop of the thread that made the
/// observer; everything here belongs to that thread, and the object must end there, or when that thread has ended. Only
/// root can observe this way; front ends are told over their connection instead (see ClientConnection).
class NotificationObserver {
 public:
  using Handler = std::function<void(const Notification&)>;

  NotificationObserver();
  ~NotificationObserver();
  NotificationObserver(const NotificationObserver&) = delete;
  NotificationObserver& operator=(const NotificationObserver&) = delete;

  /// False when nothing will ever be heard, because the place where observers listen could not be made; what is wrong
  /// has been logged.
  [[nodiscard]] bool isListening() const;
  /// Notifications of this name and, unless nothing, this object.
  void add(std::string name, std::optional<std::string> object, Handler handler);
  void remove(std::string_view name, const std::optional<std::string>& object);

 private:
  class Implementation;
  std::shared_ptr<Implementation> implementation_;
};

}  // namespace ipc
