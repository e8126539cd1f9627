#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "general/foundation/propertylist/PropertyList.h"
#include "general/ipc/ConnectionDelegate.h"
#include "general/ipc/Notification.h"

namespace ipc {

/// What the two ends of a connection say to each other. Which members count depends on the kind.
struct Message {
  enum class Kind {
    Call,          ///< number, selector, arguments
    OneWay,        ///< selector, arguments
    Reply,         ///< number, result
    Exception,     ///< number, exceptionName, exceptionReason
    Observe,       ///< asks to be sent notifications
    Notification,  ///< notification
  };

  Kind kind = Kind::Call;
  std::int64_t number = 0;  ///< ties an answer to its call
  std::string selector;
  std::vector<foundation::PropertyList> arguments;  ///< none of them nil
  foundation::PropertyList result;
  std::string exceptionName;
  std::string exceptionReason;
  Notification notification;

  std::vector<std::byte> authentication;  ///< of a message that arrived
};

/// The message as a property list in binary form, with what the delegate sends along. Nothing when it cannot be encoded
/// (a nil argument, a value nested too deep).
[[nodiscard]] std::optional<std::string> encode(const Message& message, ConnectionDelegate& delegate);

/// The message in a frame's content; nothing when it is none. Says nothing about who sent it: see isAuthentic().
[[nodiscard]] std::optional<Message> decode(std::string_view content);

/// Whether the delegate believes the message.
[[nodiscard]] bool isAuthentic(const Message& message, ConnectionDelegate& delegate);

}  // namespace ipc
