#pragma once
// Docker: where it is, what `docker system df` says it keeps, and how each kind is pruned.

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "kit/developer/DeveloperTools.hpp"

namespace brimstell {

enum class DockerKind { containers, images, buildCache, volumes };

// One row of `docker system df`.
struct DockerUsage {
    std::string type;          // "Images", "Containers", "Local Volumes", "Build Cache"
    std::int64_t totalCount = 0;
    std::int64_t active = 0;
    std::string size;          // as docker wrote it: "9.57GB"
    std::string reclaimable;   // the text before the first blank: "8.674GB"
    std::int64_t sizeBytes = 0;
    std::int64_t reclaimableBytes = 0;
};

struct Docker {
    // The first executable of /usr/local/bin/docker, /opt/homebrew/bin/docker, Docker.app's own,
    // ~/.docker/bin/docker and ~/.orbstack/bin/docker (and on Linux /usr/bin/docker).
    static std::optional<std::string> location();
    static ToolRun run(const std::vector<std::string>& arguments, double timeout = defaultTimeout);

    // The rows of `docker system df --format {{json .}}`, one JSON object a line, in the order
    // given; lines that aren't such a row are passed over.
    static std::vector<DockerUsage> parseUsage(std::string_view text);

    // "Containers", "Images", "Build Cache", "Local Volumes": the row each kind is shown with.
    static const char* typeName(DockerKind kind);
    // The kind a word names ("containers", "images", "build-cache", "volumes"), for the command line.
    static std::optional<DockerKind> kindNamed(std::string_view word);
    static std::vector<std::string> pruneArguments(DockerKind kind);
    // What a prune removes, shown before it is asked for.
    static const char* pruneText(DockerKind kind);

    static constexpr double defaultTimeout = 60;
    static constexpr double pruneTimeout = 900;
    static constexpr const char* notInstalled = "Docker isn't installed";
    static constexpr const char* notRunning = "Docker isn't running. Start it to see what it keeps.";
};

}  // namespace brimstell
