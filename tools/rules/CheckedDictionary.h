#pragma once

#include <initializer_list>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "general/foundation/propertylist/PropertyList.h"
#include "tools/rules/Problem.h"

namespace bundletool {

/// A dictionary somewhere in a property list, read with a complaint for everything that is not as it must be. Every
/// question that finds a fault adds it to the problems and answers as if the key were absent.
/// The problems outlive this.
class CheckedDictionary {
 public:
  enum class Need { Required, Optional };

  /// @param keyPath where the dictionary stands in the file; empty for the top level.
  CheckedDictionary(std::string file, std::string keyPath, foundation::PropertyList value, Problems& problems);
  /// The dictionary that a file holds; nothing, with a problem, when it holds none. `role` says what the file is for.
  [[nodiscard]] static std::optional<CheckedDictionary> fromFile(const std::string& path, std::string_view role,
                                                                 Problems& problems);

  /// Complains about every other key.
  void allowOnly(std::initializer_list<std::string_view> keys) const;
  [[nodiscard]] bool has(std::string_view key) const { return !value_[key].isNil(); }
  /// A text that is not empty.
  [[nodiscard]] std::optional<std::string> string(std::string_view key, Need need) const;
  [[nodiscard]] std::optional<bool> boolean(std::string_view key) const;
  /// A whole number from 0 to the largest one allowed.
  [[nodiscard]] std::optional<std::uint64_t> number(std::string_view key, std::uint64_t largest) const;
  /// The elements of an array of texts, none of them empty.
  [[nodiscard]] std::vector<std::string> strings(std::string_view key, Need need) const;
  /// The elements of an optional array of arguments for a program, which may be empty texts.
  [[nodiscard]] std::vector<std::string> arguments(std::string_view key) const;
  [[nodiscard]] std::vector<CheckedDictionary> dictionaries(std::string_view key, Need need) const;
  [[nodiscard]] std::optional<CheckedDictionary> dictionary(std::string_view key, Need need) const;
  [[nodiscard]] std::optional<foundation::PropertyList> array(std::string_view key, Need need) const;

  [[nodiscard]] const std::string& file() const { return file_; }
  [[nodiscard]] const foundation::PropertyList& value() const { return value_; }
  /// Where a key of this dictionary stands in the file, for messages.
  [[nodiscard]] std::string keyPath(std::string_view key = {}) const;
  /// Adds an error for a key of this dictionary; an empty key means the dictionary itself.
  void refuse(std::string_view key, std::string what, std::string advice) const;
  /// The same, if there is a fault; tells whether there is one.
  bool refuseIf(const std::optional<std::string>& fault, std::string_view key, std::string advice) const;

 private:
  [[nodiscard]] std::vector<std::string> texts(std::string_view key, Need need,
                                               bool (*isUsable)(const foundation::PropertyList&),
                                               std::string_view type) const;
  [[nodiscard]] const foundation::PropertyList* lookUp(std::string_view key, Need need,
                                                       std::string_view typeName) const;
  void refuseType(const std::string& keyPath, std::string_view typeName) const;

  std::string file_;
  std::string keyPath_;
  foundation::PropertyList value_;
  Problems* problems_;
};

/// A string that is not empty and holds no NUL, at which names and paths would end early.
[[nodiscard]] bool isUsableText(const foundation::PropertyList& value);

/// `KEY[INDEX]`, the way elements of arrays are named in messages.
[[nodiscard]] std::string elementKey(std::string_view key, std::size_t index);

}  // namespace bundletool
