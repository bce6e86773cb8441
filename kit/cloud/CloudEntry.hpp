#pragma once
// One cloud provider's folder as the cloud page lists it.

#include <cstdint>
#include <string>

namespace brimstell {

struct CloudEntry {
    std::string name;      // "iCloud Drive", "Google Drive", "OneDrive", "Dropbox", "Box"
    std::string location;  // the provider's root folder
    std::int64_t bytes = 0;        // downloaded content under it (allocated bytes)
    bool selected = true;
    std::size_t keptOffline = 0;   // items a release found set to stay available offline

    // The folder's own name ("OneDrive-Contoso", "com~apple~CloudDocs"): tells two accounts of
    // one provider apart.
    std::string folder() const { return location.substr(location.rfind('/') + 1); }
};

// What one release did.
struct CloudReleaseResult {
    std::int64_t releasedBytes = 0;
    std::size_t releasedFiles = 0;
    std::size_t notUploaded = 0;   // kept: not yet uploaded
    std::size_t keptOffline = 0;   // kept: set to stay available offline
    std::size_t conflicts = 0;     // kept: unresolved conflicts
    std::size_t failed = 0;        // the provider refused for another reason; left as they were
    bool busy = false;             // another clean held the clean lock: nothing released
};

}  // namespace brimstell
