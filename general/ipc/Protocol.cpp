#include "general/ipc/Protocol.h"

#include <algorithm>
#include <limits>
#include <map>
#include <utility>

#include "general/foundation/Mutex.h"

namespace ipc {

using foundation::PropertyList;

namespace {

/// Every protocol of the process. Made on first use, because protocols are constants of other sources.
struct KnownProtocols {
  foundation::Mutex mutex;
  std::map<std::string, const Protocol*, std::less<>> byName CORVANE_GUARDED_BY(mutex);
};

KnownProtocols& knownProtocols() {
  static KnownProtocols known;
  return known;
}

bool isInteger32(const PropertyList& value) {
  const auto integer = value.integer();
  return integer && *integer >= std::numeric_limits<std::int32_t>::min() &&
         *integer <= std::numeric_limits<std::int32_t>::max();
}

}  // namespace

bool hasType(const PropertyList& value, ValueType type) {
  const bool wholeNumber = value.type() == PropertyList::Type::Integer && !value.isLargeUnsigned();
  switch (type) {
    case ValueType::Nothing:
      return value.isNil();
    case ValueType::Integer32:
      return wholeNumber && isInteger32(value);
    case ValueType::Integer64:
      return wholeNumber;
    case ValueType::Boolean:
      return value.boolean().has_value();
    case ValueType::Strings:
      return value.isNil() || (value.isArray() && std::ranges::all_of(value.elements(), &PropertyList::isString));
    case ValueType::Object:
      return true;
  }
  return false;
}

Protocol::Protocol(std::string name, std::vector<Operation> operations)
    : name_(std::move(name)), operations_(std::move(operations)) {
  KnownProtocols& known = knownProtocols();
  const foundation::MutexLock lock(known.mutex);
  known.byName.emplace(name_, this);
}

const Operation* Protocol::operation(std::string_view selector) const {
  const auto found = std::ranges::find(operations_, selector, &Operation::selector);
  return found == operations_.end() ? nullptr : &*found;
}

const Protocol* Protocol::named(std::string_view name) {
  KnownProtocols& known = knownProtocols();
  const foundation::MutexLock lock(known.mutex);
  const auto found = known.byName.find(name);
  return found == known.byName.end() ? nullptr : found->second;
}

}  // namespace ipc
