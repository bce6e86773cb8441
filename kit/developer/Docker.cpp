#include "kit/developer/Docker.hpp"

#include <charconv>

#include "kit/developer/ToolText.hpp"
#include "support/host/Host.hpp"
#include "support/text/Lines.hpp"

namespace brimstell {

namespace {

std::optional<std::int64_t> count(const nlohmann::json& row, const char* key) {
    const auto it = row.find(key);
    if (it == row.end()) return std::nullopt;
    if (it->is_number_integer()) return it->get<std::int64_t>();
    if (!it->is_string()) return std::nullopt;
    const auto& s = it->get_ref<const std::string&>();
    std::int64_t n = 0;
    const auto [end, ec] = std::from_chars(s.data(), s.data() + s.size(), n);
    if (ec != std::errc() || end != s.data() + s.size() || n < 0) return std::nullopt;
    return n;
}

std::string textOf(const nlohmann::json& row, const char* key) {
    const auto it = row.find(key);
    return it != row.end() && it->is_string() ? it->get<std::string>() : std::string();
}

std::optional<DockerUsage> usageRow(const nlohmann::json& row) {
    if (!row.is_object()) return std::nullopt;
    DockerUsage u;
    u.type = textOf(row, "Type");
    const auto total = count(row, "TotalCount");
    const auto active = count(row, "Active");
    u.size = textOf(row, "Size");
    // "8.674GB (90%)": the share after the blank is left out.
    const std::string reclaimable = textOf(row, "Reclaimable");
    u.reclaimable = reclaimable.substr(0, reclaimable.find(' '));
    const auto size = ToolText::parseSize(u.size, 1000);
    const auto free = ToolText::parseSize(u.reclaimable, 1000);
    if (u.type.empty() || !total || !active || !size || !free) return std::nullopt;
    u.totalCount = *total;
    u.active = *active;
    u.sizeBytes = *size;
    u.reclaimableBytes = *free;
    return u;
}

}  // namespace

std::optional<std::string> Docker::location() {
    std::vector<std::string> places{"/usr/local/bin/docker", "/opt/homebrew/bin/docker",
                                    "/Applications/Docker.app/Contents/Resources/bin/docker", "~/.docker/bin/docker",
                                    "~/.orbstack/bin/docker"};
    if (!quorv::host().isMac()) places.emplace_back("/usr/bin/docker");
    return DeveloperTools::firstPresent(places);
}

ToolRun Docker::run(const std::vector<std::string>& arguments, double timeout) {
    const auto program = location();
    if (!program) return {};
    return DeveloperTools::run(*program, arguments, {}, timeout);
}

std::vector<DockerUsage> Docker::parseUsage(std::string_view text) {
    std::vector<DockerUsage> rows;
    if (text.size() > ToolText::maxAnswerBytes) return rows;
    for (const auto line : quorv::lines(text)) {
        if (ToolText::trim(line).empty()) continue;
        if (auto row = usageRow(ToolText::parseJson(line))) rows.push_back(std::move(*row));
    }
    return rows;
}

const char* Docker::typeName(DockerKind kind) {
    switch (kind) {
        case DockerKind::containers: return "Containers";
        case DockerKind::images: return "Images";
        case DockerKind::buildCache: return "Build Cache";
        case DockerKind::volumes: return "Local Volumes";
    }
    return "";
}

std::optional<DockerKind> Docker::kindNamed(std::string_view word) {
    if (word == "containers") return DockerKind::containers;
    if (word == "images") return DockerKind::images;
    if (word == "build-cache") return DockerKind::buildCache;
    if (word == "volumes") return DockerKind::volumes;
    return std::nullopt;
}

std::vector<std::string> Docker::pruneArguments(DockerKind kind) {
    switch (kind) {
        case DockerKind::containers: return {"container", "prune", "-f"};
        case DockerKind::images: return {"image", "prune", "-a", "-f"};
        case DockerKind::buildCache: return {"builder", "prune", "-a", "-f"};
        case DockerKind::volumes: return {"volume", "prune", "-a", "-f"};
    }
    return {};
}

const char* Docker::pruneText(DockerKind kind) {
    switch (kind) {
        case DockerKind::containers: return "Removes stopped containers. Running ones stay.";
        case DockerKind::images: return "Removes images no container uses. They download again when needed.";
        case DockerKind::buildCache: return "Removes the build cache. The next builds take longer.";
        case DockerKind::volumes:
            return "Removes volumes no container uses. Data in them (databases and the like) is gone for good.";
    }
    return "";
}

}  // namespace brimstell
