#pragma once
// The NVMe SMART / Health Information log of the Mac's NVMe disk.

#include <optional>

#include "kit/health/NVMeLog.hpp"

namespace brimstell {

struct NVMeSMART {
    // Through the host's health source; nullopt without one, without an NVMe disk that gives a
    // log, or with a short page.
    static std::optional<NVMeLog> read();
};

}  // namespace brimstell
