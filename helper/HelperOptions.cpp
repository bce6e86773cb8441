#include "helper/HelperOptions.hpp"

#include <sys/stat.h>

#include <cerrno>
#include <climits>
#include <cstdlib>
#include <string_view>

#include <fmt/format.h>

#include "shared/helper/HelperInfo.hpp"

namespace brimstell::helperd {
namespace {

constexpr const char* usage =
    "Usage: brimstell-helper [--socket PATH] [--root DIR] [--rules mac|linux] [--trust-uid UID]...\n"
    "                        [--trust-exe-dir DIR]... [--log-stderr]\n"
    "\n"
    "Brimstell's root helper: moves into the Trash, empties and restores what the user's own\n"
    "account can't, and runs the few maintenance tools that need root, for installed Brimstell\n"
    "programs run by an administrator (a member of sudo, wheel or admin). systemd starts it\n"
    "through brimstell-helper.socket; `brimstell helper install` sets that up.\n"
    "\n"
    "  --socket PATH         listen on PATH (default /run/brimstell/helper.sock; ignored when\n"
    "                        systemd hands over the socket)\n"
    "  --root DIR            resolve the paths of requests under DIR instead of / (a sandbox Mac)\n"
    "  --rules mac|linux     whose protected paths, Trash and moved log to use (default: linux on\n"
    "                        /, mac under --root; mac needs --root)\n"
    "  --trust-uid UID       for tests: serve this user as if an administrator\n"
    "  --trust-exe-dir DIR   for tests: serve any program lying directly in DIR\n"
    "  --log-stderr          copy the log to standard error\n";

bool absoluteFolder(const std::string& path) {
    struct stat st {};
    return !path.empty() && path[0] == '/' && ::stat(path.c_str(), &st) == 0 && S_ISDIR(st.st_mode);
}

}  // namespace

namespace {

// Takes the value of one option that has one; the sentence of what is wrong with it, or "".
std::string takeValue(std::string_view option, const std::string& value, HelperOptions& options,
                      std::optional<HelperRules>& rules) {
    if (option == "--socket") {
        if (value.empty() || value[0] != '/') return "--socket needs an absolute path";
        options.socketPath = value;
        options.socketGiven = true;
    } else if (option == "--root") {
        if (!absoluteFolder(value)) return "--root needs the absolute path of a folder";
        options.root = value;
    } else if (option == "--rules") {
        if (value != "mac" && value != "linux") return "--rules needs mac or linux";
        rules = value == "mac" ? HelperRules::mac : HelperRules::linux;
    } else if (option == "--trust-uid") {
        char* end = nullptr;
        errno = 0;
        const unsigned long uid = std::strtoul(value.c_str(), &end, 10);
        if (value.empty() || value[0] < '0' || value[0] > '9' || errno != 0 || *end != '\0' || uid > UINT_MAX - 1) {
            return "--trust-uid needs a user id";
        }
        options.trustUids.insert(static_cast<uid_t>(uid));
    } else {
        char resolved[PATH_MAX];
        if (!absoluteFolder(value) || ::realpath(value.c_str(), resolved) == nullptr) {
            return "--trust-exe-dir needs the absolute path of a folder";
        }
        options.trustExeDirs.emplace_back(resolved);
    }
    return {};
}

bool takesValue(std::string_view option) {
    return option == "--socket" || option == "--root" || option == "--rules" || option == "--trust-uid" ||
           option == "--trust-exe-dir";
}

}  // namespace

std::optional<HelperOptions> parseOptions(int argc, char** argv, std::string& message, int& exitCode) {
    HelperOptions options;
    std::optional<HelperRules> rules;
    exitCode = 2;
    auto fail = [&](std::string text) -> std::optional<HelperOptions> {
        message = "brimstell-helper: " + text + "\n" + usage;
        return std::nullopt;
    };
    for (int i = 1; i < argc; ++i) {
        const std::string_view option = argv[i];
        if (option == "--help" || option == "-h" || option == "--version") {
            message = option == "--version" ? fmt::format("brimstell-helper, protocol version {}\n", HelperInfo::version)
                                            : std::string(usage);
            exitCode = 0;
            return std::nullopt;
        }
        if (option == "--log-stderr") {
            options.logToStderr = true;
            continue;
        }
        if (!takesValue(option)) return fail(fmt::format("unknown option {}", option));
        if (i + 1 >= argc) return fail(fmt::format("{} needs a value", option));
        if (auto why = takeValue(option, argv[++i], options, rules); !why.empty()) return fail(why);
    }
    options.rules = rules.value_or(options.root == "/" ? HelperRules::linux : HelperRules::mac);
    if (options.rules == HelperRules::mac && options.root == "/") return fail("--rules mac needs --root");
    return options;
}

}  // namespace brimstell::helperd
