#pragma once

namespace frontend {

// Exit codes of Installer beside the final states of runs (0 to 10, and 21).
inline constexpr int kExitUsage = 64;      ///< called wrongly
inline constexpr int kExitUnfit = 65;      ///< the bundle, or the receipt, was found damaged; nothing was started
inline constexpr int kExitUnwatched = 69;  ///< no engine could be started or watched
inline constexpr int kExitLost = 70;       ///< the engine ended or went away without a final state
inline constexpr int kExitDetached = 75;   ///< this program left before the engine's end, or before it started one

}  // namespace frontend
