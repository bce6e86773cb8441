#pragma once
// File-system utilities every engine uses.

#include <string>

#include "kit/files/VolumeStats.hpp"

namespace brimstell {

struct FS {
    // The current user's home folder.
    static std::string home();
    // The figures of the volume that holds location (the start-up volume: host().path("/")).
    static VolumeStats volumeStats(const std::string& location);
};

}  // namespace brimstell
