// The demo Mac's cloud folders. Downloaded files are real data; files only in the cloud are sparse,
// with their length and no blocks; the states the stand-in file provider reads go into its one
// state file, a line per file.

#include "kit/sandbox/SandboxCloud.hpp"

#include <fcntl.h>
#include <unistd.h>

#include <filesystem>
#include <string>

#include "kit/cloud/RecordedFileProvider.hpp"
#include "support/posix/Files.hpp"
#include "support/posix/UniqueFd.hpp"

namespace brimstell {

namespace {

// "~/x" as the Mac names it: "/Users/<user>/x".
std::string macPath(const SandboxMac& mac, std::string_view systemPath) {
    if (systemPath.starts_with("~/")) return "/Users/" + mac.user() + std::string(systemPath.substr(1));
    return std::string(systemPath);
}

}  // namespace

std::string addCloudOnlyFile(SandboxMac& mac, std::string_view systemPath, std::size_t length) {
    const std::string p = mac.path(systemPath);
    quorv::files::makeFolders(quorv::files::parentOf(p), 0755);
    quorv::UniqueFd fd(::open(p.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0644));
    if (fd && ::ftruncate(fd.get(), static_cast<off_t>(length)) != 0) ::unlink(p.c_str());
    return p;
}

void recordCloudState(SandboxMac& mac, std::string_view systemPath, std::string_view state) {
    const std::string line = std::string(state) + "\t" + macPath(mac, systemPath) + "\n";
    quorv::files::appendRecord(mac.home() + "/" + std::string(recordedStatesFile), line);
}

void addCloudFolders(SandboxMac& mac) {
    ::unlink((mac.home() + "/" + std::string(recordedStatesFile)).c_str());  // laid out again: states anew
    const std::string iCloud = "~/Library/Mobile Documents/com~apple~CloudDocs/";
    mac.writeFileOfSize(iCloud + "Documents/Report.pages", 2'000'000);
    addCloudOnlyFile(mac, iCloud + "Movies/Trip.mov", 50'000'000);
    mac.writeFileOfSize(iCloud + "Drafts/Novel.docx", 300'000);
    recordCloudState(mac, iCloud + "Drafts/Novel.docx", recordedState::notUploaded);

    const std::string dropbox = "~/Library/CloudStorage/Dropbox/";
    mac.writeFileOfSize(dropbox + "Projects/site.zip", 4'000'000);
    mac.writeFileOfSize(dropbox + "Taxes 2025.pdf", 1'500'000);
    recordCloudState(mac, dropbox + "Taxes 2025.pdf", recordedState::pinned);
    mac.writeFileOfSize(dropbox + ".DS_Store", 12'000);
    // A link in a cloud folder is neither measured nor released, nor is what it points at.
    std::error_code ec;
    std::filesystem::create_directory_symlink(mac.path("~/Downloads"), mac.path(dropbox + "Downloads"), ec);

    const std::string oneDrive = "~/Library/CloudStorage/OneDrive-Contoso/";
    mac.writeFileOfSize(oneDrive + "Shared/Budget.xlsx", 800'000);
    mac.writeFileOfSize(oneDrive + "Shared/Plan.docx", 600'000);
    recordCloudState(mac, oneDrive + "Shared/Plan.docx", recordedState::conflict);

    addCloudOnlyFile(mac, "~/Library/CloudStorage/GoogleDrive-ann@example.com/My Drive/Notes.pdf", 3'000'000);
}

}  // namespace brimstell
