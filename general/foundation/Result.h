#pragma once

#include <utility>
#include <variant>

#include "general/foundation/Error.h"

namespace foundation {

/// Either the value of a call that worked or the Error of one that did not.
template <class Value>
class [[nodiscard]] Result {
 public:
  Result(Value value) : content_(std::in_place_index<0>, std::move(value)) {}
  Result(Error error) : content_(std::in_place_index<1>, std::move(error)) {}

  [[nodiscard]] bool ok() const { return content_.index() == 0; }
  explicit operator bool() const { return ok(); }

  /// The value; calling this on a failure is a programming error and throws std::bad_variant_access.
  [[nodiscard]] Value& value() & { return std::get<0>(content_); }
  [[nodiscard]] const Value& value() const& { return std::get<0>(content_); }
  [[nodiscard]] Value&& value() && { return std::get<0>(std::move(content_)); }
  Value& operator*() & { return value(); }
  const Value& operator*() const& { return value(); }
  Value* operator->() { return &value(); }
  const Value* operator->() const { return &value(); }

  /// The error; calling this on a success is a programming error and throws std::bad_variant_access.
  [[nodiscard]] const Error& error() const { return std::get<1>(content_); }

 private:
  std::variant<Value, Error> content_;
};

/// A call that yields nothing but whether it worked.
class [[nodiscard]] Status {
 public:
  Status() = default;
  Status(Error error) : error_(std::move(error)) {}

  [[nodiscard]] bool ok() const { return !error_.has_value(); }
  explicit operator bool() const { return ok(); }
  [[nodiscard]] const Error& error() const { return error_.value(); }

 private:
  std::optional<Error> error_;
};

}  // namespace foundation
