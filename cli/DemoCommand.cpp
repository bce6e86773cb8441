// brimstell demo [DIR]

#include <filesystem>
#include <fstream>
#include <optional>

#include <fmt/format.h>

#include "cli/Commands.hpp"
#include "cli/Output.hpp"
#include "kit/sandbox/SandboxDeveloper.hpp"
#include "kit/sandbox/SandboxMac.hpp"
#include "kit/sandbox/SandboxCloud.hpp"
#include "kit/sandbox/SandboxSlowdown.hpp"
#include "kit/sandbox/SandboxStartup.hpp"

namespace cli {

namespace {

namespace fs = std::filesystem;

// Written first into every sandbox Mac the demo lays out: a folder holding it is the demo's own,
// and may be laid out again.
constexpr const char* marker = ".brimstell-sandbox-mac";

// The sandbox Mac in dir: a new or empty folder, or one the demo made before. Never spread over a
// folder that holds anything else, so no file of the user's is overwritten; nullopt with the
// sentence in problem when it can't be laid out.
std::optional<brimstell::SandboxMac> layOut(const std::string& dir, const std::string& user, std::string& problem) {
    std::error_code ec;
    const bool exists = fs::exists(fs::symlink_status(dir, ec));
    if (exists && !fs::is_directory(fs::symlink_status(dir, ec))) {
        problem = "\"" + dir + "\" is not a folder; name a new or empty folder";
        return std::nullopt;
    }
    if (exists && !fs::is_empty(dir, ec) && !fs::exists(fs::path(dir) / marker, ec)) {
        problem = "\"" + dir + "\" already holds files the demo didn't put there; name a new or empty folder";
        return std::nullopt;
    }
    fs::create_directories(dir, ec);
    std::ofstream note(fs::path(dir) / marker, std::ios::trunc);
    note << "A sandbox Mac laid out by `brimstell demo`: it may be laid out again here.\n";
    note.close();
    if (ec || !note) {
        problem = "can't write in \"" + dir + "\"" + (ec ? ": " + ec.message() : std::string());
        return std::nullopt;
    }
    auto mac = brimstell::SandboxMac::create(dir, user);
    mac.addSampleContent();
    brimstell::addStartupItems(mac);
    brimstell::addDeveloperTools(mac);
    brimstell::addCloudFolders(mac);
    brimstell::addSlowdown(mac);
    // Everything below is written by the two calls above, which don't report failures one by one.
    if (!fs::is_directory(fs::path(mac.home()) / "Library" / "Caches", ec) || !fs::is_directory(mac.root() + "/usr/bin", ec)) {
        problem = "couldn't lay out a sandbox Mac in \"" + dir + "\" (is the disk full, or the folder read-only?)";
        return std::nullopt;
    }
    return mac;
}

}  // namespace

void addDemoCommand(CLI::App& app, int& exitCode) {
    static std::string dir = "brimstell-demo-mac";
    static std::string user = "ann";
    static bool json = false;
    auto* demo = app.add_subcommand("demo", "Lay out a sample sandbox Mac and print the variables that point commands at it");
    demo->add_option("DIR", dir, "Where to lay it out")->capture_default_str();
    demo->add_option("--user", user, "The account's short name")->capture_default_str();
    demo->add_flag("--json", json, "Print the variables as JSON");
    demo->footer("Use it as:  eval \"$(brimstell demo /tmp/mac)\"  and every command then runs against that Mac.");
    demo->callback([&exitCode] {
        if (user.empty() || user.find('/') != std::string::npos || user == "." || user == "..") {
            error("\"" + user + "\" can't be an account name");
            exitCode = 2;
            return;
        }
        std::string problem;
        auto mac = layOut(dir, user, problem);
        if (!mac) {
            error(problem);
            exitCode = 1;
            return;
        }
        auto env = mac->environment();
        env["BRIMSTELL_OUTBOX"] = mac->root() + "/notifications.jsonl";
        if (json) {
            Json variables = Json::object();
            for (const auto& [k, v] : env) variables[k] = v;
            Json j = Json::object();
            putPath(j, "rootPath", mac->root());
            putPath(j, "homePath", mac->home());
            j["variables"] = std::move(variables);
            printJson(j);
            return;
        }
        fmt::print(stderr, "Laid out a sandbox Mac in {} (user {}). Notifications go to {}.\n", mac->root(), user,
                   env["BRIMSTELL_OUTBOX"]);
        for (const auto& [k, v] : env) fmt::print("export {}={}\n", k, shellQuote(v));
    });
}

}  // namespace cli
