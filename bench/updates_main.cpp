// Drives bench/updates.sh: one loopback HTTPS server, APPS sandbox apps whose feeds each answer
// after DELAY seconds, one check over them all against the slowest single feed fetched alone in
// the same run.
//
//   brimstell-updatebench APPS DELAY
//
// Prints "apps N", "single S", "whole S", "ratio R" and "peakKB K" (the process's peak resident
// memory, server threads included), one per line.

#include <sys/resource.h>

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <string>

#include "kit/agent/ProcessHost.hpp"
#include "kit/sandbox/FeedServer.hpp"
#include "kit/sandbox/SandboxMac.hpp"
#include "kit/updates/UpdateChecker.hpp"

using namespace brimstell;

namespace {

double seconds(std::chrono::steady_clock::time_point from) {
    return std::chrono::duration<double>(std::chrono::steady_clock::now() - from).count();
}

std::string feed(int i) {
    return R"(<?xml version="1.0"?><rss xmlns:sparkle="http://www.andymatuschak.org/xml-namespaces/sparkle"><channel>)"
           "<item><sparkle:version>" + std::to_string(2 + i % 3) +
           R"(</sparkle:version><enclosure url="https://example.com/a.zip" length="1"/></item></channel></rss>)";
}

}  // namespace

int main(int argc, char** argv) {
    const int count = argc > 1 ? std::atoi(argv[1]) : 300;
    const double delay = argc > 2 ? std::atof(argv[2]) : 1.0;
    char folder[] = "/tmp/brimstell-updatebench.XXXXXX";
    if (count < 1 || delay < 0 || !::mkdtemp(folder)) return 2;
    auto mac = SandboxMac::create(std::string(folder) + "/mac");
    mac.addSystemVersion("14.2.1");
    auto server = FeedServer::start(folder);
    if (!server) return 1;
    auto env = mac.environment();
    env["BRIMSTELL_SANDBOX_CA_FILE"] = server->caFile();
    quorv::setProcessHost(makeHost(env));

    std::vector<AppBundle> apps;
    for (int i = 0; i < count; ++i) {
        const std::string path = "/feed" + std::to_string(i) + ".xml";
        server->serve(path, {feed(i), 200, delay, false});
        apps.push_back({"/Applications/App" + std::to_string(i) + ".app", "App" + std::to_string(i),
                        "com.example.app" + std::to_string(i), "1.0", "2", server->base() + path, std::nullopt, false});
    }
    auto start = std::chrono::steady_clock::now();
    UpdateChecker::check({apps.front()});
    const double single = seconds(start);
    start = std::chrono::steady_clock::now();
    const auto result = UpdateChecker::check(apps);
    const double whole = seconds(start);
    rusage usage{};
    ::getrusage(RUSAGE_SELF, &usage);
    std::printf("apps %d\nupdates %zu\nnotReached %zu\nsingle %.3f\nwhole %.3f\nratio %.2f\npeakKB %ld\n", count,
                result.updates.size(), result.failed.size(), single, whole, whole / single, usage.ru_maxrss);
    server.reset();
    std::filesystem::remove_all(folder);
    return 0;
}
