#include "support/TrashTestSupport.hpp"

#include <fcntl.h>
#include <linux/capability.h>
#include <sys/syscall.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <unistd.h>

#include <climits>
#include <cstdlib>
#include <ctime>
#include <stdexcept>
#include <thread>

#include "kit/files/FreedesktopTrash.hpp"
#include "support/posix/Files.hpp"

namespace testing_support {

LinuxTrashHost::LinuxTrashHost(double now) {
    char real[PATH_MAX];
    if (!::realpath(dir.path().c_str(), real)) throw std::runtime_error("realpath failed");
    base = real;
    home = base + "/home/someone";
    trash = home + "/.local/share/Trash";
    makeFolders(home);
    host = quorv::hostFromEnvironment({{"HOME", home}, {"XDG_DATA_HOME", home + "/.local/share"}});
    host->platform = quorv::Platform::linux;
    host->root = base;
    makeFolders(base + "/proc/self");
    mounts({});
    host->calendar.utc = false;
    host->clock = [now] { return now; };
    host->trash = std::make_shared<brimstell::FreedesktopTrash>();
    ownTrash = "/.Trash-" + std::to_string(host->uid);
    sharedTrash = "/.Trash/" + std::to_string(host->uid);
}

void LinuxTrashHost::mounts(const std::vector<std::string>& systemPaths, const std::string& fileSystem) const {
    std::string text = "21 1 8:1 / / rw - ext4 /dev/root rw\n";
    int id = 40;
    for (const auto& p : systemPaths) {
        text += std::to_string(id) + " 21 0:" + std::to_string(id) + " / " + p + " rw - " + fileSystem + " test rw\n";
        ++id;
    }
    writeBytes(base + "/proc/self/mountinfo", text);
}

std::map<std::string, std::string> LinuxTrashHost::toolEnvironment() const {
    const char* tz = std::getenv("TZ");
    return {{"HOME", home},
            {"XDG_DATA_HOME", home + "/.local/share"},
            {"TZ", tz ? tz : ""},
            {"LC_ALL", "C.UTF-8"},
            {"PYTHONIOENCODING", "utf-8:surrogateescape"}};
}

std::string LinuxTrashTest::item(const std::string& folder, const std::string& name, const std::string& content) const {
    makeFolders(env.base + "/" + folder);
    const std::string path = env.base + "/" + folder + "/" + name;
    writeBytes(path, content);
    return path;
}

std::optional<std::string> trash(const std::string& path) {
    std::string error;
    auto location = quorv::host().trash->moveToTrash(path, error);
    EXPECT_TRUE(location) << error;
    return location;
}

std::vector<quorv::TrashedItem> listed() { return quorv::host().trash->list(); }

TimeZoneScope::TimeZoneScope(const std::string& zone) {
    if (const char* old = std::getenv("TZ")) {
        had_ = true;
        old_ = old;
    }
    ::setenv("TZ", zone.c_str(), 1);
    ::tzset();
}

TimeZoneScope::~TimeZoneScope() {
    if (had_) {
        ::setenv("TZ", old_.c_str(), 1);
    } else {
        ::unsetenv("TZ");
    }
    ::tzset();
}

TmpfsMount::TmpfsMount(const std::string& path) : path_(path) {
    makeFolders(path);
    mounted_ = ::mount("brimstell-trash-test", path.c_str(), "tmpfs", 0, "size=8m,mode=0755") == 0;
}

TmpfsMount::~TmpfsMount() {
    if (mounted_) ::umount2(path_.c_str(), MNT_DETACH);
}

bool withoutFileOverrides(const std::function<void()>& fn) {
    bool dropped = false;
    std::thread([&] {
        if (::geteuid() == 0) {
            __user_cap_header_struct header{_LINUX_CAPABILITY_VERSION_3, 0};
            __user_cap_data_struct data[2]{};
            if (::syscall(SYS_capget, &header, data) != 0) return;
            data[0].effective &= ~((1u << CAP_DAC_OVERRIDE) | (1u << CAP_DAC_READ_SEARCH));
            if (::syscall(SYS_capset, &header, data) != 0) return;
        }
        dropped = true;
        fn();
    }).join();
    return dropped;
}

void writeBytes(const std::string& path, const std::string& content) {
    const int fd = ::open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0644);
    if (fd < 0) throw std::runtime_error("can't write " + path);
    const ssize_t n = ::write(fd, content.data(), content.size());
    ::close(fd);
    if (n != static_cast<ssize_t>(content.size())) throw std::runtime_error("short write " + path);
}

bool exists(const std::string& path) {
    struct stat st{};
    return ::lstat(path.c_str(), &st) == 0;
}

void makeFolders(const std::string& path) {
    if (!quorv::files::makeFolders(path, 0755)) throw std::runtime_error("can't make " + path);
}

}  // namespace testing_support
