#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "general/foundation/propertylist/PropertyList.h"

namespace ipc {

/// What an argument or a result may be. Everything else is refused before any code of the target runs.
enum class ValueType {
  Nothing,    ///< no result
  Integer32,  ///< signed
  Integer64,  ///< signed
  Boolean,
  Strings,  ///< an array of strings, or nil
  Object,   ///< any property list, or nil
};

/// Whether the value is one of the type. Nil is a value of Strings and Object only, and what Nothing asks for.
[[nodiscard]] bool hasType(const foundation::PropertyList& value, ValueType type);

/// One operation of a protocol.
struct Operation {
  std::string selector;  ///< the full text, colons included
  std::vector<ValueType> arguments;
  ValueType result = ValueType::Nothing;
  bool oneWay = false;  ///< the caller does not wait, and there is nothing to answer
};

/// The operations that a process offers to others, by name. A protocol is known to its process under its name from its
/// construction on; protocols are constants that live as long as the process. Use from any thread.
class Protocol {
 public:
  Protocol(std::string name, std::vector<Operation> operations);
  Protocol(const Protocol&) = delete;
  Protocol& operator=(const Protocol&) = delete;

  [[nodiscard]] const std::string& name() const { return name_; }
  /// The operation of this selector; null when the protocol has none.
  [[nodiscard]] const Operation* operation(std::string_view selector) const;
  /// The protocol known under the name; null when there is none.
  [[nodiscard]] static const Protocol* named(std::string_view name);

 private:
  std::string name_;
  std::vector<Operation> operations_;
};

}  // namespace ipc
