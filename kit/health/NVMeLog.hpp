#pragma once
// The fields of the NVMe SMART / Health Information log page (log identifier 2) that Brimstell uses.

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string_view>

namespace brimstell {

struct NVMeLog {
    static constexpr std::size_t pageBytes = 512;
    // One data unit of the read and written counters is 1,000 blocks of 512 bytes.
    static constexpr double dataUnitBytes = 512'000;

    std::uint8_t criticalWarning = 0;  // bit field
    std::uint8_t spare = 0;            // available spare, percent
    std::uint8_t spareThreshold = 0;   // percent
    std::uint8_t percentUsed = 0;      // of the rated endurance; may exceed 100
    double bytesRead = 0;
    double bytesWritten = 0;
    std::uint64_t powerOnHours = 0;
    std::uint64_t unsafeShutdowns = 0;
    std::uint64_t mediaErrors = 0;

    // The page as the drive gives it; nullopt when it holds fewer than 512 bytes. Each 16-byte
    // counter is taken by its low 64 bits, little-endian.
    static std::optional<NVMeLog> parse(std::string_view page);
};

}  // namespace brimstell
