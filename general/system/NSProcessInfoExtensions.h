#pragma once

/// Thresholds on the kernel's major release number, in the numbering in which 12 belongs to 10.8.
namespace platform::NSProcessInfoExtensions {

[[nodiscard]] int systemMajorNumber();
[[nodiscard]] bool isMacOSX7AndAbove();
[[nodiscard]] bool isMacOSX8AndBelow();

/// The thresholds for a given kernel.
[[nodiscard]] bool isMacOSX7AndAbove(int kernelMajor);
[[nodiscard]] bool isMacOSX8AndBelow(int kernelMajor);

}  // namespace platform::NSProcessInfoExtensions
