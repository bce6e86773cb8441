#pragma once
// A sandbox Mac's cloud folders: iCloud Drive and file-provider folders in Library/CloudStorage,
// with files downloaded, only in the cloud, not yet uploaded, pinned to stay offline and in
// conflict, recorded for the stand-in file provider (kit/cloud/RecordedFileProvider).

#include <cstddef>
#include <string_view>

#include "kit/sandbox/SandboxMac.hpp"

namespace brimstell {

void addCloudFolders(SandboxMac& mac);

// A file of the given length with nothing allocated: what a file only in the cloud looks like.
std::string addCloudOnlyFile(SandboxMac& mac, std::string_view systemPath, std::size_t length);
// Records a file's state ("notUploaded", "pinned", "conflict", "failing") for the stand-in.
void recordCloudState(SandboxMac& mac, std::string_view systemPath, std::string_view state);

}  // namespace brimstell
