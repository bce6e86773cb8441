#pragma once
// A disk's reading from what "smartctl --json" prints: its model, size, the verdict of its
// self-check and, for an NVMe drive, the SMART / Health Information log.

#include <optional>
#include <string>
#include <string_view>

#include "kit/health/HealthTypes.hpp"

namespace brimstell {

struct SmartctlReport {
    // nullopt when the output isn't smartctl's JSON or names no device (it couldn't open the
    // disk: missing, or not permitted).
    static std::optional<DiskHealth> parse(std::string_view json);

    // smartctl's own error messages, joined; empty when it gave none.
    static std::string problem(std::string_view json);
};

}  // namespace brimstell
