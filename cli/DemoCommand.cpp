// brimstell demo [DIR]

#include <filesystem>

#include <fmt/format.h>

#include "cli/Commands.hpp"
#include "cli/Output.hpp"
#include "kit/sandbox/SandboxMac.hpp"

namespace cli {

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
        namespace fs = std::filesystem;
        std::error_code ec;
        // Never spread a Mac's folders over a folder that holds something else.
        if (fs::exists(dir, ec) && !fs::is_empty(dir, ec) && !fs::exists(fs::path(dir) / "Users", ec)) {
            error("\"" + dir + "\" is not empty and is not a sandbox Mac; name a new or empty folder");
            exitCode = 1;
            return;
        }
        if (user.empty() || user.find('/') != std::string::npos || user == "." || user == "..") {
            error("\"" + user + "\" can't be an account name");
            exitCode = 2;
            return;
        }
        auto mac = brimstell::SandboxMac::create(dir, user);
        mac.addSampleContent();
        auto env = mac.environment();
        env["BRIMSTELL_OUTBOX"] = mac.root() + "/notifications.jsonl";
        if (json) {
            Json j = Json::object();
            for (const auto& [k, v] : env) j[k] = v;
            printJson(j);
            return;
        }
        fmt::print(stderr, "Laid out a sandbox Mac in {} (user {}). Notifications go to {}.\n", mac.root(), user,
                   env["BRIMSTELL_OUTBOX"]);
        for (const auto& [k, v] : env) fmt::print("export {}={}\n", k, shellQuote(v));
    });
}

}  // namespace cli
