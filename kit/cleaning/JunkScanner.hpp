#pragma once
// The junk scanner: walks one home folder by the junk rules and returns the rows of the junk
// list with their items measured. Stateless; nothing throws, and a folder that can't be read
// contributes nothing.

#include <functional>
#include <string>
#include <vector>

#include "kit/cleaning/JunkCategory.hpp"
#include "kit/cleaning/JunkKinds.hpp"

namespace brimstell {

struct JunkScanner {
    using CacheKind = brimstell::CacheKind;
    using DevKind = brimstell::DevKind;
    // Called on the thread that called scan, after each stage, with (stages done, stages in all).
    using Progress = std::function<void(int done, int total)>;

    // Every category with at least one item found under home (a location), in the list's order:
    // the fourteen categories, then Xcode, Package Caches, Other Developer Caches, Old node_modules.
    // Categories are ticked by default; items carry fresh ids and their allocated sizes, all
    // measured in one parallel walk; every item is selected except the developer places that are
    // not ticked by default. On a Linux host the Linux rules are walked instead (LinuxJunkScanner).
    static std::vector<JunkCategory> scan(const std::string& home, const Progress& progress = {});

    // The sub-scans. Each returns the categories it finds items for (only those with items, in the
    // list's order, ticked by default), items with fresh ids and size 0: measure() sizes them.

    // Folders in Library/Caches, one item each, in byte order of their names: Browser Caches, App
    // Updates, Creative Apps, Music & Chat, macOS Caches, Other App Caches, Other Developer Caches
    // and Xcode.
    static std::vector<JunkCategory> libraryCaches(const std::string& home);
    // Chromium browsers' cache folders (Browser Caches) and their offline website data (Website
    // Offline Data).
    static std::vector<JunkCategory> browserData(const std::string& home);
    // One item per backup folder, labelled "<Device Name> · <day of Last Backup Date>".
    static std::vector<JunkCategory> iosBackups(const std::string& home);
    // iOS Updates, Mail Attachments, Logs, Installers and Trash.
    static std::vector<JunkCategory> userFolders(const std::string& home);
    // Cloud-sync apps' caches and logs (Cloud Storage); synced files are never listed.
    static std::vector<JunkCategory> cloud(const std::string& home);
    // The developer places and Xcode's device support folders (Xcode, Package Caches, Other
    // Developer Caches); places missing or cloud-synced are left out, and measure() drops those
    // of size 0.
    static std::vector<JunkCategory> developer(const std::string& home);
    // node_modules folders of projects untouched for at least days days before now (seconds since
    // 1970), labelled "<project folder> · untouched since <day>" (Old node_modules).
    static std::vector<JunkCategory> oldNodeModules(const std::string& home, double now, int days);

    // Sizes every item of every category in one walk (a location inside an earlier one counts
    // nothing, so nothing is counted twice), then drops the developer categories' items of size 0
    // and the categories left empty. Items of other categories stay at 0 bytes: an empty log or
    // Trash item is still something the user may want gone.
    static void measure(std::vector<JunkCategory>& categories);

    // A day in the host's calendar, as item labels show it: "2026-11-02".
    static std::string dayText(double time);
};

}  // namespace brimstell
