#include "general/ipc/ProtocolChecker.h"

#include <algorithm>
#include <utility>

#include "general/foundation/propertylist/TextFormat.h"
#include "general/ipc/RemoteException.h"

namespace ipc {

using foundation::PropertyList;

namespace {

RemoteException refusal(std::string_view problem, std::string_view selector, const Protocol& protocol) {
  return {kInvalidArgumentException,
          foundation::format("%@: %@ of the protocol %@", problem, selector, protocol.name())};
}

bool fit(std::span<const PropertyList> arguments, const Operation& operation) {
  return std::ranges::equal(arguments, operation.arguments, hasType);
}

}  // namespace

ProtocolChecker::ProtocolChecker(Target target, const Protocol& protocol)
    : target_(std::move(target)), protocol_(protocol) {}

PropertyList ProtocolChecker::invoke(std::string_view selector, std::span<const PropertyList> arguments,
                                     bool oneWay) const {
  const Operation* operation = protocol_.operation(selector);
  if (operation == nullptr) {
    throw refusal("unrecognized selector", selector, protocol_);
  }
  if (operation->oneWay != oneWay) {
    throw refusal("wrong kind of call", selector, protocol_);
  }
  if (!fit(arguments, *operation)) {
    throw refusal("wrong arguments", selector, protocol_);
  }
  PropertyList result = target_(selector, arguments);
  if (!hasType(result, operation->result)) {
    throw refusal("wrong result", selector, protocol_);
  }
  return result;
}

}  // namespace ipc
