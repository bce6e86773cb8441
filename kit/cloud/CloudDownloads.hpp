#pragma once
// Downloaded cloud files: per cloud provider's folder, how much of its content is on the disk, and
// the release of it. Releasing asks the system's file provider to evict each file's local copy;
// the file stays listed and downloads again when opened. Nothing is deleted and nothing goes to
// the Trash, so nothing is recorded in the cleaning history either: there is nothing to restore.

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "kit/cloud/CloudEntry.hpp"
#include "kit/cloud/FileProvider.hpp"

namespace brimstell {

struct CloudDownloads {
    // Whether this platform has a file provider that can release anything (macOS, a sandbox Mac).
    static bool available();

    // The provider folders present for this account: each folder of "Library/CloudStorage" in
    // the home (not links, not hidden), then "Library/Mobile Documents/com~apple~CloudDocs" as
    // "iCloud Drive" when it is there. Sizes are left at 0. None where nothing can be released.
    static std::vector<CloudEntry> roots();
    // The name a folder of "Library/CloudStorage" is shown with: "GoogleDrive…" is "Google Drive",
    // "OneDrive…" "OneDrive", "Dropbox…" "Dropbox", "Box…" "Box". Any other provider's folder is
    // shown by its own name: it is a file provider's folder all the same.
    static std::string providerName(std::string_view folderName);

    // Bytes of downloaded content under a folder: the allocated size of every regular file but
    // ".DS_Store" (CloudFiles).
    static std::int64_t downloadedSize(const std::string& location);
    // The roots with their downloaded sizes and the items remembered as kept offline.
    static std::vector<CloudEntry> scan();

    // Releases the downloaded content under the given folders, which must be among roots()
    // (anything else is left alone), with the given provider. Per file: one not yet uploaded is
    // kept, one with unresolved conflicts is kept (its local copy may be the only one of a
    // version), one that allocates nothing is already released; the others are evicted, and a
    // refusal that means "set to stay available offline" counts as kept and is remembered under
    // "cloud.keptOffline". Files are released by several workers at once.
    static CloudReleaseResult remove(const std::vector<std::string>& locations, FileProvider& provider);
    // The same with this host's file provider; nothing is released where there is none.
    static CloudReleaseResult remove(const std::vector<std::string>& locations);

    // Whether an eviction error means the item is pinned to stay available offline: the file
    // provider's error domain with its code -2006, directly or as the underlying error.
    static bool isKeptOffline(const CloudError& error);

    static constexpr const char* iCloudFolder = "Library/Mobile Documents/com~apple~CloudDocs";
    static constexpr const char* storageFolder = "Library/CloudStorage";
    static constexpr const char* providerErrorDomain = "NSFileProviderErrorDomain";
    static constexpr long keptOfflineCode = -2006;
};

}  // namespace brimstell
