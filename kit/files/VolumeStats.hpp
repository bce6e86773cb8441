#pragma once

#include <cstdint>

namespace brimstell {

// Byte counts of one volume. A figure the volume doesn't report is 0.
struct VolumeStats {
    std::int64_t total = 0;      // capacity
    std::int64_t free = 0;       // available capacity
    std::int64_t available = 0;  // available for important usage (counts purgeable space)
};

}  // namespace brimstell
