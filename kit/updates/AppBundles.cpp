#include "kit/updates/AppBundles.hpp"

#include <algorithm>
#include <array>

#include "kit/cleaning/FolderListing.hpp"
#include "support/host/Host.hpp"
#include "support/plist/Plist.hpp"
#include "support/text/Unicode.hpp"

namespace brimstell {

namespace {

std::string_view extensionOf(std::string_view name) {
    const auto dot = name.rfind('.');
    if (dot == std::string_view::npos || dot == 0) return {};
    return name.substr(dot + 1);
}

void collect(int folderFd, const std::string& at, int depth, bool enterPackages, std::vector<std::string>& out) {
    for (const auto& entry : FolderListing::list(folderFd)) {
        const std::string location = at + "/" + entry.name;
        if (AppBundles::isAppName(entry.name)) {
            out.push_back(location);
            continue;
        }
        // Links are not followed into: FolderListing lists an entry without following it.
        if (depth == 0 || !entry.isFolder()) continue;
        if (!enterPackages && AppBundles::isPackageName(entry.name)) continue;
        const auto sub = FolderListing::openBelow(folderFd, entry.name);
        if (sub) collect(sub.get(), location, depth - 1, enterPackages, out);
    }
}

std::optional<std::string> text(const quorv::Value& dict, std::string_view key) {
    const quorv::Value* v = quorv::plist::find(dict, key);
    const std::string* s = v ? v->get<std::string>() : nullptr;
    if (!s) return std::nullopt;
    return *s;
}

bool hasReceipt(int contentsFd) {
    const auto folder = FolderListing::openBelow(contentsFd, "_MASReceipt");
    return folder && FolderListing::statAt(folder.get(), "receipt").has_value();
}

std::string folderName(const std::string& url) {
    std::string name = url.substr(url.find_last_of('/') + 1);
    if (name.size() > 4 && name.ends_with(".app")) name.erase(name.size() - 4);
    return name;
}

}  // namespace

bool AppBundles::isAppName(std::string_view name) { return extensionOf(name) == "app"; }

bool AppBundles::isPackageName(std::string_view name) {
    // The bundle kinds a Mac shows as one file. Finder's package bit can't be read off a Mac, so
    // the extension decides.
    static constexpr std::array<std::string_view, 20> kinds = {
        "app",   "appex",   "bundle",      "component", "framework", "kext",    "mdimporter",
        "mpkg",  "pkg",     "photoslibrary", "plugin",  "prefPane",  "qlgenerator", "rtfd",
        "saver", "wdgt",    "xcarchive",   "xcodeproj", "xcworkspace", "xpc",
    };
    const auto ext = extensionOf(name);
    return !ext.empty() && std::find(kinds.begin(), kinds.end(), ext) != kinds.end();
}

std::vector<std::string> AppBundles::places() {
    const auto& h = quorv::host();
    return {h.path("/Applications"), h.inHome("Applications")};
}

std::vector<std::string> AppBundles::locations(const std::vector<std::string>& placeList, bool enterPackages) {
    std::vector<std::string> out;
    for (const auto& place : placeList) {
        const auto fd = FolderListing::open(place);
        if (fd) collect(fd.get(), place, 1, enterPackages, out);
    }
    return out;
}

std::optional<std::string> AppBundles::httpsFeed(std::string_view t) {
    constexpr std::string_view blank = " \t\n\r\v\f";
    const auto first = t.find_first_not_of(blank);
    if (first == std::string_view::npos) return std::nullopt;
    t = t.substr(first, t.find_last_not_of(blank) - first + 1);
    // The scheme exactly "https" (plain http is refused on purpose), a host, and nothing an
    // address can't hold as it stands: no blanks, controls, non-ASCII bytes or "<>\"\\^`{|}".
    constexpr std::string_view scheme = "https://";
    if (!t.starts_with(scheme)) return std::nullopt;
    const auto hostEnd = t.find_first_of("/?#", scheme.size());
    if ((hostEnd == std::string_view::npos ? t.size() : hostEnd) == scheme.size()) return std::nullopt;
    for (const char c : t) {
        const auto b = static_cast<unsigned char>(c);
        if (b <= 0x20 || b >= 0x7F || std::string_view("<>\"\\^`{|}").find(c) != std::string_view::npos) {
            return std::nullopt;
        }
    }
    return std::string(t);
}

std::optional<AppBundle> AppBundles::read(const std::string& url, bool includeApple) {
    const auto app = FolderListing::open(url);
    const auto contents = app ? FolderListing::openBelow(app.get(), "Contents") : quorv::UniqueFd();
    if (!contents) return std::nullopt;
    const auto bytes = FolderListing::readAt(contents.get(), "Info.plist", maxInfoPlistBytes);
    const auto info = bytes ? quorv::plist::parse(*bytes) : std::nullopt;
    if (!info) return std::nullopt;
    const auto id = text(*info, "CFBundleIdentifier");
    if (!id) return std::nullopt;
    if (!includeApple && id->starts_with("com.apple.")) return std::nullopt;

    AppBundle b;
    b.url = url;
    b.bundleID = *id;
    b.name = text(*info, "CFBundleDisplayName").value_or(text(*info, "CFBundleName").value_or(folderName(url)));
    if (const auto feed = text(*info, "SUFeedURL")) b.feed = httpsFeed(*feed);
    b.version = text(*info, "CFBundleShortVersionString").value_or("");
    b.build = text(*info, "CFBundleVersion").value_or("");
    b.edKey = text(*info, "SUPublicEDKey");
    b.fromAppStore = hasReceipt(contents.get());
    return b;
}

std::vector<AppBundle> AppBundles::all(bool includeApple) {
    std::vector<AppBundle> apps;
    for (const auto& location : locations(places(), false)) {
        if (auto app = read(location, includeApple)) apps.push_back(std::move(*app));
    }
    // By name without regard to case: lower-cased text in code-point order stands in for the
    // locale's collation, which the engines don't depend on. Equal names keep a fixed order.
    std::stable_sort(apps.begin(), apps.end(), [](const AppBundle& a, const AppBundle& b) {
        const auto x = quorv::lowerCased(a.name);
        const auto y = quorv::lowerCased(b.name);
        return x != y ? x < y : a.url < b.url;
    });
    return apps;
}

}  // namespace brimstell
