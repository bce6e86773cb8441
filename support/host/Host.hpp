#pragma once
// The one seam through which engines learn anything about the world outside the process:
// where system paths resolve, who the user is, what time it is, the environment, and the
// platform backends. Engines call host(); tests install their own with HostScope.

#include <sys/types.h>

#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "support/host/Calendar.hpp"

namespace quorv {

class SettingsStore;
class Notifier;
class ServiceRegistrar;
class TrashBackend;
class HelperTransport;
class HealthSource;

enum class Platform { mac, linux };

// Seconds since 1970, fractional.
using Clock = std::function<double()>;

class Host {
public:
    Platform platform = Platform::linux;
    bool sandbox = false;          // root is a folder laid out like a Mac (or a test tree)
    std::string root = "/";        // where absolute system paths resolve
    std::string home;              // the user's home folder, as a real location
    uid_t uid = 0;
    std::string userName;
    std::string executableDir;     // folder of the running executable (finds sibling binaries)
    std::map<std::string, std::string> environment;
    Clock clock;
    Calendar calendar;

    // Backends. Null where a platform has none; callers treat null as "not available".
    std::shared_ptr<SettingsStore> settings;
    std::shared_ptr<Notifier> notifier;
    std::shared_ptr<ServiceRegistrar> agentService;
    std::shared_ptr<TrashBackend> trash;
    std::shared_ptr<HelperTransport> helper;          // the channel to the root helper
    std::shared_ptr<ServiceRegistrar> helperService;  // the root helper's registration
    std::shared_ptr<HealthSource> health;             // a Mac's battery and disk facts
    std::function<void()> reloadWidgets;
    // The system log (syslog priority, whole line); null writes to the platform's log.
    std::function<void(int priority, const std::string& line)> systemLog;

    // A system path ("/Library/LaunchAgents") as a location under the root.
    std::string path(std::string_view systemPath) const;
    // A location under the root back as the system path it stands for; nullopt outside the root.
    std::optional<std::string> systemPath(std::string_view location) const;
    // A location under the home folder ("Library/Caches" -> <home>/Library/Caches).
    std::string inHome(std::string_view relative) const;

    std::optional<std::string> env(const std::string& name) const;
    double now() const { return clock ? clock() : 0.0; }

    // Where this platform keeps Brimstell's own files.
    std::string appSupport() const;       // history, locks, health history
    std::string groupContainer(std::string_view group) const;  // an app group's shared container
    std::string settingsFile() const;     // the settings property list
    // Where this platform kept Brimstell's files before, and where they live now: a folder's
    // entries, or a file, to move over once (see kit/agent/FormerPlaces).
    struct MovedPlace {
        std::string from;
        std::string to;
    };
    std::vector<MovedPlace> formerPlaces() const;

    bool isMac() const { return platform == Platform::mac; }
};

// The current host: the innermost HostScope on this thread, else the process host.
const Host& host();
std::shared_ptr<const Host> currentHost();

// Installs the process host (done once by each executable's main).
void setProcessHost(std::shared_ptr<const Host> h);

// Reads the environment-free facts every host needs (user, clock, calendar) and the variables
// BRIMSTELL_ROOT, BRIMSTELL_PLATFORM, HOME, XDG_* from the given environment. Backends are left
// for the caller to attach.
std::shared_ptr<Host> hostFromEnvironment(const std::map<std::string, std::string>& environment);
std::map<std::string, std::string> processEnvironment();

class HostScope {
public:
    explicit HostScope(std::shared_ptr<const Host> h);
    ~HostScope();
    HostScope(const HostScope&) = delete;
    HostScope& operator=(const HostScope&) = delete;

private:
    std::shared_ptr<const Host> previous_;
};

}  // namespace quorv
