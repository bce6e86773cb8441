#ifndef __APPLE__

#include "support/systemd/Systemd.hpp"

#include "support/host/Host.hpp"
#include "support/text/Utf8.hpp"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>

namespace quorv::systemd {

std::string BusError::text(int r) const {
    std::string t = error_.message && *error_.message ? error_.message
                    : error_.name && *error_.name     ? error_.name
                                                      : std::strerror(r < 0 ? -r : r);
    while (!t.empty() && t.back() == '.') t.pop_back();
    return t;
}

std::optional<std::string> sessionBusAddress() {
    const auto& h = host();
    if (auto v = h.env("DBUS_SESSION_BUS_ADDRESS"); v && !v->empty()) return *v;
    if (auto v = h.env("XDG_RUNTIME_DIR"); v && !v->empty() && (*v)[0] == '/') {
        return "unix:path=" + addressValue(*v + "/bus");
    }
    return std::nullopt;
}

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

Bus connect(const std::string& address, std::string_view manager, std::string& error) {
    const SdBus* lib = sdBus();
    if (!lib) {
        error = libraryMissing(manager);
        return nullptr;
    }
    sd_bus* raw = nullptr;
    int r = lib->sd_bus_new(&raw);
    if (r < 0) {
        error = fmt::format("The systemd {} can't be reached: {}.", manager, std::strerror(-r));
        return nullptr;
    }
    Bus bus(raw);
    if ((r = lib->sd_bus_set_address(bus.get(), address.c_str())) < 0 || (r = lib->sd_bus_set_bus_client(bus.get(), 1)) < 0 ||
        (r = lib->sd_bus_set_method_call_timeout(bus.get(), callTimeoutMicroseconds)) < 0 ||
        (r = lib->sd_bus_start(bus.get())) < 0) {
        error = fmt::format("The systemd {} can't be reached: {}.", manager, std::strerror(-r));
        return nullptr;
    }
    return bus;
}

bool managerAnswers(sd_bus* bus, std::string_view manager, std::string& error) {
    BusError e;
    char* version = nullptr;
    const int r = sdBus()->sd_bus_get_property_string(bus, destination, objectPath, managerInterface, "Version", e.get(), &version);
    std::free(version);
    if (r >= 0) return true;
    error = fmt::format("The systemd {} can't be reached: {}.", manager, e.text(r));
    return false;
}

std::string unitFileState(sd_bus* bus, const char* unit) {
    Message reply;
    std::string ignored;
    if (!call(bus, "GetUnitFileState", ignored, &reply, "s", unit)) return {};
    const char* state = nullptr;
    if (sdBus()->sd_bus_message_read(reply.get(), "s", &state) < 0 || !state) return {};
    return state;
}

// The four states as a service manager shows them:
// - notFound: the manager can't be reached (no bus, or no systemd behind it). A registrar also
//   reports notFound, before asking the manager, when its executable is missing or lies at a path
//   systemd refuses to run.
// - notRegistered: one of our unit files is absent from the unit folder.
// - enabled: the unit that starts everything (the agent's timer, the helper's socket) has the unit
//   file state "enabled" or "enabled-runtime".
// - requiresApproval: our unit files are there but someone switched that unit off outside
//   Brimstell ("disabled", or masked: "masked", "masked-runtime"), which is what switching an item
//   off in the login-items settings is on a Mac. Brimstell leaves that decision alone.
// Any other state ("static", "linked", "bad", or a failed query) means our files no longer say
// what we wrote; notRegistered lets the next registration write them again.
ServiceStatus registrationState(bool managerReachable, bool unitFilesPresent, const std::string& unitFileState) {
    if (!managerReachable) return ServiceStatus::notFound;
    if (!unitFilesPresent) return ServiceStatus::notRegistered;
    if (unitFileState == "enabled" || unitFileState == "enabled-runtime") return ServiceStatus::enabled;
    if (unitFileState == "disabled" || unitFileState == "masked" || unitFileState == "masked-runtime") {
        return ServiceStatus::requiresApproval;
    }
    return ServiceStatus::notRegistered;
}

namespace {
bool plainPathByte(char c) {
    return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') ||
           std::strchr("/._-+,:@", c) != nullptr;
}
}  // namespace

// A plain path stands as it is; anything else is double-quoted with C escapes, which systemd undoes
// when it reads the line: a space can't split the word, and bytes that are not UTF-8 are written
// as \xNN so the file stays valid text. "%" starts a specifier in every word and is doubled. "$" is
// left alone: systemd expands variables in arguments, not in the path it executes. Quotes,
// backslashes and control characters are escaped too, although systemd refuses to run a path
// holding them (see runnableBySystemd).
std::string execWord(const std::string& path) {
    bool plain = !path.empty();
    for (char c : path) plain = plain && plainPathByte(c);
    if (plain) return path;
    const bool utf8 = isValidUtf8(path);
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

bool runnableBySystemd(const std::string& path) {
    for (char ch : path) {
        const auto c = static_cast<unsigned char>(ch);
        if (c < 0x20 || c == 0x7F || ch == '"' || ch == '\'' || ch == '\\') return false;
    }
    return true;
}

bool unitFilePresent(const std::string& path) {
    struct stat st {};
    return ::fstatat(AT_FDCWD, path.c_str(), &st, AT_SYMLINK_NOFOLLOW) == 0;
}

bool removeUnitFile(const std::string& path, std::string& error, const char* rootHint) {
    if (::unlink(path.c_str()) == 0 || errno == ENOENT) return true;
    const int cause = errno;
    if (!error.empty()) error += " ";
    const bool rights = cause == EACCES || cause == EPERM || cause == EROFS;
    error += rootHint && rights ? std::string(rootHint) : "Could not remove " + path + ": " + std::strerror(cause) + ".";
    return false;
}

}  // namespace quorv::systemd

#endif  // __APPLE__
