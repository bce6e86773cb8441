#include "kit/insight/Provenance.hpp"

#include <algorithm>

#include "support/text/Lines.hpp"

namespace brimstell {

using quorv::eachLine;

namespace {

// The folders that a merged /usr has twice: "/bin" is "/usr/bin".
constexpr std::string_view merged[] = {"/bin/", "/sbin/", "/lib/", "/lib32/", "/lib64/", "/libx32/"};

std::optional<std::string> otherName(const std::string& path) {
    for (const auto folder : merged) {
        if (path.starts_with(folder)) return "/usr" + path;
        if (path.starts_with("/usr") && std::string_view(path).substr(4).starts_with(folder)) return path.substr(4);
    }
    return std::nullopt;
}

}  // namespace

std::string Provenance::summary() const {
    if (!package) return "Not from any package";
    const bool several = package->find(", ") != std::string::npos;
    return (several ? "From the packages " : "From the package ") + *package;
}

// Lines are "coreutils: /bin/ls", "libc6:amd64, libc6-dev:amd64: /usr/lib/…" and, for a diverted
// file, "diversion by dash from: /bin/sh" / "local diversion to: …" before the owner's own line.
// Package names hold neither spaces nor slashes, so the first ": /" ends the packages.
std::map<std::string, std::string> Provenance::fromDpkg(std::string_view output) {
    std::map<std::string, std::string> owners;
    eachLine(output, [&](std::string_view line) {
        if (line.starts_with("diversion by ") || line.starts_with("local diversion ")) return;
        const auto colon = line.find(": /");
        if (colon == std::string_view::npos || colon == 0) return;
        const auto packages = line.substr(0, colon);
        if (packages.find_first_of(" /") != std::string_view::npos && packages.find(", ") == std::string_view::npos) return;
        owners.emplace(std::string(line.substr(colon + 2)), std::string(packages));
    });
    return owners;
}

std::optional<std::string> Provenance::fromRpm(std::string_view output) {
    std::string packages;
    bool unowned = false;
    eachLine(output, [&](std::string_view line) {
        if (line.empty() || line.starts_with("error:") || line.starts_with("warning:")) return;
        if (line.ends_with(" is not owned by any package")) {
            unowned = true;
            return;
        }
        if (line.find_first_of(" /:") != std::string_view::npos) return;
        if (!packages.empty()) packages += ", ";
        packages += line;
    });
    if (unowned || packages.empty()) return std::nullopt;
    return packages;
}

std::vector<std::string> Provenance::aliases(const std::string& path, const std::string& resolved) {
    std::vector<std::string> out;
    auto add = [&out](const std::optional<std::string>& p) {
        if (p && !p->empty() && std::find(out.begin(), out.end(), *p) == out.end()) out.push_back(*p);
    };
    add(path);
    add(resolved);
    add(otherName(path));
    add(otherName(resolved));
    return out;
}

}  // namespace brimstell
