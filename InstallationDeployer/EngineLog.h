#pragma once

#include "general/logging/SystemLog.h"

namespace deployer {

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
