#include "kit/health/NVMeLog.hpp"

namespace brimstell {

namespace {

std::uint64_t low64(std::string_view page, std::size_t offset) {
    std::uint64_t v = 0;
    for (std::size_t i = 0; i < 8; ++i) {
        v |= static_cast<std::uint64_t>(static_cast<unsigned char>(page[offset + i])) << (8 * i);
    }
    return v;
}

std::uint8_t byteAt(std::string_view page, std::size_t offset) { return static_cast<std::uint8_t>(page[offset]); }

}  // namespace

std::optional<NVMeLog> NVMeLog::parse(std::string_view page) {
    if (page.size() < pageBytes) return std::nullopt;
    NVMeLog log;
    log.criticalWarning = byteAt(page, 0);
    log.spare = byteAt(page, 3);
    log.spareThreshold = byteAt(page, 4);
    log.percentUsed = byteAt(page, 5);
    log.bytesRead = static_cast<double>(low64(page, 32)) * dataUnitBytes;
    log.bytesWritten = static_cast<double>(low64(page, 48)) * dataUnitBytes;
    log.powerOnHours = low64(page, 128);
    log.unsafeShutdowns = low64(page, 144);
    log.mediaErrors = low64(page, 160);
    return log;
}

}  // namespace brimstell
