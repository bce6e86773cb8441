#include "support/host/PlatformWords.hpp"

#include <dirent.h>
#include <unistd.h>

#include <memory>

#include "support/posix/Compat.hpp"
#include "support/posix/Files.hpp"
#include "support/text/MountInfo.hpp"

namespace quorv {

namespace {

// udev writes a label's spaces and other bytes as \xNN in its link's name.
std::string decodeLabel(std::string_view name) {
    std::string out;
    auto hex = [](char c) { return c >= '0' && c <= '9' ? c - '0' : (c >= 'a' && c <= 'f' ? c - 'a' + 10 : (c >= 'A' && c <= 'F' ? c - 'A' + 10 : -1)); };
    for (std::size_t i = 0; i < name.size(); ++i) {
        if (name[i] == '\\' && i + 3 < name.size() && name[i + 1] == 'x' && hex(name[i + 2]) >= 0 && hex(name[i + 3]) >= 0) {
            out.push_back(static_cast<char>(hex(name[i + 2]) * 16 + hex(name[i + 3])));
            i += 3;
            continue;
        }
        out.push_back(name[i]);
    }
    return out;
}

// Device path → label, from the links in folder (each named by a label, pointing at its device).
std::map<std::string, std::string> labelsIn(const std::string& folder) {
    std::map<std::string, std::string> labels;
    std::unique_ptr<DIR, int (*)(DIR*)> dir(::opendir(folder.c_str()), ::closedir);
    if (!dir) return labels;
    while (const dirent* e = ::readdir(dir.get())) {
        const std::string name = e->d_name;
        if (name == "." || name == "..") continue;
        char target[4096];
        const ssize_t n = ::readlink((folder + "/" + name).c_str(), target, sizeof target - 1);
        if (n <= 0) continue;
        std::string device(target, static_cast<std::size_t>(n));
        // "../../sda1" → "/dev/sda1"
        if (device.rfind("../../", 0) == 0) device = "/dev/" + device.substr(6);
        labels.emplace(std::move(device), decodeLabel(name));
    }
    return labels;
}

}  // namespace

const std::vector<PhraseRow>& phraseTable() {
    static const std::vector<PhraseRow> rows = {
        {Phrase::startupDisk, "Macintosh HD", ""},
        {Phrase::yourMac, "your Mac", "your computer"},
        {Phrase::finder, "Finder", "the file manager"},
        {Phrase::yourLibrary, "your Library", "~/.var/app"},
        {Phrase::wornRule, "Apple considers under 80% worn.", "Under 80% counts as worn."},
    };
    return rows;
}

std::string phrase(Phrase p, const Host& h, std::string_view volume) {
    for (const auto& row : phraseTable()) {
        if (row.phrase != p) continue;
        if (h.isMac()) return std::string(row.mac);
        if (!row.linux.empty()) return std::string(row.linux);
        return volume.empty() ? std::string("the disk") : std::string(volume);
    }
    return {};
}

std::string volumeName(std::string_view mountinfo, const std::map<std::string, std::string>& labels,
                       std::string_view path) {
    const auto mounts = parseMountInfo(mountinfo);
    const MountEntry* m = mountHolding(mounts, path);
    if (!m) return {};
    if (auto it = labels.find(m->source); it != labels.end() && !it->second.empty()) return it->second;
    return m->point;
}

std::string volumeNameOf(const Host& h, const std::string& path) {
    const std::string table = compat::mountTableFile();
    const auto mountinfo = table.empty() ? std::nullopt : files::read(h.path(table), 16u << 20);
    if (!mountinfo) return {};
    return volumeName(*mountinfo, labelsIn(h.path("/dev/disk/by-label")), path);
}

}  // namespace quorv
