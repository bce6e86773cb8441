// The login items of the background-task-management dump.

#include <algorithm>
#include <map>

#include "kit/insight/BackgroundItems.hpp"
#include "shared/trash/TrashInfo.hpp"
#include "support/host/Host.hpp"
#include "support/text/Unicode.hpp"

namespace brimstell {

namespace {

// A "file://" URL as a location; another value (the dump prints some relative to the owning
// app) is taken from the parent's location when there is one.
std::string locationOf(const std::string& url, const std::optional<std::string>& parent) {
    static constexpr std::string_view scheme = "file://";
    if (url.starts_with(scheme)) {
        std::string path = TrashInfo::percentDecode(std::string_view(url).substr(scheme.size())).value_or("");
        while (path.size() > 1 && path.back() == '/') path.pop_back();
        return quorv::host().path(path);
    }
    // A relative value is a URL too: "Example%20Menu.app" names "Example Menu.app".
    const std::string relative = TrashInfo::percentDecode(url).value_or(url);
    if (parent && !url.starts_with("/")) return *parent + "/" + relative;
    return url.starts_with("/") ? quorv::host().path(url) : url;
}

// "Executable Path", else the first of "ProgramArguments" (printed as a bracketed list).
std::optional<std::string> programOf(const BTMRecord& r) {
    if (auto path = r.field("Executable Path")) return path;
    auto args = r.field("ProgramArguments");
    if (!args) return std::nullopt;
    const auto start = args->find_first_not_of("([ \"");
    if (start == std::string::npos) return std::nullopt;
    std::string first = args->substr(start);
    first = first.substr(0, first.find_first_of(",)]\""));
    if (first.empty()) return std::nullopt;
    return first;
}

bool byName(const LoginItem& a, const LoginItem& b) {
    const auto la = quorv::lowerCased(a.name), lb = quorv::lowerCased(b.name);
    return la != lb ? la < lb : a.name < b.name;
}

std::optional<LoginItem> loginItemOf(const BTMRecord& r, const std::map<std::string, const BTMRecord*>& byID) {
    const auto type = r.type();
    const bool app = type == "app";
    if (!app && type != "login item" && type != "agent" && type != "daemon") return std::nullopt;
    // An app is listed only while it is switched on; a helper is listed either way and shows
    // whether it is on.
    const auto disposition = r.disposition();
    const bool on = disposition.count("enabled") && !disposition.count("disallowed");
    if (app && !disposition.count("enabled")) return std::nullopt;
    LoginItem item;
    item.id = r.field("Identifier").value_or("");
    item.name = r.field("Name").value_or(item.id);
    item.kind = app ? LoginItem::Kind::app : LoginItem::Kind::inside;
    item.bundleID = r.field("Bundle Identifier");
    item.enabled = on;
    // A helper whose owning app the dump doesn't name is still listed (it starts all the same),
    // with no app name beside it.
    if (const auto parentID = r.field("Parent Identifier"); !app && parentID) {
        if (const auto it = byID.find(*parentID); it != byID.end()) {
            item.appName = it->second->field("Name");
            if (const auto url = it->second->field("URL")) item.appURL = locationOf(*url, std::nullopt);
        }
    }
    item.url = locationOf(r.field("URL").value_or(""), item.appURL);
    if (const auto program = programOf(r); program && program->starts_with("/"))
        item.signature = Signature::of(quorv::host().path(*program));
    return item;
}

}  // namespace

std::vector<LoginItem> BackgroundItems::loginItems(const std::vector<BTMRecord>& records) {
    const std::string uid = std::to_string(quorv::host().uid);
    std::map<std::string, const BTMRecord*> byID;
    for (const auto& r : records)
        if (const auto id = r.field("Identifier"); id && r.uid == uid) byID.emplace(*id, &r);
    std::vector<LoginItem> out;
    for (const auto& r : records) {
        if (r.uid != uid) continue;
        if (auto item = loginItemOf(r, byID)) out.push_back(std::move(*item));
    }
    std::stable_sort(out.begin(), out.end(), byName);
    return out;
}

}  // namespace brimstell
