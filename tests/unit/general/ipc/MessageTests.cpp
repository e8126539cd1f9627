#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <string>
#include <string_view>
#include <vector>

#include "general/foundation/propertylist/PropertyListFile.h"
#include "general/ipc/Message.h"
#include "tests/unit/general/ipc/VendingProcess.h"

namespace {

using foundation::PropertyList;
using ipc::decode;
using ipc::Message;

std::string binary(const PropertyList& value) {
  return *foundation::plist::serialize(value, foundation::plist::Format::Binary);
}

Message through(const Message& message) {
  ipctests::WatcherAuthenticator authenticator;
  const auto content = encode(message, authenticator);
  return decode(content.value()).value();
}

PropertyList callEntries() {
  return PropertyList::dictionary({{"Kind", "call"}, {"Number", 1}, {"Selector", "count"}});
}

TEST(Messages, CarryACallWithItsArguments) {
  const std::vector<PropertyList> arguments{"text", 7, PropertyList(std::vector<std::string>{"a", "b"}), false};
  const Message message = through(ipctests::callOf("add:and:", arguments, 42));
  EXPECT_EQ(message.kind, Message::Kind::Call);
  EXPECT_EQ(message.number, 42);
  EXPECT_EQ(message.selector, "add:and:");
  EXPECT_EQ(message.arguments, arguments);
}

TEST(Messages, CarryARequestThatIsNotAnswered) {
  Message message = ipctests::callOf("poke");
  message.kind = Message::Kind::OneWay;
  const Message arrived = through(message);
  EXPECT_EQ(arrived.kind, Message::Kind::OneWay);
  EXPECT_EQ(arrived.selector, "poke");
  EXPECT_TRUE(arrived.arguments.empty());
}

TEST(Messages, CarryAResultAndAlsoNone) {
  Message message;
  message.kind = Message::Kind::Reply;
  message.number = 3;
  EXPECT_TRUE(through(message).result.isNil());
  message.result = PropertyList::dictionary({{"key", "value"}});
  EXPECT_EQ(through(message).kind, Message::Kind::Reply);
  EXPECT_EQ(through(message).number, 3);
  EXPECT_EQ(through(message).result, message.result);
}

TEST(Messages, CarryAnException) {
  Message message;
  message.kind = Message::Kind::Exception;
  message.number = 9;
  message.exceptionName = "NSPortTimeoutException";
  message.exceptionReason = "too late";
  const Message arrived = through(message);
  EXPECT_EQ(arrived.kind, Message::Kind::Exception);
  EXPECT_EQ(arrived.number, 9);
  EXPECT_EQ(arrived.exceptionName, "NSPortTimeoutException");
  EXPECT_EQ(arrived.exceptionReason, "too late");
}

TEST(Messages, CarryANotificationAndTheWishForOnes) {
  Message message;
  message.kind = Message::Kind::Observe;
  EXPECT_EQ(through(message).kind, Message::Kind::Observe);
  message.kind = Message::Kind::Notification;
  message.notification = {"name", "/the/object", PropertyList::dictionary({{"serviceName", "s"}})};
  const Message arrived = through(message);
  EXPECT_EQ(arrived.kind, Message::Kind::Notification);
  EXPECT_EQ(arrived.notification.name, "name");
  EXPECT_EQ(arrived.notification.object, "/the/object");
  EXPECT_EQ(arrived.notification.userInfo, message.notification.userInfo);
  message.notification.userInfo = {};
  EXPECT_TRUE(through(message).notification.userInfo.isNil());
}

TEST(Messages, CarryWhatTheDelegateShows) {
  ipctests::WatcherAuthenticator authenticator;
  EXPECT_EQ(through(ipctests::callOf("count")).authentication, authenticator.authenticationDataForComponents({}));
}

TEST(Messages, WithANilArgumentCannotBeEncoded) {
  ipctests::WatcherAuthenticator authenticator;
  EXPECT_EQ(encode(ipctests::callOf("echo:", {PropertyList()}), authenticator), std::nullopt);
}

TEST(Messages, AreBinaryPropertyListsOnly) {
  EXPECT_TRUE(decode(binary(callEntries())));
  EXPECT_FALSE(decode(*foundation::plist::serialize(callEntries(), foundation::plist::Format::Xml)));
  EXPECT_FALSE(decode(binary(PropertyList("call"))));
  EXPECT_FALSE(decode(binary(PropertyList(PropertyList::Array{callEntries()}))));
  EXPECT_FALSE(decode(""));
  EXPECT_FALSE(decode("garbage"));
}

TEST(Messages, NeedWhatTheirKindSays) {
  const auto isMessage = [](const PropertyList& entries) { return decode(binary(entries)).has_value(); };
  const PropertyList call = callEntries();
  EXPECT_FALSE(isMessage(call.with("Kind", {})));
  EXPECT_FALSE(isMessage(call.with("Kind", "Call")));
  EXPECT_FALSE(isMessage(call.with("Kind", 1)));
  EXPECT_FALSE(isMessage(call.with("Number", {})));
  EXPECT_FALSE(isMessage(call.with("Number", "1")));
  EXPECT_FALSE(isMessage(call.with("Number", 1.0)));
  EXPECT_FALSE(isMessage(call.with("Number", true)));
  EXPECT_FALSE(isMessage(call.with("Number", std::uint64_t{1} << 63U)));
  EXPECT_FALSE(isMessage(call.with("Selector", {})));
  EXPECT_FALSE(isMessage(call.with("Selector", 5)));
  EXPECT_FALSE(isMessage(call.with("Arguments", "text")));
  EXPECT_TRUE(isMessage(call.with("Arguments", PropertyList(PropertyList::Array{}))));
  EXPECT_TRUE(isMessage(call.with("Unknown", "is ignored")));

  EXPECT_FALSE(isMessage(PropertyList::dictionary({{"Kind", "reply"}, {"Result", 1}})));
  EXPECT_TRUE(isMessage(PropertyList::dictionary({{"Kind", "observe"}})));

  const PropertyList exception =
      PropertyList::dictionary({{"Kind", "exception"}, {"Number", 1}, {"Name", "N"}, {"Reason", "R"}});
  EXPECT_TRUE(isMessage(exception));
  EXPECT_FALSE(isMessage(exception.with("Name", {})));
  EXPECT_FALSE(isMessage(exception.with("Reason", 1)));

  const PropertyList notification =
      PropertyList::dictionary({{"Kind", "notification"}, {"Name", "N"}, {"Object", "O"}});
  EXPECT_TRUE(isMessage(notification));
  EXPECT_FALSE(isMessage(notification.with("Name", {})));
  EXPECT_FALSE(isMessage(notification.with("Object", {})));
  EXPECT_FALSE(isMessage(notification.with("UserInfo", "text")));
}

TEST(Messages, CutShortOrChangedNeverHarmTheirReader) {
  ipctests::WatcherAuthenticator authenticator;
  const std::string content = *encode(ipctests::callOf("add:and:", {1, 2}), authenticator);
  for (std::size_t length = 0; length < content.size(); ++length) {
    EXPECT_FALSE(decode(std::string_view(content).substr(0, length))) << length;
  }
  std::size_t stillMessages = 0;
  for (std::size_t at = 0; at < content.size(); ++at) {
    for (int bit = 0; bit < 8; ++bit) {
      std::string changed = content;
      changed[at] = static_cast<char>(changed[at] ^ (1 << bit));
      stillMessages += decode(changed).has_value() ? 1U : 0U;
    }
  }
  EXPECT_LT(stillMessages, 8 * content.size());
}

}  // namespace
