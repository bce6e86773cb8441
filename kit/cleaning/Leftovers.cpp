#include "kit/cleaning/Leftovers.hpp"

#include <algorithm>
#include <cctype>
#include <map>

#include <fmt/format.h>

#include "kit/cleaning/FolderListing.hpp"
#include "kit/files/FS.hpp"
#include "kit/updates/AppBundles.hpp"
#include "support/host/Host.hpp"
#include "support/posix/Compat.hpp"
#include "support/process/Shell.hpp"
#include "support/text/TextHash.hpp"
#include "support/text/Unicode.hpp"
#include "support/text/Uuid.hpp"

namespace brimstell {

const std::array<std::string_view, 10> Leftovers::libraryFolders = {
    "Application Support", "Caches", "Preferences", "Containers", "Saved Application State",
    "HTTPStorages",        "WebKit", "Logs",        "LaunchAgents", "Cookies",
};

const std::array<std::string_view, 3> Leftovers::suffixes = {".plist", ".savedState", ".binarycookies"};

namespace {

// Bundle identifiers are made of ASCII letters and digits, "-", "_" and "."; a name with any other
// character (another script's letters, a blank, a line feed, bytes that aren't UTF-8) is none.
bool isIdentifierCharacter(char c) {
    return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') || c == '-' || c == '_' ||
           c == '.';
}

// The parts between dots, empty ones not counted ("a..b" has two).
std::size_t partCount(std::string_view name) {
    std::size_t count = 0;
    bool inPart = false;
    for (const char c : name) {
        if (c == '.') {
            inPart = false;
        } else if (!inPart) {
            inPart = true;
            ++count;
        }
    }
    return count;
}

}  // namespace

std::optional<std::string> Leftovers::bundleID(std::string_view name) {
    for (const auto suffix : suffixes) {
        if (name.ends_with(suffix)) {
            name.remove_suffix(suffix.size());
            break;
        }
    }
    if (name.starts_with('.') || partCount(name) < 3) return std::nullopt;
    if (!std::all_of(name.begin(), name.end(), isIdentifierCharacter)) return std::nullopt;
    return std::string(name);
}

std::string Leftovers::displayName(std::string_view id) {
    while (!id.empty() && id.back() == '.') id.remove_suffix(1);
    std::string name(id.substr(id.rfind('.') == std::string_view::npos ? 0 : id.rfind('.') + 1));
    std::transform(name.begin(), name.end(), name.begin(), [](unsigned char c) { return std::tolower(c); });
    if (!name.empty()) name[0] = static_cast<char>(std::toupper(static_cast<unsigned char>(name[0])));
    return name;
}

bool Leftovers::isKept(const std::string& id, const std::set<std::string>& installed) {
    if (id.starts_with("com.apple.") || installed.count(id) != 0) return true;
    // Brimstell's own settings and files are never a removed app's, even where its app isn't
    // installed (the agent or the command line alone, a sandbox Mac).
    if (id == ownID || id.starts_with(std::string(ownID) + ".")) return true;
    // An installed identifier followed by "." starts it: com.example.app.helper is
    // com.example.app's, com.example.application is not.
    for (std::size_t dot = id.find('.'); dot != std::string::npos; dot = id.find('.', dot + 1)) {
        if (installed.count(id.substr(0, dot)) != 0) return true;
    }
    return false;
}

std::set<std::string> Leftovers::runningAppFolders(std::string_view psOutput) {
    std::set<std::string> folders;
    constexpr std::string_view inside = ".app/Contents/MacOS/";
    while (!psOutput.empty()) {
        const auto end = psOutput.find('\n');
        const auto line = psOutput.substr(0, end);
        psOutput = end == std::string_view::npos ? std::string_view() : psOutput.substr(end + 1);
        const auto at = line.rfind(inside);
        if (line.starts_with('/') && at != std::string_view::npos) folders.emplace(line.substr(0, at + 4));
    }
    return folders;
}

std::vector<std::string> Leftovers::flatpakInstallations() {
    const auto& h = quorv::host();
    std::vector<std::string> candidates = {h.path("/var/lib/flatpak"), h.inHome(".local/share/flatpak")};
    // Further installations are named by "Path=" lines in the files of installations.d.
    const auto conf = FolderListing::open(h.path("/etc/flatpak/installations.d"));
    for (const auto& entry : conf ? FolderListing::list(conf.get()) : std::vector<FolderEntry>()) {
        if (!entry.name.ends_with(".conf")) continue;
        const auto text = FolderListing::readAt(conf.get(), entry.name, 1u << 16).value_or("");
        std::size_t start = 0;
        while (start < text.size()) {
            std::size_t end = text.find('\n', start);
            if (end == std::string::npos) end = text.size();
            std::string_view line(text.data() + start, end - start);
            while (!line.empty() && (line.front() == ' ' || line.front() == '\t')) line.remove_prefix(1);
            if (line.starts_with("Path=/")) candidates.push_back(h.path(line.substr(5)));
            start = end + 1;
        }
    }
    std::vector<std::string> found;
    for (const auto& c : candidates) {
        if (FolderListing::open(c)) found.push_back(c);
    }
    return found;
}

std::vector<LeftoverGroup> Leftovers::findAppData(const std::string& folder, const std::set<std::string>& installed) {
    std::vector<LeftoverGroup> groups;
    const auto fd = FolderListing::open(folder);
    for (const auto& entry : fd ? FolderListing::list(fd.get()) : std::vector<FolderEntry>()) {
        const auto id = bundleID(entry.name);
        if (!id || !entry.isFolder()) continue;
        const std::string lower = quorv::lowerCased(*id);
        if (isKept(lower, installed)) continue;
        FileItem item;
        item.location = folder + "/" + entry.name;
        item.id = quorv::newUuid();
        item.size = FS::size(item.location);
        item.label = entry.name;
        groups.push_back({lower, displayName(lower), {std::move(item)}});
    }
    std::stable_sort(groups.begin(), groups.end(),
                     [](const LeftoverGroup& a, const LeftoverGroup& b) { return a.name < b.name; });
    return groups;
}

std::vector<LeftoverGroup> Leftovers::findHere(const std::set<std::string>& installed) {
    const auto& h = quorv::host();
    if (h.isMac()) return find(h.inHome("Library"), installed);
    if (flatpakInstallations().empty()) return {};
    return findAppData(h.inHome(".var/app"), installed);
}

namespace {

std::set<std::string> installedFlatpaks() {
    std::set<std::string> ids;
    for (const auto& installation : Leftovers::flatpakInstallations()) {
        const auto apps = FolderListing::open(installation + "/app");
        for (const auto& entry : apps ? FolderListing::listFolders(apps.get()) : std::vector<FolderEntry>()) {
            if (const auto id = Leftovers::bundleID(entry.name)) ids.insert(quorv::lowerCased(*id));
        }
    }
    return ids;
}

std::set<std::string> idsOf(const std::vector<std::string>& appLocations) {
    std::set<std::string> ids;
    for (const auto& location : appLocations) {
        if (const auto app = AppBundles::read(location, true)) ids.insert(quorv::lowerCased(app->bundleID));
    }
    return ids;
}

// Every entry of the folder (and of its sub-folders down to depth, apps not entered) by name,
// identity and modification time: names and identities tell an app added, removed, renamed or
// replaced however coarse the clock of the file system.
void stampFolder(int fd, int depth, std::string& text) {
    for (const auto& entry : FolderListing::list(fd)) {
        text += fmt::format("{}\t{}\t{}\t{:.9f}\n", entry.name, entry.st.st_dev, entry.st.st_ino,
                            quorv::compat::modifiedSeconds(entry.st));
        if (depth == 0 || !entry.isFolder() || AppBundles::isAppName(entry.name)) continue;
        if (const auto sub = FolderListing::openBelow(fd, entry.name)) {
            text += "{\n";
            stampFolder(sub.get(), depth - 1, text);
            text += "}\n";
        }
    }
}

std::vector<std::string> macAppPlaces() {
    const auto& h = quorv::host();
    return {h.path("/Applications"), h.path("/System/Applications"), h.inHome("Applications")};
}

}  // namespace

std::set<std::string> Leftovers::installedIDs() {
    auto ids = bundleIDs();
    addRunning(ids);
    return ids;
}

std::set<std::string> Leftovers::bundleIDs() {
    if (!quorv::host().isMac()) return installedFlatpaks();
    return idsOf(AppBundles::locations(macAppPlaces(), true));
}

std::string Leftovers::appFoldersStamp() {
    if (!quorv::host().isMac()) return "";
    std::string text;
    for (const auto& place : macAppPlaces()) {
        text += place + "\n";
        if (const auto fd = FolderListing::open(place)) stampFolder(fd.get(), 1, text);
    }
    return fmt::format("{:016x}", quorv::TextHash::of(text));
}

// Decided: apps that are running count as installed too, wherever they run from (a disk image,
// Downloads), so that the files of an app in use are never offered for the Trash.
void Leftovers::addRunning(std::set<std::string>& ids) {
    const auto& h = quorv::host();
    if (!h.isMac()) return;
    quorv::ShellOptions options;
    options.timeLimit = 10;
    const auto ps = quorv::Shell::run(h.path("/bin/ps"), {"-axo", "comm="}, options);
    if (!ps.succeeded()) return;
    std::vector<std::string> running;
    for (const auto& folder : runningAppFolders(ps.output)) running.push_back(h.path(folder));
    ids.merge(idsOf(running));
}

std::vector<LeftoverGroup> Leftovers::find(const std::string& library, const std::set<std::string>& installed) {
    std::map<std::string, LeftoverGroup> byID;
    const auto top = FolderListing::open(library);
    if (!top) return {};
    for (const auto folder : libraryFolders) {
        const auto fd = FolderListing::openBelow(top.get(), folder);
        if (!fd) continue;
        for (const auto& entry : FolderListing::list(fd.get())) {
            const auto id = bundleID(entry.name);
            if (!id) continue;
            const std::string lower = quorv::lowerCased(*id);
            if (isKept(lower, installed)) continue;
            FileItem item;
            item.location = library + "/" + std::string(folder) + "/" + entry.name;
            item.id = quorv::newUuid();
            item.size = FS::size(item.location);
            item.label = std::string(folder) + "/" + entry.name;
            auto& group = byID[lower];
            group.bundleID = lower;
            group.name = displayName(lower);
            group.items.push_back(std::move(item));
        }
    }
    std::vector<LeftoverGroup> groups;
    for (auto& [id, group] : byID) groups.push_back(std::move(group));
    std::stable_sort(groups.begin(), groups.end(),
                     [](const LeftoverGroup& a, const LeftoverGroup& b) { return a.name < b.name; });
    return groups;
}

}  // namespace brimstell
