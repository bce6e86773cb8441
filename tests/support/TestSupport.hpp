#pragma once
// Shared pieces of the tests: temporary folders, a host over a sandbox Mac, a notifier that records.

#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "kit/sandbox/SandboxMac.hpp"
#include "support/host/Host.hpp"
#include "support/notify/Notifier.hpp"

namespace testing_support {

// A fresh folder under the system's temporary folder, removed with everything in it at the end.
class TempDir {
public:
    TempDir();
    ~TempDir();
    TempDir(const TempDir&) = delete;
    TempDir& operator=(const TempDir&) = delete;
    const std::string& path() const { return path_; }
    std::string operator/(const std::string& name) const { return path_ + "/" + name; }

private:
    std::string path_;
};

class RecordingNotifier : public quorv::Notifier {
public:
    bool deliver(const std::string& id, const std::string& title, const std::string& body) override;
    std::vector<std::pair<std::string, std::string>> sent();
    std::vector<std::string> ids();

private:
    std::mutex mutex_;
    std::vector<std::string> ids_;
    std::vector<std::pair<std::string, std::string>> sent_;
};

// A sandbox Mac in a temporary folder with a host over it: UTC calendar, a fixed clock, the
// settings as a property-list file, notifications recorded.
struct SandboxHost {
    explicit SandboxHost(double now = 1'790'000'000);  // 2026-09-21
    TempDir dir;
    brimstell::SandboxMac mac;
    std::shared_ptr<quorv::Host> host;
    std::shared_ptr<RecordingNotifier> notifier;
    double now;
    void setNow(double t);
};

// Runs a program with arguments and extra environment; returns exit status, standard output and
// standard error.
struct RunResult {
    int status = -1;
    std::string output;
    std::string errors;
};
RunResult runProgram(const std::string& program, const std::vector<std::string>& args,
                     const std::map<std::string, std::string>& environment);

// The brimstell command run against a sandbox Mac in a temporary folder, with TZ=UTC and
// notifications going to dir/outbox.jsonl. A test lays out what it needs in mac and sets more
// variables in env (say BRIMSTELL_NOW).
struct CliMac {
    CliMac();
    TempDir dir;
    brimstell::SandboxMac mac;
    std::map<std::string, std::string> env;
    // input, when not empty, is the command's standard input.
    RunResult run(const std::vector<std::string>& args, const std::string& input = "") const;
    std::string settingsFile() const;
};

// A UTC date and time as seconds since 1970.
double utc(int year, int month, int day, int hour = 0, int minute = 0, int second = 0);

std::string readText(const std::string& path);
// The file's lines without their line feeds; none when it can't be read.
std::vector<std::string> linesOf(const std::string& path);

// The absolute path of a program on PATH.
std::optional<std::string> findTool(const std::string& name);

}  // namespace testing_support
