#include "general/ipc/Message.h"

#include <algorithm>
#include <array>
#include <utility>

#include "general/foundation/propertylist/PropertyListCodecs.h"

namespace ipc {

using foundation::PropertyList;

namespace {

constexpr std::string_view kKind = "Kind";
constexpr std::string_view kNumber = "Number";
constexpr std::string_view kSelector = "Selector";
constexpr std::string_view kArguments = "Arguments";
constexpr std::string_view kResult = "Result";
constexpr std::string_view kName = "Name";
constexpr std::string_view kReason = "Reason";
constexpr std::string_view kObject = "Object";
constexpr std::string_view kUserInfo = "UserInfo";
constexpr std::string_view kAuthentication = "Authentication";

constexpr std::array<std::pair<Message::Kind, std::string_view>, 6> kKinds{{
    {Message::Kind::Call, "call"},
    {Message::Kind::OneWay, "one-way"},
    {Message::Kind::Reply, "reply"},
    {Message::Kind::Exception, "exception"},
    {Message::Kind::Observe, "observe"},
    {Message::Kind::Notification, "notification"},
}};

using Entries = std::vector<std::pair<std::string, PropertyList>>;

void add(Entries& entries, std::string_view key, PropertyList value) {
  entries.emplace_back(std::string(key), std::move(value));
}

Entries entriesOf(const Message& message) {
  Entries entries;
  const auto* kind = std::ranges::find(kKinds, message.kind, &std::pair<Message::Kind, std::string_view>::first);
  add(entries, kKind, PropertyList(kind->second));
  switch (message.kind) {
    case Message::Kind::Call:
      add(entries, kNumber, PropertyList(message.number));
      [[fallthrough]];
    case Message::Kind::OneWay:
      add(entries, kSelector, PropertyList(message.selector));
      if (!message.arguments.empty()) {
        add(entries, kArguments, PropertyList(message.arguments));
      }
      break;
    case Message::Kind::Reply:
      add(entries, kNumber, PropertyList(message.number));
      add(entries, kResult, message.result);
      break;
    case Message::Kind::Exception:
      add(entries, kNumber, PropertyList(message.number));
      add(entries, kName, PropertyList(message.exceptionName));
      add(entries, kReason, PropertyList(message.exceptionReason));
      break;
    case Message::Kind::Observe:
      break;
    case Message::Kind::Notification:
      add(entries, kName, PropertyList(message.notification.name));
      add(entries, kObject, PropertyList(message.notification.object));
      add(entries, kUserInfo, message.notification.userInfo);
      break;
  }
  return entries;
}

std::optional<Message::Kind> kindNamed(std::string_view name) {
  const auto* kind = std::ranges::find(kKinds, name, &std::pair<Message::Kind, std::string_view>::second);
  return kind == kKinds.end() ? std::nullopt : std::optional(kind->first);
}

bool hasOnlyStrings(const PropertyList& dictionary, std::initializer_list<std::string_view> keys) {
  return std::ranges::all_of(keys, [&](std::string_view key) { return dictionary[key].isString(); });
}

/// Whether everything that a message of this kind must have is there.
bool isComplete(Message::Kind kind, const PropertyList& content) {
  const bool hasNumber = content[kNumber].type() == PropertyList::Type::Integer && !content[kNumber].isLargeUnsigned();
  const bool hasCall = content[kSelector].isString() && (content[kArguments].isNil() || content[kArguments].isArray());
  switch (kind) {
    case Message::Kind::Call:
      return hasNumber && hasCall;
    case Message::Kind::OneWay:
      return hasCall;
    case Message::Kind::Reply:
      return hasNumber;
    case Message::Kind::Exception:
      return hasNumber && hasOnlyStrings(content, {kName, kReason});
    case Message::Kind::Observe:
      return true;
    case Message::Kind::Notification:
      return hasOnlyStrings(content, {kName, kObject}) &&
             (content[kUserInfo].isNil() || content[kUserInfo].isDictionary());
  }
  return false;
}

std::string textOf(const PropertyList& value) { return std::string(value.text()); }

}  // namespace

std::optional<std::string> encode(const Message& message, ConnectionDelegate& delegate) {
  if (std::ranges::any_of(message.arguments, &PropertyList::isNil)) {
    return std::nullopt;
  }
  Entries entries = entriesOf(message);
  const std::vector<std::byte> data = delegate.authenticationDataForComponents({});
  add(entries, kAuthentication, PropertyList::data(data));
  auto content = foundation::plist::serializeBinary(PropertyList::dictionary(std::move(entries)));
  return content ? std::optional(std::move(*content)) : std::nullopt;
}

std::optional<Message> decode(std::string_view content) {
  const auto parsed = foundation::plist::parseBinary(std::as_bytes(std::span(content)));
  if (!parsed || !parsed->isDictionary()) {
    return std::nullopt;
  }
  const PropertyList& entries = *parsed;
  const auto kind = kindNamed(entries[kKind].text());
  if (!kind || !isComplete(*kind, entries)) {
    return std::nullopt;
  }
  Message message;
  message.kind = *kind;
  message.number = entries[kNumber].integer().value_or(0);
  message.selector = textOf(entries[kSelector]);
  const auto arguments = entries[kArguments].elements();
  message.arguments.assign(arguments.begin(), arguments.end());
  message.result = entries[kResult];
  if (*kind == Message::Kind::Exception) {
    message.exceptionName = textOf(entries[kName]);
    message.exceptionReason = textOf(entries[kReason]);
  } else if (*kind == Message::Kind::Notification) {
    message.notification = {textOf(entries[kName]), textOf(entries[kObject]), entries[kUserInfo]};
  }
  const auto data = entries[kAuthentication].bytes();
  message.authentication.assign(data.begin(), data.end());
  return message;
}

bool isAuthentic(const Message& message, ConnectionDelegate& delegate) {
  return delegate.authenticateComponents({}, message.authentication);
}

}  // namespace ipc
