#include "shared/helper/HelperDispatch.hpp"

#include "shared/helper/HelperInfo.hpp"
#include "shared/helper/HelperLinuxJunk.hpp"
#include "shared/helper/HelperLinuxService.hpp"
#include "shared/helper/HelperScript.hpp"
#include "support/process/Shell.hpp"

namespace brimstell {

HelperDispatch::HelperDispatch(HelperFiles files, std::string root) : files_(std::move(files)), root_(std::move(root)) {}

std::optional<HelperDispatch> HelperDispatch::open(const std::string& root, HelperRules rules, uid_t effectiveUser) {
    auto files = HelperFiles::open(root, rules, effectiveUser);
    if (!files) return std::nullopt;
    return HelperDispatch(std::move(*files), root);
}

std::string HelperDispatch::version() { return std::string(HelperInfo::version); }

std::string HelperDispatch::scriptPath() const {
    std::string path;
    if (!files_.rootPath().empty() && files_.rootPath() != "/") {
        for (const char* folder : {"/usr/bin", "/bin", "/usr/sbin", "/sbin"}) path += files_.rootPath() + folder + ":";
    }
    return path + std::string(systemPath);
}

std::vector<std::string> HelperDispatch::scriptArguments(const std::string& me, std::string_view op,
                                                         std::string_view arg, const std::vector<std::string>& list) const {
    std::string joined;
    for (std::size_t i = 0; i < list.size(); ++i) {
        if (i > 0) joined += '\n';
        joined += list[i];
    }
    return {"-i",
            "PATH=" + scriptPath(),
            "LC_ALL=C",
            std::string(bashProgram),
            "-c",
            std::string(HelperScript::dispatch),
            std::string(scriptName),
            me,
            std::string(op),
            std::string(arg),
            joined};
}

std::string HelperDispatch::run(std::string_view op, std::string_view arg, const std::vector<std::string>& list,
                                const std::string& me) const {
    if (!HelperScript::isOperation(op)) return {};
    if (HelperScript::isFileJob(op)) return files_.run(op, list, me).value_or(std::string());
    if (op == "junk" && files_.rules() == HelperRules::linux) return HelperLinuxJunk::reply(files_, me);
    if (op == "svc" && files_.rules() == HelperRules::linux) return HelperLinuxService::reply(root_, arg);

    auto holdsNul = [](std::string_view s) { return s.find('\0') != std::string_view::npos; };
    if (holdsNul(arg) || holdsNul(me)) return {};
    for (const auto& entry : list) {
        if (holdsNul(entry)) return {};
    }
    quorv::ShellOptions options;
    options.timeLimit = scriptTimeLimit;
    options.maxOutput = std::size_t{64} << 20;
    const auto result = quorv::Shell::run(std::string(envProgram), scriptArguments(me, op, arg, list), options);
    // A script that was stopped or failed still answers with what it printed: its operations
    // say "OK" only on success.
    return result.output;
}

}  // namespace brimstell
