#pragma once

#include "general/logging/SystemLog.h"

/// The names under which a running engine shows.
namespace deployer {

/// The name that the engine's first thread gives itself. Systems that name a process by its first thread list the
/// running engine under it.
inline constexpr const char* kMainThreadName = "main thread";

/// Under these the log service knows the engine's messages.
inline constexpr const char* kEngineLogSender = "Corvane Installer";
inline constexpr const char* kEngineLogFacility = "install";

/// Holds the calling thread's log open, under the engine's name, for as long as it lives.
class EngineLog {
 public:
  EngineLog() { logging::corvanelogger_open(kEngineLogSender, kEngineLogFacility); }
  ~EngineLog() { logging::corvanelogger_close(); }
  EngineLog(const EngineLog&) = delete;
  EngineLog& operator=(const EngineLog&) = delete;
};

}  // namespace deployer
