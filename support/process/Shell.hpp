#pragma once
// Runs a system tool and hands back what it printed and how it ended. Every engine starts its
// tools through here, so that no tool can hang a run, flood memory, inherit our descriptors or
// outlive its time limit.
//
// Callers name the tool by its system path through the host ("/usr/sbin/diskutil" as
// host().path("/usr/sbin/diskutil")), so that a sandbox can hold a fake one.

#include <cstddef>
#include <map>
#include <string>
#include <vector>

namespace quorv {

struct ShellOptions {
    // Added to the host's environment (host().environment), replacing variables of the same name.
    std::map<std::string, std::string> environment;
    // Seconds from the start until the tool, and everything it started, is stopped. Counted on
    // the monotonic clock, not the host's, which a sandbox may hold still.
    // Zero, less, or not a finite number: no limit.
    double timeLimit = 30;
    // The tool's working folder; empty keeps ours. A folder that can't be entered fails the start.
    std::string workingFolder;
    // Standard error goes to /dev/null unless this asks for it in `errorOutput`.
    bool captureErrors = false;
    // Bytes kept of each of standard output and standard error; the rest is read and dropped.
    std::size_t maxOutput = std::size_t{64} << 20;
};

struct ShellResult {
    bool started = false;   // false: refused, or the program could not be started at all
    int status = -1;        // exit code, or 128 + signal number when a signal ended it; -1 when
                            // unknown (something else in the process reaped the tool)
    bool timedOut = false;  // the time limit passed with the tool still running
    bool truncated = false; // output or errorOutput went beyond maxOutput
    std::string output;     // standard output, as bytes
    std::string errorOutput;

    bool succeeded() const { return started && !timedOut && status == 0; }
};

struct Shell {
    // Starts `program` (an absolute path; anything else is refused without running) with `args`
    // (argv[0] is the program path itself), standard input on /dev/null, in a process group of
    // its own, and waits for it. Safe to call from several threads at once. Never throws for a
    // tool's failure: a tool that can't start gives `started == false`.
    static ShellResult run(const std::string& program, const std::vector<std::string>& args,
                           const ShellOptions& options = {});
};

}  // namespace quorv
