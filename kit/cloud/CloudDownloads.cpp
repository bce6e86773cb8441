#include "kit/cloud/CloudDownloads.hpp"

#include <sys/stat.h>

#include <algorithm>
#include <array>
#include <utility>

#include "kit/cleaning/FolderListing.hpp"
#include "kit/cloud/CloudFiles.hpp"
#include "kit/cloud/KeptOffline.hpp"
#include "support/host/Host.hpp"

namespace brimstell {

namespace {

bool isFolder(const std::string& location) {
    struct stat st {};
    return ::lstat(location.c_str(), &st) == 0 && S_ISDIR(st.st_mode);
}

}  // namespace

bool CloudDownloads::available() { return quorv::host().isMac(); }

std::string CloudDownloads::providerName(std::string_view folderName) {
    static constexpr std::array<std::pair<std::string_view, std::string_view>, 4> names{{
        {"GoogleDrive", "Google Drive"}, {"OneDrive", "OneDrive"}, {"Dropbox", "Dropbox"}, {"Box", "Box"}}};
    for (const auto& [prefix, name] : names) {
        if (folderName.starts_with(prefix)) return std::string(name);
    }
    return std::string(folderName);
}

std::vector<CloudEntry> CloudDownloads::roots() {
    std::vector<CloudEntry> found;
    if (!available()) return found;
    const auto& h = quorv::host();
    const std::string storage = h.inHome(storageFolder);
    if (const auto fd = FolderListing::open(storage)) {
        for (const auto& entry : FolderListing::list(fd.get())) {
            if (!entry.isFolder() || entry.name.starts_with(".")) continue;
            found.push_back(CloudEntry{providerName(entry.name), storage + "/" + entry.name});
        }
    }
    const std::string iCloud = h.inHome(iCloudFolder);
    if (isFolder(iCloud)) found.push_back(CloudEntry{"iCloud Drive", iCloud});
    return found;
}

std::int64_t CloudDownloads::downloadedSize(const std::string& location) { return CloudFiles::allocated(location); }

std::vector<CloudEntry> CloudDownloads::scan() {
    auto entries = roots();
    for (auto& entry : entries) {
        entry.bytes = downloadedSize(entry.location);
        entry.keptOffline = KeptOffline::countBelow(entry.location);
    }
    return entries;
}

bool CloudDownloads::isKeptOffline(const CloudError& error) {
    const auto matches = [](const CloudError& e) { return e.domain == providerErrorDomain && e.code == keptOfflineCode; };
    return matches(error) || (error.underlying && matches(*error.underlying));
}

}  // namespace brimstell
