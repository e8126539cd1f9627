#include "general/system/NSProcessInfoExtensions.h"

#include "general/system/KernelPrimitives.h"

namespace platform::NSProcessInfoExtensions {

namespace {

constexpr int kLastBefore7 = 10;
constexpr int kFirstAfter8 = 13;

}  // namespace

int systemMajorNumber() { return runningKernelMajor(); }

bool isMacOSX7AndAbove() { return isMacOSX7AndAbove(systemMajorNumber()); }

bool isMacOSX8AndBelow() { return isMacOSX8AndBelow(systemMajorNumber()); }

bool isMacOSX7AndAbove(int kernelMajor) { return kernelMajor > kLastBefore7; }

bool isMacOSX8AndBelow(int kernelMajor) { return kernelMajor < kFirstAfter8; }

}  // namespace platform::NSProcessInfoExtensions
