#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>

/// What names and paths may look like in a bundle. The answers are what is wrong, in words, or nothing.
namespace bundletool {

/// Limits of the systems that bundles are installed on, in bytes.
inline constexpr std::size_t kLongestName = 255;
inline constexpr std::size_t kLongestPath = 1023;

/// A path on the machine that is installed on: absolute, without "..", written in its shortest form.
[[nodiscard]] std::optional<std::string> faultOfInstallPath(std::string_view path);
/// A path of something on the machine that builds: not empty, without "..".
[[nodiscard]] std::optional<std::string> faultOfSourcePath(std::string_view path);
/// A name that becomes a file or folder.
[[nodiscard]] std::optional<std::string> faultOfName(std::string_view name);
/// A component's name, which becomes the name of a manifest.
[[nodiscard]] std::optional<std::string> faultOfComponentName(std::string_view name);
/// A product's name, which becomes a folder beside others of the installer.
[[nodiscard]] std::optional<std::string> faultOfProductName(std::string_view name);

/// The name as file systems that ignore case compare it (ASCII letters only).
[[nodiscard]] std::string caseFolded(std::string_view name);

}  // namespace bundletool
