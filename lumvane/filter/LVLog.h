// The one system-log handle of the process: subsystem "com.orvel.Vantrel",
// category "lumvane". Created on first use (thread-safe), its backend chosen
// by the environment (see LogBackend.h), and kept until the process ends.
#pragma once

#include "lumvane/platform/SystemLog.h"

namespace lumvane {

SystemLog& LVLog();

// Shorthands for the two levels the daemon writes at. Formatting happens only
// when the level is enabled; an argument that is costly to compute should be
// guarded by LVLog().isEnabled(LogLevel::Debug) at the call site instead.
template <typename... A>
void LVLogDebug(const char* fmt, const A&... args) {
  LVLog().debug(fmt, args...);
}

template <typename... A>
void LVLogError(const char* fmt, const A&... args) {
  LVLog().error(fmt, args...);
}

}  // namespace lumvane
