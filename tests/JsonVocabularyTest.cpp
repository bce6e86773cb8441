// Every `--json` output follows the one vocabulary of docs/json.md, and every command answers a
// mistake with status 2 and a "brimstell:" line.

#include <gtest/gtest.h>

#include <sys/stat.h>

#include <algorithm>
#include <regex>
#include <string>
#include <vector>

#include <nlohmann/json.hpp>

#include "kit/sandbox/SandboxDeveloper.hpp"
#include "kit/sandbox/SandboxMac.hpp"
#include "kit/sandbox/SandboxCloud.hpp"
#include "kit/sandbox/SandboxSlowdown.hpp"
#include "kit/sandbox/SandboxStartup.hpp"
#include "support/TestSupport.hpp"

namespace {

using nlohmann::json;
using testing_support::runProgram;

bool endsWith(const std::string& s, const std::string& tail) {
    return s.size() >= tail.size() && s.compare(s.size() - tail.size(), tail.size(), tail) == 0;
}

bool lowerCamel(const std::string& s) { return std::regex_match(s, std::regex("[a-z][a-zA-Z0-9]*")); }

// What is wrong with one value under key; "" when nothing is.
std::string problemWith(const std::string& key, const json& v) {
    static const std::regex iso(R"(\d{4}-\d\d-\d\dT\d\d:\d\d:\d\dZ)");
    static const std::regex number(R"(-?\d+(\.\d+)?)");
    static const std::vector<std::string> stateKeys = {"status", "registration", "group", "due", "kind", "state"};
    if (key == "path" || endsWith(key, "Path") || endsWith(key, "Paths")) {
        const bool ok = v.is_string() || (v.is_array() && std::all_of(v.begin(), v.end(), [](const json& e) { return e.is_string(); }));
        return ok && !(v.is_string() && v.get<std::string>().empty()) ? "" : "a location that isn't a path";
    }
    if (key == "bytes" || endsWith(key, "Bytes")) {
        return v.is_number_integer() && v.get<std::int64_t>() >= 0 ? "" : "bytes that aren't an integer of 0 or more";
    }
    if (key == "date" || endsWith(key, "At")) {
        return v.is_null() || (v.is_string() && std::regex_match(v.get<std::string>(), iso)) ? "" : "a date that isn't ISO 8601";
    }
    for (const auto& k : stateKeys) {
        if (key != k) continue;
        const bool ok = (v.is_string() && lowerCamel(v.get<std::string>())) ||
                        (v.is_array() && std::all_of(v.begin(), v.end(), [](const json& e) { return e.is_string() && lowerCamel(e); }));
        return ok ? "" : "a state that isn't a lower camel word";
    }
    for (const char* named : {"size", "total", "freed", "location", "original", "trashed", "restoredTo", "lastRun"}) {
        if (key == named) return "a name the vocabulary replaced";
    }
    if (endsWith(key, "Size") || endsWith(key, "Location")) return "a name the vocabulary replaced";
    if (v.is_string() && key != "value" && key != "version" && !endsWith(key, "Version") &&
        std::regex_match(v.get<std::string>(), number)) {
        return "a number written as text";
    }
    return "";
}

// Every problem in a document, as "where: what"; the keys of "variables" are the environment's own.
void check(const json& doc, const std::string& where, std::vector<std::string>& problems) {
    if (doc.is_array()) {
        for (std::size_t i = 0; i < doc.size(); ++i) check(doc[i], where + "[" + std::to_string(i) + "]", problems);
        return;
    }
    if (!doc.is_object()) return;
    for (const auto& [key, v] : doc.items()) {
        const std::string at = where + "." + key;
        if (!lowerCamel(key) && !endsWith(where, ".variables")) problems.push_back(at + ": a key that isn't lower camel case");
        if (endsWith(where, ".variables")) continue;
        if (const auto p = problemWith(key, v); !p.empty()) problems.push_back(at + ": " + p);
        if (key != "value") check(v, at, problems);
    }
}

std::vector<std::string> problemsOf(const std::string& text) {
    std::vector<std::string> problems;
    check(json::parse(text), "", problems);
    return problems;
}

TEST(JsonVocabulary, TheCheckerRejectsWhatTheVocabularyForbids) {
    const struct {
        const char* doc;
        const char* problem;
    } bad[] = {
        {R"({"location": "/a"})", ".location: a name the vocabulary replaced"},
        {R"({"size": 10})", ".size: a name the vocabulary replaced"},
        {R"({"bytes": "10 kB"})", ".bytes: bytes that aren't an integer of 0 or more"},
        {R"({"freedBytes": -1})", ".freedBytes: bytes that aren't an integer of 0 or more"},
        {R"({"date": 1790000000})", ".date: a date that isn't ISO 8601"},
        {R"({"addedAt": "2026-09-21 14:13"})", ".addedAt: a date that isn't ISO 8601"},
        {R"({"status": "in the Trash"})", ".status: a state that isn't a lower camel word"},
        {R"([{"count": "12"}])", "[0].count: a number written as text"},
        {R"({"Items": []})", ".Items: a key that isn't lower camel case"},
        {R"({"trashPath": 3})", ".trashPath: a location that isn't a path"},
    };
    for (const auto& c : bad) EXPECT_EQ(problemsOf(c.doc), std::vector<std::string>{c.problem}) << c.doc;
    EXPECT_TRUE(problemsOf(R"({"path": "/a", "bytes": 0, "date": null, "status": "inTheTrash", "value": "12",
                              "variables": {"BRIMSTELL_ROOT": "/tmp/x"}})").empty());
}

struct Sandbox {
    testing_support::TempDir dir;
    brimstell::SandboxMac mac = [this] {
        auto m = brimstell::SandboxMac::create(dir / "mac");
        m.addSampleContent();
        brimstell::addStartupItems(m);
        brimstell::addDeveloperTools(m);
        brimstell::addCloudFolders(m);
        brimstell::addSlowdown(m);
        return m;
    }();
    testing_support::RunResult run(const std::vector<std::string>& args) const {
        auto env = mac.environment();
        env.insert({{"TZ", "UTC"}, {"BRIMSTELL_NOW", "1790000000"}});
        return runProgram(BRIMSTELL_CLI_EXE, args, env);
    }
};

TEST(JsonVocabulary, EveryCommandsOutputFollowsIt) {
    Sandbox s;
    const std::string file = s.mac.writeFileOfSize("~/Documents/report.txt", 8192);
    const std::string other = s.mac.writeFileOfSize("~/Documents/other.txt", 4096);
    const std::vector<std::vector<std::string>> commands = {
        {"agent", "status", "--json"},
        {"agent", "run", "--json"},
        {"agent", "on", "--json"},
        {"agent", "off", "--json"},
        {"settings", "list", "--all", "--json"},
        {"settings", "set", "updatesLastCheck", "2026-11-01T00:00:00Z", "--json"},
        {"settings", "get", "warnLowDiskGB", "--json"},
        {"size", "--json", file, s.mac.home() + "/Documents", s.mac.home() + "/missing"},
        {"junk", "--json", "--items"},
        {"clean", "--dry-run", "--json"},
        {"autoclean", "status", "--json"},
        {"autoclean", "preview", "--json"},
        {"autoclean", "on", "--json"},
        {"autoclean", "run", "--json"},
        {"autoclean", "off", "--json"},
        {"trash", "--json", file, s.mac.home() + "/missing"},
        {"clean", "--yes", "--json"},
        {"history", "--json"},
        {"trash-bin", "--json"},
        {"trash-bin", "--empty-older-than", "0", "--yes", "--json"},
        {"helper", "status", "--json"},
        {"apps", "--apple", "--json"},
        {"updates", "--explain", "--json"},
        {"leftovers", "--json"},
        {"dev", "--json"},
        {"leftovers", "clean", "--dry-run", "--json"},
        {"leftovers", "clean", "--yes", "--json"},
        {"startup", "--json"},
        {"cloud", "--json"},
        {"cloud", "release", "Dropbox", "OneDrive", "--yes", "--json"},
        {"startup", "disable", "com.example.editor.updater", "--json"},
        {"slow", "--json"},
        {"slow", "quit", "702", "--yes", "--json"},
        {"versions", "compare", "--json", "1.0", "2.0"},
        {"health", "--json", "--history"},
        {"demo", (s.dir / "demo"), "--json"},
    };
    for (const auto& args : commands) {
        std::string shown;
        for (const auto& a : args) shown += a + " ";
        const auto r = s.run(args);
        ASSERT_TRUE(json::accept(r.output)) << shown << "\n" << r.output << r.errors;
        EXPECT_EQ(problemsOf(r.output), std::vector<std::string>{}) << shown << "\n" << r.output;
    }
    // A restore of what the trash command moved, now that the history has it.
    const auto history = json::parse(s.run({"history", "--json"}).output);
    ASSERT_FALSE(history.empty());
    const auto r = s.run({"restore", "--json", history[0]["entries"][0]["id"].get<std::string>()});
    EXPECT_EQ(problemsOf(r.output), std::vector<std::string>{}) << r.output;
    (void)other;
}

TEST(CommandLine, MistakesExitTwoWithOneLineSayingWhat) {
    Sandbox s;
    const struct {
        std::vector<std::string> args;
        int status;
        const char* firstLine;  // of standard error
    } cases[] = {
        {{}, 2, "brimstell: A subcommand is required"},
        {{"bogus"}, 2, "brimstell: brimstell has no command 'bogus'"},
        {{"settings"}, 2, "brimstell: A subcommand is required"},
        {{"settings", "bogus"}, 2, "brimstell: brimstell settings has no command 'bogus'"},
        {{"settings", "get"}, 2, "brimstell: KEY is required"},
        {{"settings", "set", "warnLowDisk", "true", "--type", "colour"}, 2,
         "brimstell: unknown type \"colour\" (use boolean, integer, double, string, array or date)"},
        {{"size"}, 2, "brimstell: PATH is required"},
        {{"trash"}, 2, "brimstell: PATH is required"},
        {{"restore", "--bogus"}, 2, "brimstell: The following argument was not expected: --bogus"},
        {{"autoclean", "on", "--downloads-days", "-1"}, 2, nullptr},
        {{"agent", "run", "extra"}, 2, "brimstell: The following argument was not expected: extra"},
        {{"helper"}, 2, "brimstell: A subcommand is required"},
        {{"size", s.mac.home() + "/missing"}, 1, nullptr},
        {{"--version"}, 0, nullptr},
        {{"settings", "--help"}, 0, nullptr},
    };
    for (const auto& c : cases) {
        std::string shown;
        for (const auto& a : c.args) shown += a + " ";
        const auto r = s.run(c.args);
        EXPECT_EQ(r.status, c.status) << shown;
        const std::string first = r.errors.substr(0, r.errors.find('\n'));
        if (c.firstLine) {
            EXPECT_EQ(first, c.firstLine) << shown;
        }
        if (c.status != 0) {
            EXPECT_EQ(first.rfind("brimstell: ", 0), 0u) << shown << ": " << r.errors;
        }
    }
    const auto version = s.run({"--version"});
    EXPECT_EQ(version.output, "brimstell 0.1.0\n");
}

TEST(CommandLine, TheAgentOnlyRunsWithoutArguments) {
    Sandbox s;
    auto env = s.mac.environment();
    const std::string settings = s.mac.home() + "/Library/Preferences/com.quorv.brimstell.plist";
    const struct {
        std::vector<std::string> args;
        int status;
        const char* output;
        const char* firstError;
    } cases[] = {
        {{"--version"}, 0, "brimstell-agent 0.1.0\n", ""},
        {{"--bogus"}, 2, "", "brimstell-agent: unexpected argument --bogus"},
        {{"--version", "now"}, 2, "", "brimstell-agent: unexpected argument now"},
        {{"run"}, 2, "", "brimstell-agent: unexpected argument run"},
    };
    for (const auto& c : cases) {
        const auto r = runProgram(BRIMSTELL_AGENT_EXE, c.args, env);
        EXPECT_EQ(r.status, c.status) << c.args[0];
        EXPECT_EQ(r.output, c.output) << c.args[0];
        EXPECT_EQ(r.errors.substr(0, r.errors.find('\n')), c.firstError) << c.args[0];
    }
    // None of them ran: a run writes the settings (its login-items record) at least.
    struct stat st {};
    EXPECT_NE(::stat(settings.c_str(), &st), 0) << "an argument started a run";
}

}  // namespace
