// CloudDownloads::remove: the release of downloaded cloud files, file by file, by several workers.

#include <algorithm>
#include <atomic>
#include <mutex>
#include <future>

#include "kit/cloud/CloudDownloads.hpp"
#include "kit/cloud/KeptOffline.hpp"
#include "support/background/Background.hpp"
#include "support/host/Host.hpp"

namespace brimstell {

namespace {

// Eviction waits on the file provider more than on the disk; a few at once is what it takes.
constexpr unsigned maxWorkers = 4;

enum class Outcome { released, notUploaded, keptOffline, conflict, failed, untouched };

Outcome releaseOne(const CloudFile& file, FileProvider& provider) {
    const auto facts = provider.facts(file);
    if (!facts) return Outcome::failed;
    if (!facts->cloudItem) return Outcome::untouched;  // not synced: not ours to evict
    if (!facts->uploaded) return Outcome::notUploaded;
    // Its local copy may be the only one of a version the user hasn't chosen between yet.
    if (facts->conflicts) return Outcome::conflict;
    if (file.allocated == 0) return Outcome::untouched;  // only in the cloud already
    const auto error = provider.evict(file);
    if (!error) return Outcome::released;
    return CloudDownloads::isKeptOffline(*error) ? Outcome::keptOffline : Outcome::failed;
}

// The counters the workers share, under one lock.
struct Tally {
    std::mutex mutex;
    CloudReleaseResult result;
    std::vector<std::string> keptOffline;

    void add(const CloudFile& file, Outcome outcome) {
        std::lock_guard lock(mutex);
        switch (outcome) {
            case Outcome::released:
                result.releasedBytes += file.allocated;
                result.releasedFiles += 1;
                break;
            case Outcome::notUploaded: result.notUploaded += 1; break;
            case Outcome::conflict: result.conflicts += 1; break;
            case Outcome::failed: result.failed += 1; break;
            case Outcome::keptOffline:
                result.keptOffline += 1;
                keptOffline.push_back(file.location());
                break;
            case Outcome::untouched: break;
        }
    }
};

void releaseAll(const std::vector<CloudFile>& files, FileProvider& provider, Tally& tally) {
    std::atomic<std::size_t> next{0};
    const auto work = [&] {
        for (std::size_t i = next++; i < files.size(); i = next++) tally.add(files[i], releaseOne(files[i], provider));
    };
    // A few tasks of the process's one pool, and this thread, take files until none is left.
    std::vector<std::future<void>> helpers;
    const auto wanted = std::min<std::size_t>(maxWorkers, files.size());
    for (std::size_t i = 1; i < wanted; ++i) helpers.push_back(quorv::Background::run(work));
    work();
    for (auto& helper : helpers) helper.get();
}

}  // namespace

CloudReleaseResult CloudDownloads::remove(const std::vector<std::string>& locations, FileProvider& provider) {
    std::vector<std::string> chosen;
    for (const auto& root : roots()) {
        if (std::find(locations.begin(), locations.end(), root.location) != locations.end()) chosen.push_back(root.location);
    }
    std::vector<CloudFile> files;
    for (const auto& root : chosen) CloudFiles::each(root, [&files](CloudFile&& file) { files.push_back(std::move(file)); });
    Tally tally;
    releaseAll(files, provider, tally);
    if (!chosen.empty()) KeptOffline::replace(chosen, tally.keptOffline);
    return tally.result;
}

CloudReleaseResult CloudDownloads::remove(const std::vector<std::string>& locations) {
    const auto provider = fileProvider();
    if (provider) return remove(locations, *provider);
    return CloudReleaseResult{};
}

}  // namespace brimstell
