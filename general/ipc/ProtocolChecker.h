#pragma once

#include <functional>
#include <span>
#include <string_view>

#include "general/foundation/propertylist/PropertyList.h"
#include "general/ipc/Protocol.h"

namespace ipc {

/// Carries out an operation whose selector and argument types have been checked; nil for operations without a result.
/// May throw RemoteException, which the caller is then told.
using Target =
    std::function<foundation::PropertyList(std::string_view selector, std::span<const foundation::PropertyList>)>;

/// Lets the operations of one protocol through to a target, and nothing else. The protocol outlives it.
class ProtocolChecker {
 public:
  ProtocolChecker(Target target, const Protocol& protocol);

  /// The operation's result. Throws RemoteException(kInvalidArgumentException) for a selector that the protocol does
  /// not have, for arguments of another number or other types, and for a call that is one-way in the protocol but not
  /// here or the other way round; the target is not reached then. The same exception for a result of another type.
  [[nodiscard]] foundation::PropertyList invoke(std::string_view selector,
                                                std::span<const foundation::PropertyList> arguments, bool oneWay) const;

 private:
  Target target_;
  const Protocol& protocol_;
};

}  // namespace ipc
