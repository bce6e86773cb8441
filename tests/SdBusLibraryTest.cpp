// The sd-bus library is loaded when a bus is first used, never at start-up.

#ifndef __APPLE__

#include <gtest/gtest.h>

#include <dirent.h>

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <map>
#include <optional>
#include <string>
#include <thread>
#include <vector>

#include "kit/sandbox/SandboxMac.hpp"
#include "support/PrivateBus.hpp"
#include "support/TestSupport.hpp"
#include "support/systemd/SdBus.hpp"

namespace {

using testing_support::SdBusLibraryNamed;
using testing_support::TempDir;
namespace sd = quorv::systemd;

TEST(SdBusLibrary, LoadsOnlyALibraryWithEveryFunction) {
    const struct {
        const char* name;
        bool loads;
    } rows[] = {
        {"libsystemd.so.0", true},
        {"libbrimstell-absent-sd-bus.so.0", false},
        {"libc.so.6", false},  // there, but without sd_bus_new
        {"", false},           // would be the program itself
        {"/nowhere/libsystemd.so.0", false},
        {"libsystemd.so.0\n", false},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.name);
        SdBusLibraryNamed named(row.name);
        EXPECT_EQ(sd::libraryName(), row.name);
        const sd::SdBus* lib = sd::sdBus();
        EXPECT_EQ(lib != nullptr, row.loads);
        if (lib) {
            EXPECT_NE(lib->sd_bus_flush_close_unref, nullptr);
        }
        EXPECT_EQ(sd::sdBus(), lib) << "loaded once";
    }
    EXPECT_EQ(sd::libraryName(), "libsystemd.so.0");
    EXPECT_EQ(sd::libraryMissing("user manager"),
              "The systemd user manager can't be reached: libsystemd.so.0 can't be loaded.");
}

// Threads that reach for the library together all get the one table.
TEST(SdBusLibrary, FirstUseFromManyThreadsLoadsOneTable) {
    SdBusLibraryNamed fresh("libsystemd.so.0");
    std::vector<const sd::SdBus*> seen(8, nullptr);
    std::vector<std::thread> threads;
    for (auto& slot : seen) threads.emplace_back([&slot] { slot = sd::sdBus(); });
    for (auto& t : threads) t.join();
    ASSERT_NE(seen[0], nullptr);
    for (const auto* lib : seen) EXPECT_EQ(lib, seen[0]);
}

// The NEEDED entries of an executable's dynamic section, as readelf prints them.
std::optional<std::vector<std::string>> neededLibraries(const std::string& exe) {
    const std::string command = "readelf -d '" + exe + "' 2>/dev/null";
    FILE* pipe = ::popen(command.c_str(), "r");
    if (!pipe) return std::nullopt;
    std::vector<std::string> out;
    char line[512];
    while (std::fgets(line, sizeof line, pipe)) {
        const std::string text = line;
        const auto open = text.find("Shared library: [");
        if (open == std::string::npos) continue;
        const auto start = open + 17;
        out.push_back(text.substr(start, text.find(']', start) - start));
    }
    if (::pclose(pipe) != 0) return std::nullopt;
    return out;
}

TEST(AgentStartUp, NeedsNoSystemdLibraryToLoad) {
    if (std::system("command -v readelf >/dev/null 2>&1") != 0) GTEST_SKIP() << "readelf is not installed";
    for (const std::string exe : {BRIMSTELL_AGENT_EXE, BRIMSTELL_CLI_EXE}) {
        SCOPED_TRACE(exe);
        const auto needed = neededLibraries(exe);
        ASSERT_TRUE(needed) << "readelf could not read the executable";
        EXPECT_FALSE(needed->empty()) << "a dynamic executable needs at least libc";
        for (const auto& lib : *needed) {
            for (const char* heavy : {"libsystemd", "libgcrypt", "libcurl", "liblzma", "libzstd"}) {
                EXPECT_EQ(lib.rfind(heavy, 0), std::string::npos) << lib;
            }
        }
    }
}

// The libraries the dynamic loader opened for one run of the agent, from its debug log
// (glibc's LD_DEBUG); nullopt where the loader writes none.
std::optional<std::string> loaderLog(const std::string& folder, std::map<std::string, std::string> env) {
    env["LD_DEBUG"] = "files";
    env["LD_DEBUG_OUTPUT"] = folder + "/ld";
    if (testing_support::runProgram(BRIMSTELL_AGENT_EXE, {}, env).status != 0) return std::string("failed");
    std::string log;
    for (const auto& entry : std::filesystem::directory_iterator(folder)) {
        if (entry.path().filename().string().rfind("ld.", 0) == 0) log += testing_support::readText(entry.path());
    }
    if (log.empty()) return std::nullopt;
    return log;
}

// A run with nothing due never opens libsystemd; a start under another service name opens
// neither libsystemd nor libplist, which only a run that reads the settings needs.
TEST(AgentStartUp, AQuietRunLoadsNoSystemdLibrary) {
    const struct {
        const char* service;
        bool readsSettings;
    } rows[] = {{"com.quorv.brimstell.agent", true}, {"com.apple.something.else", false}};
    for (const auto& row : rows) {
        SCOPED_TRACE(row.service);
        TempDir dir;
        const auto mac = brimstell::SandboxMac::create(dir / "mac");
        auto env = mac.environment();
        env["XPC_SERVICE_NAME"] = row.service;
        env["BRIMSTELL_OUTBOX"] = dir / "outbox.jsonl";
        std::filesystem::create_directory(dir / "log");
        const auto log = loaderLog(dir / "log", env);
        if (!log) GTEST_SKIP() << "the dynamic loader writes no debug log here (not glibc)";
        ASSERT_NE(*log, "failed");
        EXPECT_NE(log->find("file=libc.so.6"), std::string::npos) << "the log names what was loaded";
        EXPECT_EQ(log->find("libsystemd"), std::string::npos) << *log;
        EXPECT_EQ(log->find("file=libplist-2.0.so.3") != std::string::npos, row.readsSettings) << *log;
    }
}

}  // namespace

#endif  // __APPLE__
