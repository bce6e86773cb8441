#pragma once
// Why the computer is slow: one reading of the machine (processes, memory, temperature, disk,
// backup, power mode, uptime) turned into a short list of causes, each told in plain words with
// what the user can do about it. The rules are plain thresholds over the reading; everything that
// reads the system lies in read() and its platform readers.

#include <sys/types.h>

#include <cstdint>
#include <optional>
#include <set>
#include <string>
#include <string_view>
#include <variant>
#include <vector>

namespace brimstell {

struct Slowdown {
    enum class Severity { low, medium, high };

    // Opens one of the app's own tools.
    enum class Tool { startup, freeUpSpace };

    struct Quit {
        std::string name;
        std::optional<std::string> bundle;
        std::vector<std::uint32_t> pids;
        bool operator==(const Quit&) const = default;
    };
    struct OpenTool {
        Tool tool;
        bool operator==(const OpenTool&) const = default;
    };
    struct Settings {
        std::string address;
        bool operator==(const Settings&) const = default;
    };
    // quit(name, bundle, pids), tool(Tool), settings(address) or none (monostate).
    using Fix = std::variant<std::monostate, Quit, OpenTool, Settings>;

    struct Cause {
        std::string title;
        std::string detail;
        std::string icon;  // a system symbol name
        Severity severity = Severity::low;
        Fix fix;
    };

    struct Proc {
        std::uint32_t pid = 0;
        std::uint32_t uid = 0;
        double cpu = 0;            // percent of one processor core
        std::int64_t memory = 0;   // bytes
        std::string path;          // the executable's path
    };

    // Processes grouped by program: by the outermost app bundle their executable lies in, else by
    // the executable's path.
    struct Load {
        std::string name;
        std::optional<std::string> bundle;
        std::vector<std::uint32_t> pids;
        std::set<std::uint32_t> uids;
        double cpu = 0;
        std::int64_t memory = 0;
        std::string path;  // the app bundle's path, else the executable's
    };

    enum class MemoryPressure { normal, warning, critical };
    enum class Thermal { nominal, fair, serious, critical };

    struct Memory {
        std::int64_t used = 0;
        std::int64_t total = 0;
        std::int64_t compressed = 0;
        std::int64_t swap = 0;  // swap in use
        MemoryPressure pressure = MemoryPressure::normal;
    };

    struct Reading {
        std::vector<Proc> procs;
        std::uint32_t me = 0;
        Memory memory;
        Thermal thermal = Thermal::nominal;
        std::int64_t free = 0;   // bytes free on the start-up disk
        std::int64_t total = 0;  // its size
        bool backupRunning = false;
        bool lowPower = false;
        double uptime = 0;  // seconds
    };

    // One row of the table of the system's own background work.
    struct Work {
        std::vector<std::string_view> names;
        std::string_view title;
        std::string_view detail;
    };

    // One reading of this machine. A part that can't be read stays empty or zero.
    static Reading read();
    // The processes of `ps -o pid=,uid=,pcpu=,rss=,comm=`; lines that don't read as one are left out.
    static std::vector<Proc> parsePS(std::string_view text);
    // The processes grouped by program, busiest first. me is the user's own uid.
    static std::vector<Load> group(const std::vector<Proc>& procs, std::uint32_t me);
    // The causes, in the order the rules are applied.
    static std::vector<Cause> causes(const Reading& reading);
    // Carries out a quit fix: asks each of its processes to quit. False when none could be asked.
    static bool quit(const Fix& fix);

    // The background-work table of the platform the host is (the Mac's in a sandbox Mac).
    static const std::vector<Work>& workTable();
    static const std::vector<Work>& macWorkTable();
    static const std::vector<Work>& linuxWorkTable();

    static const char* severityName(Severity s);
    static const char* thermalName(Thermal t);
    static const char* pressureName(MemoryPressure p);
    static const char* toolName(Tool t);

    static constexpr const char* freeUpSpaceButton = "Free Up Space…";
    static constexpr const char* openSettingsButton = "Open Settings…";
    static constexpr const char* quitNote = "It's asked to quit as from the Dock, so it can offer to save your work.";
    static constexpr const char* batterySettings = "x-apple.systempreferences:com.apple.Battery-Settings.extension";
};

}  // namespace brimstell
