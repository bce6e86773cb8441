// Asks the package database who owns programs: one dpkg-query for all of them, or rpm one program
// at a time (rpm's answer to several files can't be told apart when one has two owners).

#include <sys/stat.h>
#include <unistd.h>

#include <climits>
#include <cstdlib>
#include <set>

#include "kit/insight/Provenance.hpp"
#include "support/host/Host.hpp"
#include "support/process/Shell.hpp"

namespace brimstell {

namespace {

// Ten seconds covers a cold package database; a lookup that takes longer tells nothing.
constexpr double lookupLimit = 10;

quorv::ShellOptions lookupOptions() {
    quorv::ShellOptions options;
    options.timeLimit = lookupLimit;
    return options;
}

bool executableAt(const std::string& location) { return ::access(location.c_str(), X_OK) == 0; }

// The program with its links resolved, as a system path; the program itself when that leads
// outside the root.
std::string resolvedPath(const std::string& program) {
    const auto& h = quorv::host();
    char buffer[PATH_MAX];
    if (!::realpath(h.path(program).c_str(), buffer)) return program;
    return h.systemPath(buffer).value_or(program);
}

// dpkg-query reads its arguments as patterns: a path with a pattern's characters (or a line
// feed, which would split the answer) is not asked about.
bool askable(const std::string& path) { return path.find_first_of("*?[]\\\n") == std::string::npos; }

std::map<std::string, Provenance> fromDpkgQuery(const std::string& tool, const std::map<std::string, std::vector<std::string>>& names) {
    std::vector<std::string> args = {"--search"};
    std::set<std::string> asked;
    for (const auto& [program, candidates] : names)
        for (const auto& c : candidates)
            if (askable(c) && asked.insert(c).second) args.push_back(c);
    std::map<std::string, Provenance> out;
    if (args.size() == 1) return out;
    const auto r = quorv::Shell::run(tool, args, lookupOptions());
    // 0: every path found; 1: some weren't. Anything else (or no answer at all) tells nothing.
    if (!r.started || r.timedOut || (r.status != 0 && r.status != 1)) return out;
    const auto owners = Provenance::fromDpkg(r.output);
    for (const auto& [program, candidates] : names) {
        Provenance p;
        for (const auto& c : candidates) {
            if (const auto it = owners.find(c); it != owners.end()) {
                p.package = it->second;
                break;
            }
        }
        out.emplace(program, p);
    }
    return out;
}

std::map<std::string, Provenance> fromRpmQuery(const std::string& tool, const std::map<std::string, std::vector<std::string>>& names) {
    std::map<std::string, Provenance> out;
    for (const auto& [program, candidates] : names) {
        const auto r = quorv::Shell::run(tool, {"-qf", "--queryformat", "%{NAME}\\n", candidates.front()},
                                         lookupOptions());
        if (!r.started || r.timedOut) continue;
        out.emplace(program, Provenance{Provenance::fromRpm(r.output)});
    }
    return out;
}

}  // namespace

// Autostart entries name most programs bare; the session finds them on its search path, whose
// usual folders are these (the user's own PATH isn't ours to read here).
std::optional<std::string> Provenance::located(const std::string& program) {
    if (program.empty()) return std::nullopt;
    if (program.find('/') != std::string::npos) return program;
    for (const char* folder : {"/usr/local/sbin", "/usr/local/bin", "/usr/sbin", "/usr/bin", "/sbin", "/bin"}) {
        const auto path = std::string(folder) + "/" + program;
        if (executableAt(quorv::host().path(path))) return path;
    }
    return std::nullopt;
}

std::map<std::string, Provenance> Provenance::of(const std::vector<std::string>& programs) {
    const auto& h = quorv::host();
    std::map<std::string, std::vector<std::string>> names;
    for (const auto& program : programs) {
        struct stat st {};
        if (!program.starts_with("/") || ::stat(h.path(program).c_str(), &st) != 0) continue;
        names.emplace(program, aliases(program, resolvedPath(program)));
    }
    if (names.empty()) return {};
    if (const auto dpkg = h.path("/usr/bin/dpkg-query"); executableAt(dpkg)) return fromDpkgQuery(dpkg, names);
    if (const auto rpm = h.path("/usr/bin/rpm"); executableAt(rpm)) return fromRpmQuery(rpm, names);
    return {};
}

}  // namespace brimstell
