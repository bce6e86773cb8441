#include "kit/health/LinuxDisk.hpp"

#include <dirent.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cctype>
#include <climits>
#include <cstdlib>

#include "kit/health/SmartctlReport.hpp"
#include "support/host/Host.hpp"
#include "support/posix/Compat.hpp"
#include "support/posix/Files.hpp"
#include "support/process/Shell.hpp"
#include "support/text/MountInfo.hpp"

namespace brimstell {

namespace {

bool allDigits(const std::string& s, std::size_t from) {
    if (from >= s.size()) return false;
    for (std::size_t i = from; i < s.size(); ++i) {
        if (!std::isdigit(static_cast<unsigned char>(s[i]))) return false;
    }
    return true;
}

// The first device beneath a device-mapper volume, from /sys/class/block/<name>/slaves.
std::optional<std::string> beneath(const std::string& name) {
    DIR* dir = ::opendir(quorv::host().path("/sys/class/block/" + name + "/slaves").c_str());
    if (!dir) return std::nullopt;
    std::optional<std::string> first;
    while (const dirent* d = ::readdir(dir)) {
        if (d->d_name[0] == '.') continue;
        if (!first || d->d_name < *first) first = d->d_name;
    }
    ::closedir(dir);
    return first;
}

std::optional<std::string> smartctl() {
    for (const char* p : {"/usr/sbin/smartctl", "/usr/bin/smartctl"}) {
        const std::string at = quorv::host().path(p);
        if (::access(at.c_str(), X_OK) == 0) return at;
    }
    return std::nullopt;
}

}  // namespace

std::string LinuxDisk::wholeDisk(const std::string& name) {
    // NVMe namespaces and MMC cards number their partitions after a "p".
    if (name.rfind("nvme", 0) == 0 || name.rfind("mmcblk", 0) == 0) {
        const auto p = name.rfind('p');
        if (p != std::string::npos && p > 4 && std::isdigit(static_cast<unsigned char>(name[p - 1])) && allDigits(name, p + 1)) {
            return name.substr(0, p);
        }
        return name;
    }
    // sda1, vdb2, xvda3, hdc1: letters, then the partition's number.
    std::size_t end = name.size();
    while (end > 0 && std::isdigit(static_cast<unsigned char>(name[end - 1]))) --end;
    if (end < name.size() && end > 0 && std::isalpha(static_cast<unsigned char>(name[end - 1])) &&
        (name.rfind("sd", 0) == 0 || name.rfind("vd", 0) == 0 || name.rfind("hd", 0) == 0 || name.rfind("xvd", 0) == 0)) {
        return name.substr(0, end);
    }
    return name;
}

std::optional<std::string> LinuxDisk::startupDisk() {
    const auto& h = quorv::host();
    const std::string table = quorv::compat::mountTableFile();
    if (table.empty()) return std::nullopt;
    const auto text = quorv::files::read(h.path(table), 16u << 20);
    if (!text) return std::nullopt;
    const auto mounts = quorv::parseMountInfo(*text);
    const quorv::MountEntry* root = quorv::mountHolding(mounts, "/");
    if (!root || root->source.rfind("/dev/", 0) != 0) return std::nullopt;
    // /dev/mapper/<volume> and /dev/disk/by-… are links to the kernel's own name.
    char resolved[PATH_MAX];
    const std::string device = h.path(root->source);
    std::string name = quorv::files::nameOf(::realpath(device.c_str(), resolved) ? std::string(resolved) : device);
    for (int depth = 0; depth < 8; ++depth) {
        auto lower = beneath(name);
        if (!lower) break;
        name = *lower;
    }
    return wholeDisk(name);
}

DiskReading LinuxDisk::read() {
    DiskReading out;
    const auto disk = startupDisk();
    if (!disk) {
        out.problem = "The disk under / isn't a local block device.";
        return out;
    }
    const auto tool = smartctl();
    if (!tool) {
        out.problem = "smartctl isn't installed (it comes with smartmontools).";
        return out;
    }
    const std::string device = "/dev/" + *disk;
    quorv::ShellOptions options;
    options.timeLimit = 60;
    const auto r = quorv::Shell::run(*tool, {"--json", "-a", device}, options);
    out.disk = SmartctlReport::parse(r.output);
    if (!out.disk) {
        const std::string why = SmartctlReport::problem(r.output);
        out.problem = "smartctl couldn't read " + device + (why.empty() ? "." : ": " + why);
    }
    return out;
}

}  // namespace brimstell
