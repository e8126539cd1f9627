#pragma once

#include <cstddef>

namespace deployer {

/// The options of the engine's command line, for the engine that reads them and for whoever starts one.
inline constexpr const char* kInstallOption = "--install";
inline constexpr const char* kRemoveOption = "--remove";
/// Serves installers as the installed product's receipt.
inline constexpr const char* kReceiptOption = "--receipt";
/// The run can be watched, and waits at its end until somebody has seen it.
inline constexpr const char* kUserInterfaceOption = "--ui";
/// Followed by the name.
inline constexpr const char* kProductNameOption = "--product_name";

/// Set in the environment of an engine that another one starts as a part of its own run; the value means nothing.
inline constexpr const char* kNestedEngineVariable = "CORVANE_NESTED_ENGINE";

/// Names, in the environment of an engine, the file that its standard error is, which is then kept within
/// kMostLogBytes.
inline constexpr const char* kLogFileVariable = "CORVANE_LOG_FILE";
inline constexpr std::size_t kMostLogBytes = std::size_t{16} * 1024 * 1024;

}  // namespace deployer
