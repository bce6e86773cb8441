#pragma once
// The one network session of the update checks: every request of a check goes out at once on the
// calling thread through one libcurl multi handle. Only https is spoken, redirects included; no
// cookies are kept and nothing is cached; every request carries the User-Agent below and has its
// own time limit, so one feed that never answers holds up nothing but itself.

#include <cstddef>
#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace brimstell {

struct UpdateSession {
    struct Request {
        std::string url;
        // Takes the body as it arrives; returning false drops the request (it counts as not reached).
        std::function<bool(std::string_view)> sink;
    };
    struct Answer {
        bool reached = false;  // the transfer completed: an HTTP answer with every byte received
        long status = 0;       // its HTTP status
    };
    struct Options {
        double timeout = 20;  // seconds, per request, from its start to its last byte
        std::size_t maxBodyBytes = std::size_t{16} << 20;
        // Certificates to trust instead of the system's (a sandbox's own authority).
        std::optional<std::string> caFile;
        // A loopback "host:port" every request connects to, whatever its address names (a
        // sandbox's own feed server standing in for the feeds' hosts).
        std::optional<std::string> connectTo;
    };

    // Runs every request at once and waits for all; one answer per request, in order.
    static std::vector<Answer> fetchAll(std::vector<Request>& requests, const Options& options);
    // The options of this host: in a sandbox only, BRIMSTELL_SANDBOX_CA_FILE names the authority and
    // BRIMSTELL_SANDBOX_FEEDS_AT a loopback "127.0.0.1:<port>" or "localhost:<port>" to connect to.
    static Options hostOptions();

    static constexpr std::string_view userAgent = "Brimstell/1.0 (update check)";
};

}  // namespace brimstell
