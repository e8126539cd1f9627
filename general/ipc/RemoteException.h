#pragma once

#include <stdexcept>
#include <string>
#include <string_view>

namespace ipc {

// The names of exceptions that remote calls raise.
inline constexpr std::string_view kPortTimeoutException = "NSPortTimeoutException";
/// The peer went away before it answered.
inline constexpr std::string_view kInvalidReceivePortException = "NSInvalidReceivePortException";
/// The peer was gone when the request was sent.
inline constexpr std::string_view kInvalidSendPortException = "NSInvalidSendPortException";
/// What arrived is no message of this protocol; the connection is closed.
inline constexpr std::string_view kPortReceiveException = "NSPortReceiveException";
inline constexpr std::string_view kFailedAuthenticationException = "NSFailedAuthenticationException";
/// A selector that the protocol lacks, or arguments or a result of other types than it names.
inline constexpr std::string_view kInvalidArgumentException = "NSInvalidArgumentException";

/// Whatever else the target raised.
inline constexpr std::string_view kGenericException = "NSGenericException";

/// A remote call that failed: the platform's name for the failure, and the reason in words as what().
class RemoteException : public std::runtime_error {
 public:
  RemoteException(std::string_view name, const std::string& reason) : std::runtime_error(reason), name_(name) {}
  [[nodiscard]] const std::string& name() const { return name_; }

 private:
  std::string name_;
};

}  // namespace ipc
