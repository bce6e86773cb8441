#include "kit/files/TrashBin.hpp"

#include <cmath>
#include <exception>
#include <memory>
#include <set>

#include "kit/cleaning/CleanLock.hpp"
#include "kit/files/FS.hpp"
#include "support/host/Host.hpp"
#include "support/host/TrashBackend.hpp"

namespace brimstell {
namespace {

constexpr double secondsPerDay = 86400;

std::vector<quorv::TrashedItem> listed() {
    auto trash = quorv::host().trash;
    if (!trash) return {};
    return trash->list();
}

TrashBinItem sized(quorv::TrashedItem item) {
    TrashBinItem out;
    out.size = FS::size(item.location);
    out.location = std::move(item.location);
    out.originalPath = std::move(item.originalPath);
    out.dateAdded = item.dateAdded;
    return out;
}

}  // namespace

std::vector<TrashBinItem> TrashBin::items() {
    std::vector<TrashBinItem> out;
    try {
        for (auto& item : listed()) out.push_back(sized(std::move(item)));
    } catch (const std::exception&) {
        return {};
    }
    return out;
}

std::int64_t TrashBin::totalSize() {
    std::int64_t total = 0;
    for (const auto& item : items()) total += item.size;
    return total;
}

std::vector<std::string> TrashBin::deleteForGood(const std::vector<std::string>& locations) {
    try {
        auto trash = quorv::host().trash;
        if (!trash || locations.empty()) return {};
        return trash->erase(locations);
    } catch (const std::exception&) {
        return {};
    }
}

bool TrashBin::isOlderThan(const std::optional<double>& dateAdded, int days, double now) {
    if (!dateAdded || !std::isfinite(*dateAdded) || days < 0 || !std::isfinite(now)) return false;
    return *dateAdded < now - static_cast<double>(days) * secondsPerDay;
}

std::vector<TrashBinItem> TrashBin::olderThan(int days, double now) {
    std::vector<TrashBinItem> out;
    try {
        // Only the chosen items are measured.
        for (auto& item : listed()) {
            if (isOlderThan(item.dateAdded, days, now)) out.push_back(sized(std::move(item)));
        }
    } catch (const std::exception&) {
        return {};
    }
    return out;
}

std::optional<std::vector<std::string>> TrashBin::emptyItems(const std::vector<TrashBinItem>& chosen) {
    const auto lock = CleanLock::take();
    if (!lock) return std::nullopt;
    std::vector<std::string> locations;
    for (const auto& item : chosen) locations.push_back(item.location);
    return deleteForGood(locations);
}

std::optional<std::int64_t> TrashBin::emptyOlderThan(int days) {
    // Held from the choice to the deletion, so that what is chosen is what this clean deletes.
    const auto lock = CleanLock::take();
    if (!lock) return std::nullopt;
    const auto old = olderThan(days, quorv::host().now());
    const auto goneList = emptyItems(old).value_or(std::vector<std::string>());
    const std::set<std::string> gone(goneList.begin(), goneList.end());
    std::int64_t freed = 0;
    for (const auto& item : old) {
        if (gone.count(item.location) != 0) freed += item.size;
    }
    return freed;
}

}  // namespace brimstell
