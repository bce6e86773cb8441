#include "shared/helper/HelperLinuxService.hpp"

#include "support/process/Shell.hpp"

namespace brimstell::HelperLinuxService {

namespace {
bool plainUnit(std::string_view name) {
    if (name.size() <= 8 || !name.ends_with(".service") || name.front() == '-' || name.front() == '.') return false;
    for (const char c : name) {
        const bool ok = (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') ||
                        std::string_view("_.@:-").find(c) != std::string_view::npos;
        if (!ok) return false;
    }
    return true;
}
}  // namespace

std::optional<std::vector<std::string>> arguments(std::string_view request) {
    const auto space = request.find(' ');
    if (space == std::string_view::npos) return std::nullopt;
    const auto verb = request.substr(0, space), unit = request.substr(space + 1);
    if ((verb != "enable" && verb != "disable") || !plainUnit(unit)) return std::nullopt;
    return std::vector<std::string>{std::string(verb), "--now", "--", std::string(unit)};
}

std::string reply(const std::string& root, std::string_view request) {
    const auto args = arguments(request);
    if (!args) return {};
    const std::string program = (root.empty() || root == "/" ? std::string() : root) + "/usr/bin/systemctl";
    return quorv::Shell::run(program, *args).succeeded() ? "OK\n" : "";
}

}  // namespace brimstell::HelperLinuxService
