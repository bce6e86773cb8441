// The Mac's process-info interface and running-application interface, as the slowdown check uses
// them; every decision on their answers is made in portable code.

#import <AppKit/AppKit.h>
#import <Foundation/Foundation.h>

#include "kit/insight/SlowdownMac.hpp"

namespace brimstell {

std::pair<Slowdown::Thermal, bool> macProcessInfo() {
    NSProcessInfo* info = NSProcessInfo.processInfo;
    Slowdown::Thermal thermal = Slowdown::Thermal::nominal;
    switch (info.thermalState) {
        case NSProcessInfoThermalStateNominal: thermal = Slowdown::Thermal::nominal; break;
        case NSProcessInfoThermalStateFair: thermal = Slowdown::Thermal::fair; break;
        case NSProcessInfoThermalStateSerious: thermal = Slowdown::Thermal::serious; break;
        case NSProcessInfoThermalStateCritical: thermal = Slowdown::Thermal::critical; break;
    }
    return {thermal, info.lowPowerModeEnabled == YES};
}

bool macAskToQuit(pid_t pid) {
    NSRunningApplication* app = [NSRunningApplication runningApplicationWithProcessIdentifier:pid];
    return app != nil && [app terminate];
}

}  // namespace brimstell
