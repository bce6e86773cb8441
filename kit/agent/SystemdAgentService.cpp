#ifndef __APPLE__

#include "kit/agent/SystemdAgentService.hpp"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <memory>

#include <fmt/format.h>
#include <systemd/sd-bus.h>

#include "support/host/Host.hpp"
#include "support/posix/Files.hpp"

namespace brimstell {

using quorv::ServiceStatus;

namespace {

constexpr const char* destination = "org.freedesktop.systemd1";
constexpr const char* objectPath = "/org/freedesktop/systemd1";
constexpr const char* managerInterface = "org.freedesktop.systemd1.Manager";
constexpr std::uint64_t callTimeoutMicroseconds = 10'000'000;

// ---- Unit file texts ----

bool validUtf8(const std::string& s) {
    std::size_t i = 0;
    while (i < s.size()) {
        const auto c = static_cast<unsigned char>(s[i]);
        std::size_t extra = 0;
        unsigned minimum = 0;
        unsigned cp = 0;
        if (c < 0x80) {
            ++i;
            continue;
        }
        if ((c & 0xE0) == 0xC0) {
            extra = 1;
            cp = c & 0x1Fu;
            minimum = 0x80;
        } else if ((c & 0xF0) == 0xE0) {
            extra = 2;
            cp = c & 0x0Fu;
            minimum = 0x800;
        } else if ((c & 0xF8) == 0xF0) {
            extra = 3;
            cp = c & 0x07u;
            minimum = 0x10000;
        } else {
            return false;
        }
        if (i + extra >= s.size()) return false;
        for (std::size_t k = 1; k <= extra; ++k) {
            const auto cc = static_cast<unsigned char>(s[i + k]);
            if ((cc & 0xC0) != 0x80) return false;
            cp = (cp << 6) | (cc & 0x3F);
        }
        if (cp < minimum || cp > 0x10FFFF || (cp >= 0xD800 && cp <= 0xDFFF)) return false;
        i += extra + 1;
    }
    return true;
}

bool plainPathByte(char c) {
    return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') ||
           std::strchr("/._-+,:@", c) != nullptr;
}

// The executable as the first word of ExecStart=. A plain path stands as it is; anything else is
// double-quoted with C escapes, which systemd undoes when it reads the line: a space can't split
// the word, and bytes that are not UTF-8 are written as \xNN so the file stays valid text. "%"
// starts a specifier in every word and is doubled. "$" is left alone: systemd expands variables in
// arguments, not in the path it executes. Quotes, backslashes and control characters are escaped
// too, although systemd refuses to run a path holding them (see runnableBySystemd).
std::string execWord(const std::string& path) {
    bool plain = !path.empty();
    for (char c : path) plain = plain && plainPathByte(c);
    if (plain) return path;
    const bool utf8 = validUtf8(path);
    std::string out = "\"";
    for (char ch : path) {
        const auto c = static_cast<unsigned char>(ch);
        switch (ch) {
            case '"': out += "\\\""; continue;
            case '\\': out += "\\\\"; continue;
            case '%': out += "%%"; continue;
            case '\n': out += "\\n"; continue;
            case '\t': out += "\\t"; continue;
            default: break;
        }
        if (c < 0x20 || c == 0x7F || (c >= 0x80 && !utf8)) {
            out += fmt::format("\\x{:02x}", c);
        } else {
            out += ch;
        }
    }
    out += '"';
    return out;
}

// systemd refuses an executable whose path holds a quote, a backslash or a control character.
bool runnableBySystemd(const std::string& path) {
    for (char ch : path) {
        const auto c = static_cast<unsigned char>(ch);
        if (c < 0x20 || c == 0x7F || ch == '"' || ch == '\'' || ch == '\\') return false;
    }
    return true;
}

// ---- The user manager over D-Bus ----

struct BusCloser {
    void operator()(sd_bus* bus) const { sd_bus_flush_close_unref(bus); }
};
using Bus = std::unique_ptr<sd_bus, BusCloser>;

struct MessageUnref {
    void operator()(sd_bus_message* m) const { sd_bus_message_unref(m); }
};
using Message = std::unique_ptr<sd_bus_message, MessageUnref>;

class BusError {
public:
    BusError() = default;
    ~BusError() { sd_bus_error_free(&error_); }
    BusError(const BusError&) = delete;
    BusError& operator=(const BusError&) = delete;
    sd_bus_error* get() { return &error_; }
    // The reason without a closing full stop; callers end their own sentence.
    std::string text(int r) const {
        std::string t = error_.message && *error_.message ? error_.message
                        : error_.name && *error_.name     ? error_.name
                                                          : std::strerror(r < 0 ? -r : r);
        while (!t.empty() && t.back() == '.') t.pop_back();
        return t;
    }

private:
    sd_bus_error error_{nullptr, nullptr, 0};  // SD_BUS_ERROR_NULL is a C compound literal
};

// D-Bus address values escape every byte outside a small set as %xx.
std::string addressValue(const std::string& s) {
    std::string out;
    for (char ch : s) {
        const auto c = static_cast<unsigned char>(ch);
        if ((c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') ||
            std::strchr("-_/.\\*", ch) != nullptr) {
            out += ch;
        } else {
            out += fmt::format("%{:02x}", c);
        }
    }
    return out;
}

Bus connectUserBus(std::string& error) {
    const auto address = SystemdAgentService::busAddress();
    if (!address) {
        error = "The systemd user manager can't be reached: there is no user bus.";
        return nullptr;
    }
    sd_bus* raw = nullptr;
    int r = sd_bus_new(&raw);
    if (r < 0) {
        error = fmt::format("The systemd user manager can't be reached: {}.", std::strerror(-r));
        return nullptr;
    }
    Bus bus(raw);
    // A bus that accepts but never answers must not hold the caller for long.
    if ((r = sd_bus_set_address(bus.get(), address->c_str())) < 0 || (r = sd_bus_set_bus_client(bus.get(), 1)) < 0 ||
        (r = sd_bus_set_method_call_timeout(bus.get(), callTimeoutMicroseconds)) < 0 || (r = sd_bus_start(bus.get())) < 0) {
        error = fmt::format("The systemd user manager can't be reached: {}.", std::strerror(-r));
        return nullptr;
    }
    return bus;
}

// A bus is not enough: a session bus without systemd behind it has no manager to talk to.
bool managerAnswers(sd_bus* bus, std::string& error) {
    BusError e;
    char* version = nullptr;
    const int r = sd_bus_get_property_string(bus, destination, objectPath, managerInterface, "Version", e.get(), &version);
    std::free(version);
    if (r >= 0) return true;
    error = fmt::format("The systemd user manager can't be reached: {}.", e.text(r));
    return false;
}

// Calls a manager method; on failure appends a short reason to error and returns false.
template <class... Args>
bool call(sd_bus* bus, const char* method, std::string& error, Message* reply, const char* types, Args... args) {
    BusError e;
    sd_bus_message* raw = nullptr;
    const int r = sd_bus_call_method(bus, destination, objectPath, managerInterface, method, e.get(), &raw, types, args...);
    Message owned(raw);
    if (r < 0) {
        if (!error.empty()) error += " ";
        error += fmt::format("{} failed: {}.", method, e.text(r));
        return false;
    }
    if (reply) *reply = std::move(owned);
    return true;
}

std::string unitFileState(sd_bus* bus) {
    Message reply;
    std::string ignored;
    if (!call(bus, "GetUnitFileState", ignored, &reply, "s", SystemdAgentService::timerUnit)) return {};
    const char* state = nullptr;
    if (sd_bus_message_read(reply.get(), "s", &state) < 0 || !state) return {};
    return state;
}

// ---- Files ----

std::string unitPath(const char* unit) { return SystemdAgentService::unitFolder() + "/" + unit; }

// Present in any form: a mask is a link to /dev/null in place of our file, and still ours.
bool exists(const std::string& path) {
    struct stat st{};
    return ::fstatat(AT_FDCWD, path.c_str(), &st, AT_SYMLINK_NOFOLLOW) == 0;
}

bool removeFile(const std::string& path, std::string& error) {
    if (::unlink(path.c_str()) == 0 || errno == ENOENT) return true;
    const int cause = errno;
    if (!error.empty()) error += " ";
    error += fmt::format("Could not remove {}: {}.", path, std::strerror(cause));
    return false;
}

// Best effort: leaves the user manager as if we had never registered.
void takeBack(sd_bus* bus) {
    std::string ignored;
    call(bus, "StopUnit", ignored, nullptr, "ss", SystemdAgentService::timerUnit, "replace");
    call(bus, "DisableUnitFiles", ignored, nullptr, "asb", 1u, SystemdAgentService::timerUnit, 0);
    removeFile(unitPath(SystemdAgentService::timerUnit), ignored);
    removeFile(unitPath(SystemdAgentService::serviceUnit), ignored);
    call(bus, "Reload", ignored, nullptr, "");
}

}  // namespace

SystemdAgentService::SystemdAgentService(std::string agentPath) : agentPath_(std::move(agentPath)) {}

SystemdAgentService::UnitTexts SystemdAgentService::unitTexts(const std::string& agentPath) {
    UnitTexts texts;
    texts.service = fmt::format(
        "# Written by Brimstell; removed when background checks are switched off.\n"
        "[Unit]\n"
        "Description=Brimstell background checks\n"
        "\n"
        "[Service]\n"
        "Type=oneshot\n"
        "Environment=XPC_SERVICE_NAME=com.quorv.brimstell.agent\n"
        "ExecStart={}\n"
        "Nice=10\n"
        "IOSchedulingClass=idle\n",
        execWord(agentPath));
    texts.timer =
        "# Written by Brimstell; removed when background checks are switched off.\n"
        "[Unit]\n"
        "Description=Run Brimstell background checks every hour\n"
        "\n"
        "[Timer]\n"
        "OnCalendar=hourly\n"
        "Persistent=true\n"
        "RandomizedDelaySec=5min\n"
        "\n"
        "[Install]\n"
        "WantedBy=timers.target\n";
    return texts;
}

// The four states as the user manager shows them:
// - notFound: the user manager can't be reached (no user bus, or no systemd behind it). status()
//   also reports notFound, before asking the manager, when the agent executable is missing or
//   lies at a path systemd refuses to run.
// - notRegistered: our timer or service unit file is absent from the user's unit folder.
// - enabled: the timer's unit file state is "enabled" or "enabled-runtime".
// - requiresApproval: our unit files are there but the user switched the timer off outside
//   Brimstell ("disabled", or masked: "masked", "masked-runtime") — what switching the agent off
//   in the system's login-items settings is on a Mac. Brimstell leaves that decision alone.
// Any other state ("static", "linked", "bad", or a failed query) means our files no longer say
// what we wrote; notRegistered lets the next registration write them again.
ServiceStatus SystemdAgentService::mapState(bool managerReachable, bool unitFilesPresent,
                                            const std::string& unitFileState) {
    if (!managerReachable) return ServiceStatus::notFound;
    if (!unitFilesPresent) return ServiceStatus::notRegistered;
    if (unitFileState == "enabled" || unitFileState == "enabled-runtime") return ServiceStatus::enabled;
    if (unitFileState == "disabled" || unitFileState == "masked" || unitFileState == "masked-runtime") {
        return ServiceStatus::requiresApproval;
    }
    return ServiceStatus::notRegistered;
}

std::string SystemdAgentService::unitFolder() {
    const auto& h = quorv::host();
    std::string config;
    if (auto v = h.env("XDG_CONFIG_HOME"); v && !v->empty() && (*v)[0] == '/') {
        config = *v;
        while (config.size() > 1 && config.back() == '/') config.pop_back();
        if (config == "/") config.clear();
    } else {
        config = h.inHome(".config");
    }
    return config + "/systemd/user";
}

std::optional<std::string> SystemdAgentService::busAddress() {
    const auto& h = quorv::host();
    if (auto v = h.env("DBUS_SESSION_BUS_ADDRESS"); v && !v->empty()) return *v;
    if (auto v = h.env("XDG_RUNTIME_DIR"); v && !v->empty() && (*v)[0] == '/') {
        return "unix:path=" + addressValue(*v + "/bus");
    }
    return std::nullopt;
}

bool SystemdAgentService::agentPresent() const {
    if (agentPath_.empty() || agentPath_[0] != '/' || !runnableBySystemd(agentPath_)) return false;
    struct stat st{};
    return ::stat(agentPath_.c_str(), &st) == 0 && S_ISREG(st.st_mode) && ::access(agentPath_.c_str(), X_OK) == 0;
}

ServiceStatus SystemdAgentService::status() {
    if (!agentPresent()) return ServiceStatus::notFound;
    std::string ignored;
    Bus bus = connectUserBus(ignored);
    const bool reachable = bus && managerAnswers(bus.get(), ignored);
    const bool present = exists(unitPath(timerUnit)) && exists(unitPath(serviceUnit));
    const std::string state = reachable && present ? unitFileState(bus.get()) : std::string();
    return mapState(reachable, present, state);
}

bool SystemdAgentService::registerService(std::string& error) {
    if (!agentPresent()) {
        error = runnableBySystemd(agentPath_)
                    ? fmt::format("The agent executable is missing: {}.", agentPath_)
                    : "systemd can't run the agent from a path with quotes, backslashes or control characters.";
        return false;
    }
    // Reach the manager before writing anything, so a failure leaves no files behind.
    Bus bus = connectUserBus(error);
    if (!bus || !managerAnswers(bus.get(), error)) return false;

    const UnitTexts texts = unitTexts(agentPath_);
    const std::string servicePath = unitPath(serviceUnit);
    const std::string timerPath = unitPath(timerUnit);
    // The timer last: its file is what marks the agent as registered.
    if (!quorv::files::writeAtomically(servicePath, texts.service) ||
        !quorv::files::writeAtomically(timerPath, texts.timer)) {
        const int cause = errno;
        error = fmt::format("Could not write the unit files in {}: {}.", unitFolder(), std::strerror(cause));
        std::string ignored;
        removeFile(timerPath, ignored);
        removeFile(servicePath, ignored);
        return false;
    }
    std::string failure;
    const bool ok = call(bus.get(), "Reload", failure, nullptr, "") &&
                    call(bus.get(), "EnableUnitFiles", failure, nullptr, "asbb", 1u, timerUnit, 0, 1) &&
                    call(bus.get(), "StartUnit", failure, nullptr, "ss", timerUnit, "replace");
    if (!ok) {
        takeBack(bus.get());
        error = failure;
    }
    return ok;
}

bool SystemdAgentService::unregisterService(std::string& error) {
    Bus bus = connectUserBus(error);
    if (!bus || !managerAnswers(bus.get(), error)) return false;
    std::string failure;
    // Stopping a timer that isn't running is not a failure worth reporting.
    std::string ignored;
    call(bus.get(), "StopUnit", ignored, nullptr, "ss", timerUnit, "replace");
    bool ok = call(bus.get(), "DisableUnitFiles", failure, nullptr, "asb", 1u, timerUnit, 0);
    // The files go even when disabling failed: without them the timer can't run again.
    ok = removeFile(unitPath(timerUnit), failure) && ok;
    ok = removeFile(unitPath(serviceUnit), failure) && ok;
    ok = call(bus.get(), "Reload", failure, nullptr, "") && ok;
    if (!ok) error = failure;
    return ok;
}

}  // namespace brimstell

#endif  // __APPLE__
