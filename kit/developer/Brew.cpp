#include "kit/developer/Brew.hpp"

#include <nlohmann/json.hpp>

#include "kit/developer/ToolText.hpp"
#include "support/host/Host.hpp"
#include "support/text/Lines.hpp"

namespace brimstell {

namespace {

using json = nlohmann::json;

using ToolText::textOf;

bool flag(const json& object, const char* key) {
    const auto it = object.find(key);
    return it != object.end() && it->is_boolean() && it->get<bool>();
}

std::optional<BrewPackage> formula(const json& f) {
    BrewPackage p;
    p.name = textOf(f, "name");
    if (!Brew::validName(p.name)) return std::nullopt;
    p.description = textOf(f, "desc");
    p.outdated = flag(f, "outdated");
    p.pinned = flag(f, "pinned");
    p.onRequest = false;
    const auto installed = f.find("installed");
    if (installed == f.end() || !installed->is_array() || installed->empty()) return std::nullopt;
    for (const auto& i : *installed) {
        if (!i.is_object()) continue;
        if (const auto v = textOf(i, "version"); !v.empty()) p.versions.push_back(v);
        p.onRequest = p.onRequest || flag(i, "installed_on_request");
    }
    if (const auto versions = f.find("versions"); p.outdated && versions != f.end() && versions->is_object()) {
        p.available = textOf(*versions, "stable");
    }
    return p;
}

std::optional<BrewPackage> cask(const json& c) {
    BrewPackage p;
    p.kind = BrewPackage::Kind::cask;
    p.name = textOf(c, "token");
    if (!Brew::validName(p.name)) return std::nullopt;
    p.description = textOf(c, "desc");
    p.outdated = flag(c, "outdated");
    // Newer Homebrew writes the installed version as a text, older as a list of texts.
    const auto installed = c.find("installed");
    if (installed != c.end() && installed->is_string()) p.versions.push_back(installed->get<std::string>());
    if (installed != c.end() && installed->is_array()) {
        for (const auto& v : *installed) {
            if (v.is_string()) p.versions.push_back(v.get<std::string>());
        }
    }
    if (p.versions.empty()) return std::nullopt;
    if (p.outdated) p.available = textOf(c, "version");
    return p;
}

}  // namespace

std::optional<std::string> Brew::location() {
    std::vector<std::string> places{"/opt/homebrew/bin/brew", "/usr/local/bin/brew"};
    if (!quorv::host().isMac()) places.emplace_back("/home/linuxbrew/.linuxbrew/bin/brew");
    return DeveloperTools::firstPresent(places);
}

ToolRun Brew::run(const std::vector<std::string>& arguments, double timeout) {
    const auto program = location();
    if (!program) return {};
    // Any non-empty value switches these on; "1" is what Homebrew's own documentation shows.
    return DeveloperTools::run(*program, arguments,
                               {{"HOMEBREW_NO_AUTO_UPDATE", "1"}, {"HOMEBREW_NO_ENV_HINTS", "1"}, {"HOMEBREW_NO_INSTALL_CLEANUP", "1"}},
                               timeout);
}

bool Brew::validName(std::string_view name) {
    if (name.empty() || name.front() == '-') return false;
    for (const char c : name) {
        const bool letter = (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z') || (c >= '0' && c <= '9');
        if (!letter && std::string_view("@._+/-").find(c) == std::string_view::npos) return false;
    }
    return true;
}

std::vector<BrewPackage> Brew::parseInfo(std::string_view answer) {
    std::vector<BrewPackage> packages;
    const json j = ToolText::parseJson(answer);
    if (!j.is_object()) return packages;
    const auto add = [&](const char* key, auto read) {
        const auto list = j.find(key);
        if (list == j.end() || !list->is_array()) return;
        for (const auto& entry : *list) {
            if (!entry.is_object()) continue;
            if (auto p = read(entry)) packages.push_back(std::move(*p));
        }
    };
    add("formulae", formula);
    add("casks", cask);
    return packages;
}

std::vector<BrewCleanupItem> Brew::parseCleanup(std::string_view answer) {
    std::vector<BrewCleanupItem> items;
    constexpr std::string_view lead = "Would remove:";
    for (const auto line : quorv::lines(answer)) {
        if (!line.starts_with(lead)) continue;
        const auto rest = ToolText::trim(line.substr(lead.size()));
        const auto open = rest.rfind(" (");
        if (open == std::string_view::npos || !rest.ends_with(')')) continue;
        const auto inside = rest.substr(open + 2, rest.size() - open - 3);
        const auto comma = inside.rfind(',');
        const auto size = parseSize(ToolText::trim(comma == std::string_view::npos ? inside : inside.substr(comma + 1)));
        if (!size || open == 0) continue;
        items.push_back({std::string(rest.substr(0, open)), *size});
    }
    return items;
}

std::vector<std::string> Brew::parseAutoremove(std::string_view answer) {
    std::vector<std::string> names;
    bool listing = false;
    for (const auto line : quorv::lines(answer)) {
        if (line.starts_with("==>")) {
            listing = line.find("Would autoremove") != std::string_view::npos;
            continue;
        }
        const auto name = ToolText::trim(line);
        if (name.empty()) {
            listing = false;
        } else if (listing) {
            names.emplace_back(name);
        }
    }
    return names;
}

std::optional<std::int64_t> Brew::parseSize(std::string_view sizeText) {
    return ToolText::parseSize(sizeText, 1024);
}

std::optional<std::vector<std::string>> Brew::upgradeArguments(const BrewPackage& package) {
    if (!validName(package.name)) return std::nullopt;
    if (package.kind == BrewPackage::Kind::cask) return std::vector<std::string>{"upgrade", "--cask", package.name};
    return std::vector<std::string>{"upgrade", package.name};
}

std::optional<std::vector<std::string>> Brew::uninstallArguments(const BrewPackage& package) {
    if (!validName(package.name)) return std::nullopt;
    return std::vector<std::string>{"uninstall", package.name};
}

}  // namespace brimstell
