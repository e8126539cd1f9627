#pragma once

#include <string_view>

/// The folder in which this product's processes find each other: a socket per registered name, and one per observer of
/// distributed notifications. Only root can write in it. Use from any thread.
namespace ipc {

inline constexpr std::string_view kServiceFolder = "/var/run/com.corvane.installer";
inline constexpr std::string_view kObserverFolder = "/var/run/com.corvane.installer/observers";

/// Makes the folders, as far as they are missing. False, and an error in the log, when they cannot be made or are not
/// root's own, and for everybody but root.
[[nodiscard]] bool makeServiceFolders();

}  // namespace ipc
