#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "general/foundation/execution/Task.h"

namespace frontend {

/// What a process number stands for.
enum class EngineProcess { None, Other, Engine };

[[nodiscard]] EngineProcess lookForEngine(int processIdentifier);
/// Whether it is the engine in a receipt, at work for the engine that started it: its state is not that of the run.
[[nodiscard]] bool isReceiptProcess(int processIdentifier);
/// Why a process that has no service cannot be watched, a sentence for people.
[[nodiscard]] std::string reasonNotToWatch(int processIdentifier, EngineProcess found);

/// The engine beside the running program, where it lies as the program was called or, when the program was called
/// through a link, where it really lies; nothing when there is none.
/// @param startedAs the name by which the program was started.
[[nodiscard]] std::optional<std::string> engineBeside(std::string_view startedAs);

/// Starts an engine that can be watched and that neither signals of this process's terminal nor the end of this process
/// reach. Throws foundation::TaskLaunchException.
/// @param output where the engine's log goes.
/// @param logFile the path that the output was opened by, when it is a file that shall not grow without bound.
[[nodiscard]] foundation::Task startEngine(const std::string& engine, const std::vector<std::string>& arguments,
                                           foundation::Descriptor output,
                                           const std::optional<std::string>& logFile = std::nullopt);

}  // namespace frontend
