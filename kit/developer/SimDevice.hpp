#pragma once
// One simulator that Xcode keeps.

#include <cstdint>
#include <string>

namespace brimstell {

struct SimDevice {
    std::string udid;
    std::string name;
    bool isAvailable = true;
    std::int64_t dataPathSize = 0;  // bytes; 0 when simctl doesn't say
    double lastBootedAt = 0;        // seconds since 1970; 0 never, or not said
    std::string runtime;            // the runtime it belongs to, as shown ("iOS 17.0")
};

}  // namespace brimstell
