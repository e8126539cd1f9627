#include "general/ipc/CorvaneDistantObject.h"

#include <chrono>
#include <thread>
#include <utility>

#include "general/foundation/propertylist/TextFormat.h"
#include "general/logging/SystemLog.h"

namespace ipc {

using foundation::PropertyList;

std::atomic<double> gTimeoutInterval = 10.0;

namespace {

constexpr double kTimeoutIntervalWithRetries = 60.0;
constexpr const char* kLogSender = "Corvane Distant Object";
constexpr const char* kLogFacility = "com.corvane.tidewell.libCorvaneDistantObject";
constexpr const char* kSecureLogSender = "%s";

void logException(const RemoteException& exception, int attempt) {
  const std::string text =
      foundation::format("An exception was encountered while messaging the server: %@. Retrying: %d attempt(s)",
                         exception.name(), attempt);
  // The text is a format in its turn, and its part from outside may hold conversions: this formatter prints those
  // without looking for arguments in memory.
  logging::corvane_secure_log(kSecureLogSender, "%s", foundation::format(text).c_str());
}

}  // namespace

CorvaneDistantObject::CorvaneDistantObject(std::optional<std::string> name, std::optional<std::string> protocolName,
                                           std::optional<std::string> startUpNotificationName) {
  const Protocol* protocol = protocolName ? Protocol::named(*protocolName) : nullptr;
  if (protocol == nullptr || !name) {
    return;
  }
  logging::corvanelogger_open(kLogSender, kLogFacility);
  protocol_ = protocol;
  remoteServerName_ = std::move(name);
  protocolName_ = std::move(protocolName);
  serverDidStartNotificationName_ = std::move(startUpNotificationName);
  persistConnection_ = true;
  if (serverDidStartNotificationName_) {
    observer_ = std::make_unique<NotificationObserver>();
    observer_->add(*serverDidStartNotificationName_, std::nullopt,
                   [this](const Notification& /*notification*/) { dropConnection(); });
  }
}

CorvaneDistantObject::CorvaneDistantObject(std::optional<std::string> name, std::optional<std::string> protocolName,
                                           std::optional<std::string> startUpNotificationName, bool retryAfterException)
    : CorvaneDistantObject(std::move(name), std::move(protocolName), std::move(startUpNotificationName)) {
  gTimeoutInterval = kTimeoutIntervalWithRetries;
  retryAfterException_ = retryAfterException;
}

CorvaneDistantObject::CorvaneDistantObject() : CorvaneDistantObject(std::nullopt, std::nullopt, std::nullopt) {}

CorvaneDistantObject::~CorvaneDistantObject() {
  if (protocol_ != nullptr) {
    logging::corvanelogger_close();
  }
}

bool CorvaneDistantObject::respondsToSelector(std::string_view selector) const {
  return methodSignatureForSelector(selector) != nullptr;
}

const Operation* CorvaneDistantObject::methodSignatureForSelector(std::string_view selector) const {
  return protocol_ == nullptr ? nullptr : protocol_->operation(selector);
}

void CorvaneDistantObject::forwardInvocation(Invocation& invocation) {
  recentException_.reset();
  const Operation* operation = methodSignatureForSelector(invocation.selector);
  if (operation == nullptr) {
    if (!persistConnection_) {
      dropConnection();
    }
    throw RemoteException(
        kInvalidArgumentException,
        foundation::format("unrecognized selector sent to a distant object: %@", invocation.selector));
  }
  invokeWithRetries(*operation, invocation);
  if (!persistConnection_) {
    dropConnection();
  }
}

void CorvaneDistantObject::invokeWithRetries(const Operation& operation, Invocation& invocation) {
  for (int attempt = 1;; ++attempt) {
    try {
      ClientConnection* const server = rootProxy();
      invocation.returnValue = server == nullptr ? PropertyList() : server->invoke(operation, invocation.arguments);
      return;
    } catch (const RemoteException& exception) {
      logException(exception, attempt);
      dropConnection();
      if (!retryAfterException_ || attempt >= kNumberOfAttemptsToInvoke) {
        recentException_ = exception;
        return;
      }
    }
    std::this_thread::sleep_for(std::chrono::duration<double>(kDelayBetweenAttempts));
  }
}

PropertyList CorvaneDistantObject::send(std::string_view selector, std::vector<PropertyList> arguments) {
  Invocation invocation{std::string(selector), std::move(arguments), {}};
  forwardInvocation(invocation);
  return invocation.returnValue;
}

ClientConnection* CorvaneDistantObject::rootProxy() {
  if (connection_ != nullptr && !connection_->isValid()) {
    dropConnection();
  }
  if (connection_ == nullptr) {
    connection_ = ClientConnection::connectionWithRegisteredName(*remoteServerName_);
    if (connection_ != nullptr) {
      connection_->setReplyTimeout(gTimeoutInterval);
      connection_->setRequestTimeout(gTimeoutInterval);
      connection_->setDelegate(&identity_);
    }
  }
  return connection_.get();
}

void CorvaneDistantObject::dropConnection() { connection_.reset(); }

}  // namespace ipc
