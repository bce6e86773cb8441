#include "kit/cloud/FileProvider.hpp"

#include "kit/cloud/RecordedFileProvider.hpp"
#include "support/host/Host.hpp"
#include "support/posix/Files.hpp"

namespace brimstell {

std::unique_ptr<FileProvider> fileProvider() {
    const auto& h = quorv::host();
    if (h.sandbox) {
        if (!h.isMac()) return nullptr;
        // A missing state file is a provider with every file uploaded and none pinned.
        return recordedFileProvider(quorv::files::read(h.inHome(recordedStatesFile), 1u << 20).value_or(""));
    }
    return platformFileProvider();
}

#ifndef __APPLE__
// Linux has no file provider: a synced folder there holds full copies that no system call can
// turn back into cloud-only ones.
std::unique_ptr<FileProvider> platformFileProvider() { return nullptr; }
#endif

}  // namespace brimstell
