#pragma once
// What only a Mac's own interfaces answer for the slowdown check: the thermal state and Low Power
// Mode (the process-info interface), and asking an app to quit as from the Dock. Built from
// SlowdownMac.mm on macOS; elsewhere they answer "nominal, off" and "not asked".

#include <sys/types.h>

#include <utility>

#include "kit/insight/Slowdown.hpp"

namespace brimstell {

// Where a sandbox Mac keeps what the process-info interface would answer ("thermalState: fair",
// "lowPowerMode: 1", one a line).
inline constexpr const char* recordedProcessInfo = "/private/var/db/processinfo.record";

// The thermal state and whether Low Power Mode is on.
std::pair<Slowdown::Thermal, bool> macProcessInfo();
// Asks the app whose process this is to quit, as the Dock's Quit does; false when the process is
// no app of this session or the request could not be sent.
bool macAskToQuit(pid_t pid);

}  // namespace brimstell
