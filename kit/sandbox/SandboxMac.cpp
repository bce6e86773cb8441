#include "kit/sandbox/SandboxMac.hpp"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>
#include <string>
#include <vector>

#include <fmt/format.h>

#include "support/host/Host.hpp"
#include "support/plist/Plist.hpp"
#include "support/posix/Files.hpp"
#include "support/posix/UniqueFd.hpp"

namespace brimstell {

namespace fs = std::filesystem;

SandboxMac SandboxMac::create(const std::string& rootIn, const std::string& user) {
    SandboxMac mac;
    std::error_code ec;
    mac.root_ = fs::absolute(rootIn, ec).lexically_normal().string();
    while (mac.root_.size() > 1 && mac.root_.back() == '/') mac.root_.pop_back();
    mac.user_ = user;
    static const char* systemFolders[] = {
        "/Applications",
        "/Library/LaunchAgents",
        "/Library/LaunchDaemons",
        "/Library/Application Support",
        "/Library/Caches",
        "/Library/Logs",
        "/System/Library",
        "/Users/Shared",
        "/private/var/log",
        "/private/var/db",
        "/private/tmp",
        "/usr/bin",
        "/usr/sbin",
        "/bin",
        "/Volumes",
    };
    for (const char* f : systemFolders) mac.makeFolder(f);
    static const char* homeFolders[] = {
        "~/Desktop",
        "~/Documents",
        "~/Downloads",
        "~/.Trash",
        "~/Library/Preferences",
        "~/Library/Caches",
        "~/Library/Logs",
        "~/Library/LaunchAgents",
        "~/Library/Application Support",
        "~/Library/Group Containers",
        "~/Library/Containers",
        "~/Library/CloudStorage",
        "~/Library/Mobile Documents",
    };
    for (const char* f : homeFolders) mac.makeFolder(f);
    return mac;
}

std::string SandboxMac::home() const { return root_ + "/Users/" + user_; }

std::string SandboxMac::path(std::string_view systemPath) const {
    if (systemPath.substr(0, 2) == "~/") return home() + "/" + std::string(systemPath.substr(2));
    if (systemPath == "~") return home();
    return root_ + std::string(systemPath);
}

std::string SandboxMac::makeFolder(std::string_view systemPath) {
    const std::string p = path(systemPath);
    quorv::files::makeFolders(p, 0755);
    return p;
}

std::string SandboxMac::writeFile(std::string_view systemPath, std::string_view content) {
    const std::string p = path(systemPath);
    quorv::files::makeFolders(quorv::files::parentOf(p), 0755);
    quorv::files::writeAtomically(p, content, 0644);
    return p;
}

std::string SandboxMac::writeFileOfSize(std::string_view systemPath, std::size_t bytes) {
    const std::string p = path(systemPath);
    quorv::files::makeFolders(quorv::files::parentOf(p), 0755);
    quorv::UniqueFd fd(::open(p.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0644));
    if (!fd) return p;
    // Real data, not a hole, so the allocated size matches what a scan should find.
    std::vector<char> block(65536, 'x');
    std::size_t left = bytes;
    while (left > 0) {
        const std::size_t n = std::min(left, block.size());
        if (::write(fd.get(), block.data(), n) != static_cast<ssize_t>(n)) break;
        left -= n;
    }
    return p;
}

void SandboxMac::setTimes(const std::string& location, double time) {
    const auto whole = static_cast<time_t>(time);
    const timespec times[2] = {{whole, 0}, {whole, 0}};
    ::utimensat(AT_FDCWD, location.c_str(), times, AT_SYMLINK_NOFOLLOW);
}

std::string SandboxMac::addLaunchItem(std::string_view folder, std::string_view label, std::string_view program) {
    const std::string text = fmt::format(
        "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n"
        "<!DOCTYPE plist PUBLIC \"-//Apple//DTD PLIST 1.0//EN\" \"http://www.apple.com/DTDs/PropertyList-1.0.dtd\">\n"
        "<plist version=\"1.0\">\n<dict>\n"
        "\t<key>Label</key>\n\t<string>{}</string>\n"
        "\t<key>ProgramArguments</key>\n\t<array>\n\t\t<string>{}</string>\n\t</array>\n"
        "\t<key>RunAtLoad</key>\n\t<true/>\n"
        "</dict>\n</plist>\n",
        label, program);
    return writeFile(std::string(folder) + "/" + std::string(label) + ".plist", text);
}

std::string SandboxMac::addFakeTool(std::string_view systemPath, std::string_view body) {
    const std::string script = fmt::format(
        "#!/bin/sh\n"
        "# A stand-in for the Mac's own tool: logs its arguments, then answers as recorded.\n"
        "printf '%s' '{}' >> '{}/private/var/log/tools.log'\n"
        "for a in \"$@\"; do printf ' %s' \"$a\" >> '{}/private/var/log/tools.log'; done\n"
        "printf '\\n' >> '{}/private/var/log/tools.log'\n"
        "{}\n",
        systemPath, root_, root_, root_, body);
    const std::string p = writeFile(systemPath, script);
    ::chmod(p.c_str(), 0755);
    return p;
}

std::string SandboxMac::addApp(std::string_view systemPath, const SandboxApp& app) {
    quorv::Value::Dict info;
    const auto put = [&info](const char* key, const std::string& value) {
        if (!value.empty()) info.emplace_back(key, value);
    };
    put("CFBundleIdentifier", app.bundleID);
    put("CFBundleName", app.name);
    put("CFBundlePackageType", "APPL");
    put("CFBundleShortVersionString", app.version);
    put("CFBundleVersion", app.build);
    put("SUFeedURL", app.feed);
    put("SUPublicEDKey", app.edKey);
    const quorv::Value plist(std::move(info));
    const std::string folder(systemPath);
    writeFile(folder + "/Contents/Info.plist", app.binary ? quorv::plist::toBinary(plist) : quorv::plist::toXml(plist));
    const std::string executable = writeFile(folder + "/Contents/MacOS/" + (app.name.empty() ? "app" : app.name), "#!/bin/sh\n");
    ::chmod(executable.c_str(), 0755);
    if (app.fromAppStore) writeFile(folder + "/Contents/_MASReceipt/receipt", "receipt");
    return path(systemPath);
}

std::map<std::string, std::string> SandboxMac::environment() const {
    return {{"BRIMSTELL_ROOT", root_}, {"BRIMSTELL_PLATFORM", "mac"}, {"HOME", home()}};
}

void SandboxMac::addSampleContent() {
    // Programs that start with the Mac.
    addLaunchItem("~/Library/LaunchAgents", "com.example.editor.updater", "/Applications/Example.app/Contents/MacOS/updater");
    addLaunchItem("/Library/LaunchAgents", "com.example.menuhelper", "/Library/Application Support/Example/helper");
    addLaunchItem("/Library/LaunchDaemons", "com.example.backupd", "/Library/PrivilegedHelperTools/com.example.backupd");

    // Caches, logs and downloads of the kind a clean-up finds.
    writeFileOfSize("~/Library/Caches/com.example.editor/Cache.db", 3'000'000);
    writeFileOfSize("~/Library/Caches/com.example.editor/fsCachedData/1A2B", 1'200'000);
    writeFileOfSize("~/Library/Logs/Example/example.log", 400'000);
    writeFileOfSize("~/Downloads/Example-Installer.dmg", 8'000'000);
    writeFile("~/Documents/Notes.txt", "Remember the milk.\n");
    writeFileOfSize("~/Library/Caches/com.apple.Safari/Cache.db", 1'500'000);
    writeFileOfSize("~/Library/Caches/com.spotify.client/Data/blob", 5'000'000);
    writeFileOfSize("~/Library/Application Support/Google/Chrome/Default/Code Cache/js/index", 2'000'000);
    writeFile("~/Library/Application Support/Google/Chrome/Default/Login Data", "kept: a browser's logins are not junk\n");
    writeFileOfSize("~/Library/Developer/Xcode/DerivedData/Example-abc/Build/Products/Example", 6'000'000);
    writeFileOfSize("~/Library/Developer/Xcode/Archives/2026-01-10/Example.xcarchive/Info", 500'000);

    // A project nobody has touched for half a year, with its node_modules.
    const double halfYearAgo = quorv::host().now() - 180 * 86'400.0;
    for (const char* file : {"~/Projects/old-site/package.json", "~/Projects/old-site/index.js"}) {
        setTimes(writeFile(file, "{}\n"), halfYearAgo);
    }
    setTimes(writeFileOfSize("~/Projects/old-site/node_modules/left-pad/index.js", 700'000), halfYearAgo);
    for (const char* folder : {"~/Projects/old-site/node_modules/left-pad", "~/Projects/old-site/node_modules",
                               "~/Projects/old-site"}) {
        setTimes(path(folder), halfYearAgo);
    }

    // A laptop's battery, somewhat worn, and an NVMe start-up disk.
    addBattery();
    addDisk();
    addSampleApps();
    addSystemVersion("14.2.1");
}

void SandboxMac::addSystemVersion(std::string_view version) {
    quorv::Value::Dict info;
    info.emplace_back("ProductName", std::string("macOS"));
    info.emplace_back("ProductVersion", std::string(version));
    writeFile("/System/Library/CoreServices/SystemVersion.plist", quorv::plist::toXml(quorv::Value(std::move(info))));
}

void SandboxMac::addSampleApps() {
    // Apps with their own update feeds, from the App Store, one in a sub-folder, one in the home's
    // Applications, Apple's own, and one too deep to be found.
    addApp("/Applications/Example.app", {.bundleID = "com.example.editor", .name = "Example", .version = "2.4.1",
                                         .build = "241", .feed = "https://updates.example.com/editor/appcast.xml",
                                         .edKey = "Ddy5wePDO7kDtpd0s2Y8nGBgVR3HLs1p96Xvhg24/Vc="});
    addApp("/Applications/Notebook.app", {.bundleID = "com.example.notebook", .name = "Notebook", .version = "5.1",
                                          .build = "5104", .fromAppStore = true, .binary = true});
    addApp("/Applications/Spotify.app", {.bundleID = "com.spotify.client", .name = "Spotify", .version = "1.2.31.1205",
                                         .build = "120500", .feed = "  https://download.example.com/spotify/appcast.xml "});
    addApp("/Applications/Utilities/Disk Inspector.app", {.bundleID = "com.example.diskinspector", .name = "Disk Inspector",
                                                          .version = "1.0b3", .build = "103", .fromAppStore = true});
    addApp("~/Applications/Sketchpad.app", {.bundleID = "com.example.sketchpad", .name = "Sketchpad", .version = "0.9",
                                            .build = "9", .feed = "http://sketchpad.example.com/appcast.xml"});
    addApp("/Applications/Safari.app", {.bundleID = "com.apple.Safari", .name = "Safari", .version = "17.1", .build = "19616.2.9"});
    addApp("/Applications/Games/Old/Chess Classic.app", {.bundleID = "com.example.chess", .name = "Chess Classic", .version = "1.0"});

    // What Photo Studio left behind when it was removed.
    writeFileOfSize("~/Library/Application Support/com.example.photostudio/Library.db", 9'000'000);
    writeFileOfSize("~/Library/Containers/com.example.photostudio/Data/Library/Previews/1.jpg", 2'500'000);
    writeFile("~/Library/Preferences/com.example.photostudio.plist", "<plist><dict/></plist>\n");
    writeFile("~/Library/Saved Application State/com.example.photostudio.savedState/windows.plist", "<plist/>\n");
    // Kept: the preferences of installed apps, and Apple's own.
    writeFile("~/Library/Preferences/com.example.editor.plist", "<plist><dict/></plist>\n");
    writeFile("~/Library/Preferences/com.apple.finder.plist", "<plist><dict/></plist>\n");
}

}  // namespace brimstell
