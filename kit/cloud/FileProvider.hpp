#pragma once
// The system's file provider, as releasing downloads needs it: what it knows of a file, and the
// eviction of its local copy. The platform answers these plain questions; what to release, what
// to keep and how to count it is decided in CloudDownloads, the same on every platform.

#include <memory>
#include <optional>
#include <string>

#include "kit/cloud/CloudFiles.hpp"

namespace brimstell {

// An eviction error as the system reports it: its domain and code, and the underlying error its
// user info carries, if any.
struct CloudError {
    std::string domain;
    long code = 0;
    std::shared_ptr<const CloudError> underlying;
};

// What the file provider says of one file.
struct CloudItemFacts {
    bool cloudItem = false;    // the provider syncs it
    bool uploaded = false;     // its content is in the cloud
    bool conflicts = false;    // it has unresolved conflicts
};

class FileProvider {
public:
    virtual ~FileProvider() = default;
    // nullopt when the file can't be asked about (gone, unreadable).
    virtual std::optional<CloudItemFacts> facts(const CloudFile& file) = 0;
    // Evicts the local copy: the file stays listed and downloads again when opened. nullopt when
    // it was evicted, else the error.
    virtual std::optional<CloudError> evict(const CloudFile& file) = 0;
};

// The file provider of this host: in a sandbox Mac its stand-in, on macOS the system's, null
// where there is none (Linux).
std::unique_ptr<FileProvider> fileProvider();

// The macOS file manager's ubiquitous-item calls; null off macOS.
std::unique_ptr<FileProvider> platformFileProvider();

// A sandbox Mac's stand-in (see RecordedFileProvider.cpp) over the recorded states in stateText.
std::unique_ptr<FileProvider> recordedFileProvider(const std::string& stateText);

}  // namespace brimstell
