// The system's own background work that slows a computer for a while and stops by itself: the
// programs by their executable's file name, and what to tell people about them. The rows carry no
// icon of their own; every one is shown with "gearshape.2", the system's symbol for work going on.

#include "kit/insight/Slowdown.hpp"
#include "support/host/Host.hpp"

namespace brimstell {

const std::vector<Slowdown::Work>& Slowdown::macWorkTable() {
    static const std::vector<Work> table = {
        {{"mds_stores", "mdworker", "mdworker_shared", "mdsync", "corespotlightd", "mdbulkimport"},
         "Spotlight is indexing your files",
         "Search is catching up on changes, as it does after an update or a big copy. It stops on its own; leaving your "
         "Mac on lets it finish."},
        {{"photoanalysisd", "mediaanalysisd", "photolibraryd"},
         "Photos is analysing your library",
         "It's finding faces and scenes, mostly while your Mac is idle. It stops on its own once the library is done."},
        {{"bird", "cloudd", "fileproviderd"},
         "iCloud is syncing",
         "Files are uploading or downloading. It quietens down once everything is up to date."},
        {{"softwareupdated", "UpdateBrainService", "com.apple.MobileSoftwareUpdate.UpdateBrainService"},
         "macOS is preparing an update",
         "It downloads and prepares the update in the background. Installing it when you're asked ends this."},
        {{"XProtect", "XprotectService", "XProtectPluginService", "syspolicyd"},
         "macOS is checking apps for malware",
         "This runs after apps are installed or updated, and stops on its own."},
    };
    return table;
}

// The same kinds of work on a Linux desktop. Names are as ps shows them: the executable's file
// name, or the kernel's 15-character command name where the executable can't be seen.
const std::vector<Slowdown::Work>& Slowdown::linuxWorkTable() {
    static const std::vector<Work> table = {
        {{"tracker-miner-fs-3", "tracker-miner-fs", "tracker-extract-3", "tracker-extract", "tracker-miner-f",
          "baloo_file", "baloo_file_extractor", "baloo_file_extr", "localsearch-3", "localsearch"},
         "Search is indexing your files",
         "The desktop's search is catching up on changes, as it does after an update or a big copy. It stops on its "
         "own; leaving your computer on lets it finish."},
        {{"apt", "apt-get", "aptitude", "dpkg", "unattended-upgr", "unattended-upgrade", "dnf", "dnf5", "yum", "rpm",
          "packagekitd", "zypper", "pacman", "fwupd", "flatpak"},
         "Software is being updated",
         "Packages are downloading or installing in the background. It stops on its own once the update is done."},
        {{"snapd", "snap"},
         "Snap apps are being refreshed",
         "snapd is downloading and installing new versions of your snap apps. It stops on its own."},
        {{"updatedb", "updatedb.plocate", "updatedb.mlocat", "plocate-build", "man-db", "mandb"},
         "The system is rebuilding its file lists",
         "Its daily jobs are listing the disk's files and manual pages. They stop on their own."},
        {{"clamd", "clamscan", "freshclam"},
         "The virus scanner is checking files",
         "This runs after files are added or its signatures change, and stops on its own."},
    };
    return table;
}

// A sandbox Mac is a Mac: its table is the Mac's.
const std::vector<Slowdown::Work>& Slowdown::workTable() {
    return quorv::host().isMac() ? macWorkTable() : linuxWorkTable();
}

}  // namespace brimstell
