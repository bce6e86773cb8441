#include <gtest/gtest.h>

#include <fcntl.h>
#include <signal.h>
#include <spawn.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#ifndef __APPLE__
#include <systemd/sd-bus.h>
#endif

#include "kit/agent/AgentService.hpp"
#include "kit/agent/RecordedAgentService.hpp"
#include "kit/agent/SystemdAgentService.hpp"
#include "support/host/Host.hpp"
#include "support/posix/Files.hpp"
#include "support/settings/PlistFileStore.hpp"

extern char** environ;

namespace {

using brimstell::AgentService;
using brimstell::RecordedAgentService;
using quorv::ServiceStatus;
namespace fs = std::filesystem;
namespace files = quorv::files;

class TempFolder {
public:
    TempFolder() {
        std::string pattern = (fs::temp_directory_path() / "brimstell-agent-XXXXXX").string();
        if (!::mkdtemp(pattern.data())) throw std::runtime_error("mkdtemp failed");
        path_ = pattern;
    }
    ~TempFolder() {
        std::error_code ec;
        fs::remove_all(path_, ec);
    }
    TempFolder(const TempFolder&) = delete;
    TempFolder& operator=(const TempFolder&) = delete;
    const std::string& path() const { return path_; }

private:
    std::string path_;
};

class FakeRegistrar final : public quorv::ServiceRegistrar {
public:
    ServiceStatus current = ServiceStatus::notRegistered;
    int registers = 0;
    int unregisters = 0;
    bool refuse = false;
    bool throws = false;

    ServiceStatus status() override { return current; }
    bool registerService(std::string& error) override {
        ++registers;
        if (throws) throw std::runtime_error("registrar broke");
        if (!refuse) return true;
        error = "refused";
        return false;
    }
    bool unregisterService(std::string& error) override {
        ++unregisters;
        if (!refuse) return true;
        error = "refused";
        return false;
    }
};

// A host with a settings file in a temp folder and the given registrar.
std::shared_ptr<quorv::Host> testHost(const TempFolder& temp, std::shared_ptr<quorv::ServiceRegistrar> registrar,
                                      std::map<std::string, std::string> env = {}) {
    env.emplace("HOME", temp.path());
    auto h = quorv::hostFromEnvironment(env);
    h->settings = std::make_shared<quorv::PlistFileStore>(temp.path() + "/settings.plist");
    h->agentService = std::move(registrar);
    return h;
}

// ---- AgentService ----

TEST(AgentService, ApplyRegistersOnlyFromNotRegisteredOrNotFoundAndUnregistersOnlyWhenEnabled) {
    // Per status 0, 1, 2, 3: R = registered, U = unregistered, - = left alone.
    const struct {
        const char* name;
        std::optional<quorv::Value> value;
        bool on;
        const char* actions;
    } rows[] = {
        {"absent", std::nullopt, true, "R--R"},
        {"true", quorv::Value(true), true, "R--R"},
        {"false", quorv::Value(false), false, "-U--"},
        {"string no", quorv::Value("no"), true, "R--R"},
        {"integer 0", quorv::Value(0), true, "R--R"},
    };
    for (const auto& row : rows) {
        for (int s = 0; s <= 3; ++s) {
            TempFolder temp;
            auto fake = std::make_shared<FakeRegistrar>();
            fake->current = static_cast<ServiceStatus>(s);
            quorv::HostScope scope(testHost(temp, fake));
            if (row.value) {
                ASSERT_TRUE(quorv::settings().set("backgroundChecks", *row.value));
            }

            EXPECT_EQ(AgentService::isOn(), row.on) << row.name;
            AgentService::apply();
            const char expected = row.actions[s];
            EXPECT_EQ(fake->registers, expected == 'R' ? 1 : 0) << row.name << " status " << s;
            EXPECT_EQ(fake->unregisters, expected == 'U' ? 1 : 0) << row.name << " status " << s;
        }
    }
}

TEST(AgentService, StatusAndBlockedInSettingsComeFromTheRegistrar) {
    TempFolder temp;
    const struct {
        ServiceStatus status;
        bool blocked;
        const char* text;
    } rows[] = {
        {ServiceStatus::notRegistered, false, "not registered"},
        {ServiceStatus::enabled, false, "enabled"},
        {ServiceStatus::requiresApproval, true, "requires approval"},
        {ServiceStatus::notFound, false, "not found"},
    };
    for (const auto& row : rows) {
        auto fake = std::make_shared<FakeRegistrar>();
        fake->current = row.status;
        quorv::HostScope scope(testHost(temp, fake));
        EXPECT_EQ(AgentService::status(), row.status);
        EXPECT_EQ(AgentService::blockedInSettings(), row.blocked) << row.text;
        EXPECT_STREQ(AgentService::statusText(row.status), row.text);
    }
    // A host without a registrar: not found, nothing to apply, nothing blocked.
    quorv::HostScope scope(testHost(temp, nullptr));
    EXPECT_EQ(AgentService::status(), ServiceStatus::notFound);
    EXPECT_FALSE(AgentService::blockedInSettings());
    AgentService::apply();
}

TEST(AgentService, RegistrationErrorsAreSwallowedAndTheSwitchKeepsItsValue) {
    TempFolder temp;
    auto fake = std::make_shared<FakeRegistrar>();
    fake->refuse = true;
    quorv::HostScope scope(testHost(temp, fake));

    EXPECT_NO_THROW(AgentService::apply());
    EXPECT_EQ(fake->registers, 1);
    EXPECT_FALSE(quorv::settings().object("backgroundChecks").has_value());

    ASSERT_TRUE(quorv::settings().set("backgroundChecks", false));
    fake->current = ServiceStatus::enabled;
    EXPECT_NO_THROW(AgentService::apply());
    EXPECT_EQ(fake->unregisters, 1);
    EXPECT_EQ(quorv::settings().object("backgroundChecks"), quorv::Value(false));

    ASSERT_TRUE(quorv::settings().set("backgroundChecks", true));
    fake->current = ServiceStatus::notFound;
    fake->throws = true;
    EXPECT_NO_THROW(AgentService::apply());
    EXPECT_EQ(fake->registers, 2);
}

// ---- RecordedAgentService ----

TEST(RecordedAgentService, KeepsTheStateInItsFile) {
    TempFolder temp;
    const std::string file = temp.path() + "/private/var/db/com.quorv.brimstell/agent-service-state";
    RecordedAgentService service(file);
    std::string error;

    EXPECT_EQ(service.status(), ServiceStatus::notRegistered);
    EXPECT_TRUE(service.unregisterService(error));
    EXPECT_EQ(service.status(), ServiceStatus::notRegistered);

    EXPECT_TRUE(service.registerService(error));
    EXPECT_EQ(quorv::files::read(file), "1\n");
    EXPECT_EQ(service.status(), ServiceStatus::enabled);
    EXPECT_TRUE(service.registerService(error));
    EXPECT_EQ(service.status(), ServiceStatus::enabled);

    EXPECT_TRUE(service.unregisterService(error));
    EXPECT_EQ(quorv::files::read(file), "0\n");

    // A test plays a pending approval: registering is refused and changes nothing.
    ASSERT_TRUE(quorv::files::writeAtomically(file, "2"));
    EXPECT_EQ(service.status(), ServiceStatus::requiresApproval);
    EXPECT_FALSE(service.registerService(error));
    EXPECT_FALSE(error.empty());
    EXPECT_EQ(service.status(), ServiceStatus::requiresApproval);

    ASSERT_TRUE(quorv::files::writeAtomically(file, "3\n"));
    EXPECT_EQ(service.status(), ServiceStatus::notFound);
    EXPECT_TRUE(service.registerService(error));
    EXPECT_EQ(service.status(), ServiceStatus::enabled);

    // No temporary files are left beside the state.
    int entries = 0;
    for ([[maybe_unused]] auto& e : fs::directory_iterator(files::parentOf(file))) ++entries;
    EXPECT_EQ(entries, 1);
}

TEST(RecordedAgentService, UnreadableStatesCountAsNotRegistered) {
    TempFolder temp;
    const std::string file = temp.path() + "/state";
    RecordedAgentService service(file);
    for (const char* text : {"", "\n", "4", "12", "-1", "1 1", "x", "1x", "\xff"}) {
        ASSERT_TRUE(quorv::files::writeAtomically(file, text));
        EXPECT_EQ(service.status(), ServiceStatus::notRegistered) << text;
    }
    ASSERT_TRUE(quorv::files::writeAtomically(file, " 2 \n"));
    EXPECT_EQ(service.status(), ServiceStatus::requiresApproval);

    // A folder where the file should be: unreadable, and registering fails with a reason.
    fs::remove(file);
    fs::create_directory(file);
    EXPECT_EQ(service.status(), ServiceStatus::notRegistered);
    std::string error;
    EXPECT_FALSE(service.registerService(error));
    EXPECT_EQ(error, "Could not write " + file + ".");
}

TEST(RecordedAgentService, DrivesApplyInASandbox) {
    TempFolder temp;
    auto recorded = std::make_shared<RecordedAgentService>(temp.path() + "/state");
    quorv::HostScope scope(testHost(temp, recorded));
    AgentService::apply();
    EXPECT_EQ(AgentService::status(), ServiceStatus::enabled);
    ASSERT_TRUE(quorv::settings().set("backgroundChecks", false));
    AgentService::apply();
    EXPECT_EQ(AgentService::status(), ServiceStatus::notRegistered);
}

#ifndef __APPLE__

using brimstell::SystemdAgentService;

// ---- SystemdAgentService: the pure parts ----

TEST(SystemdAgentService, MapsTheUserManagersViewOntoTheFourStates) {
    const struct {
        bool reachable;
        bool present;
        const char* state;
        ServiceStatus expected;
    } rows[] = {
        {false, true, "enabled", ServiceStatus::notFound},
        {false, false, "", ServiceStatus::notFound},
        {true, false, "", ServiceStatus::notRegistered},
        {true, false, "enabled", ServiceStatus::notRegistered},
        {true, true, "enabled", ServiceStatus::enabled},
        {true, true, "enabled-runtime", ServiceStatus::enabled},
        {true, true, "disabled", ServiceStatus::requiresApproval},
        {true, true, "masked", ServiceStatus::requiresApproval},
        {true, true, "masked-runtime", ServiceStatus::requiresApproval},
        {true, true, "static", ServiceStatus::notRegistered},
        {true, true, "linked", ServiceStatus::notRegistered},
        {true, true, "bad", ServiceStatus::notRegistered},
        {true, true, "", ServiceStatus::notRegistered},
        {true, true, "Enabled", ServiceStatus::notRegistered},
    };
    for (const auto& row : rows) {
        EXPECT_EQ(SystemdAgentService::mapState(row.reachable, row.present, row.state), row.expected)
            << row.reachable << " " << row.present << " " << row.state;
    }
}

TEST(SystemdAgentService, UnitTexts) {
    const auto plain = SystemdAgentService::unitTexts("/opt/brimstell/bin/brimstell-agent");
    EXPECT_EQ(plain.service,
              "# Written by Brimstell; removed when background checks are switched off.\n"
              "[Unit]\n"
              "Description=Brimstell background checks\n"
              "\n"
              "[Service]\n"
              "Type=oneshot\n"
              "Environment=XPC_SERVICE_NAME=com.quorv.brimstell.agent\n"
              "ExecStart=/opt/brimstell/bin/brimstell-agent\n"
              "Nice=10\n"
              "IOSchedulingClass=idle\n");
    EXPECT_EQ(plain.timer,
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
              "WantedBy=timers.target\n");

    // The ExecStart= line for paths that need quoting or escaping.
    const struct {
        const char* path;
        const char* line;
    } rows[] = {
        {"/home/ann/My Apps/brimstell-agent", "ExecStart=\"/home/ann/My Apps/brimstell-agent\""},
        {"/opt/100% sure/brimstell-agent", "ExecStart=\"/opt/100%% sure/brimstell-agent\""},
        {"/opt/$HOME/brimstell-agent", "ExecStart=\"/opt/$HOME/brimstell-agent\""},
        {"/opt/\xc3\x9c" "ber/brimstell-agent", "ExecStart=\"/opt/\xc3\x9c" "ber/brimstell-agent\""},
        {"/opt/b\xff/brimstell-agent", "ExecStart=\"/opt/b\\xff/brimstell-agent\""},
        {"/opt/a\nb;c/brimstell-agent", "ExecStart=\"/opt/a\\nb;c/brimstell-agent\""},
        {"/opt/say \"hi\"\\/brimstell-agent", "ExecStart=\"/opt/say \\\"hi\\\"\\\\/brimstell-agent\""},
    };
    for (const auto& row : rows) {
        const auto texts = SystemdAgentService::unitTexts(row.path);
        const std::string line = std::string("\n") + row.line + "\n";
        EXPECT_NE(texts.service.find(line), std::string::npos) << texts.service;
        // Whatever the path holds, the file keeps its ten lines.
        EXPECT_EQ(std::count(texts.service.begin(), texts.service.end(), '\n'), 10) << row.path;
    }
}

TEST(SystemdAgentService, FindsItsFolderAndBusInTheHostsEnvironment) {
    TempFolder temp;
    const struct {
        std::map<std::string, std::string> env;
        std::string folder;  // after the home folder when it starts with "~"
        std::optional<std::string> bus;
    } rows[] = {
        {{}, "~/.config/systemd/user", std::nullopt},
        {{{"XDG_CONFIG_HOME", "/srv/cfg/"}, {"XDG_RUNTIME_DIR", "/run/user/1000"}},
         "/srv/cfg/systemd/user",
         "unix:path=/run/user/1000/bus"},
        {{{"XDG_CONFIG_HOME", "cfg"}, {"XDG_RUNTIME_DIR", "run/user"}}, "~/.config/systemd/user", std::nullopt},
        {{{"XDG_RUNTIME_DIR", "/run/my user"}}, "~/.config/systemd/user", "unix:path=/run/my%20user/bus"},
        {{{"DBUS_SESSION_BUS_ADDRESS", "unix:path=/tmp/b"}, {"XDG_RUNTIME_DIR", "/run/user/1000"}},
         "~/.config/systemd/user",
         "unix:path=/tmp/b"},
        {{{"DBUS_SESSION_BUS_ADDRESS", ""}, {"XDG_RUNTIME_DIR", "/run/user/7"}},
         "~/.config/systemd/user",
         "unix:path=/run/user/7/bus"},
    };
    for (const auto& row : rows) {
        quorv::HostScope scope(testHost(temp, nullptr, row.env));
        const std::string folder = row.folder[0] == '~' ? temp.path() + row.folder.substr(1) : row.folder;
        EXPECT_EQ(SystemdAgentService::unitFolder(), folder);
        EXPECT_EQ(SystemdAgentService::busAddress(), row.bus);
    }
}

// ---- SystemdAgentService against a bus ----

int runTool(const std::vector<std::string>& args, pid_t* background = nullptr) {
    std::vector<char*> argv;
    for (const auto& a : args) argv.push_back(const_cast<char*>(a.c_str()));
    argv.push_back(nullptr);
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_addopen(&actions, 1, "/dev/null", O_WRONLY, 0);
    posix_spawn_file_actions_addopen(&actions, 2, "/dev/null", O_WRONLY, 0);
    pid_t pid = -1;
    const int r = posix_spawnp(&pid, argv[0], &actions, nullptr, argv.data(), environ);
    posix_spawn_file_actions_destroy(&actions);
    if (r != 0) return -1;
    if (background) {
        *background = pid;
        return 0;
    }
    int status = 0;
    if (waitpid(pid, &status, 0) != pid) return -1;
    return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

bool toolExists(const std::string& name) {
    const char* path = std::getenv("PATH");
    std::string dirs = path ? path : "/usr/bin:/bin";
    std::size_t start = 0;
    while (start <= dirs.size()) {
        const auto end = dirs.find(':', start);
        const std::string dir = dirs.substr(start, end == std::string::npos ? std::string::npos : end - start);
        if (!dir.empty() && ::access((dir + "/" + name).c_str(), X_OK) == 0) return true;
        if (end == std::string::npos) break;
        start = end + 1;
    }
    return false;
}

std::string makeAgent(const std::string& folder) {
    const std::string agent = folder + "/brimstell-agent";
    EXPECT_TRUE(files::writeAtomically(agent, "#!/bin/sh\nexit 0\n", 0755));
    return agent;
}

std::vector<std::string> entriesOf(const std::string& folder) {
    std::vector<std::string> names;
    std::error_code ec;
    for (auto& e : fs::directory_iterator(folder, ec)) names.push_back(e.path().filename().string());
    std::sort(names.begin(), names.end());
    return names;
}

TEST(SystemdAgentService, WithoutAUserBusItIsNotFoundAndRegisteringWritesNothing) {
    TempFolder temp;
    const std::string agent = makeAgent(temp.path() + "/bin");
    for (const auto& env : std::vector<std::map<std::string, std::string>>{
             {}, {{"DBUS_SESSION_BUS_ADDRESS", "unix:path=" + temp.path() + "/no-such-bus"}}}) {
        auto service = std::make_shared<SystemdAgentService>(agent);
        quorv::HostScope scope(testHost(temp, service, env));
        EXPECT_EQ(service->status(), ServiceStatus::notFound);
        std::string error;
        EXPECT_FALSE(service->registerService(error));
        EXPECT_EQ(error.rfind("The systemd user manager can't be reached: ", 0), 0u) << error;
        error.clear();
        EXPECT_FALSE(service->unregisterService(error));
        EXPECT_FALSE(error.empty());
        AgentService::apply();
        EXPECT_EQ(entriesOf(SystemdAgentService::unitFolder()), std::vector<std::string>{});
    }
}

TEST(SystemdAgentService, AMissingOrUnrunnableAgentIsNotFound) {
    TempFolder temp;
    quorv::HostScope scope(testHost(temp, nullptr, {{"XDG_RUNTIME_DIR", temp.path()}}));
    const struct {
        std::string path;
        const char* error;
    } rows[] = {
        {temp.path() + "/nowhere/brimstell-agent", "The agent executable is missing: "},
        {"brimstell-agent", "The agent executable is missing: "},
        {makeAgent(temp.path() + "/it's"),
         "systemd can't run the agent from a path with quotes, backslashes or control characters."},
    };
    for (const auto& row : rows) {
        SystemdAgentService service(row.path);
        EXPECT_EQ(service.status(), ServiceStatus::notFound) << row.path;
        std::string error;
        EXPECT_FALSE(service.registerService(error));
        EXPECT_EQ(error.rfind(row.error, 0), 0u) << error;
    }
    EXPECT_EQ(entriesOf(SystemdAgentService::unitFolder()), std::vector<std::string>{});
}

TEST(SystemdAgentService, SystemdAcceptsTheUnitsItWrites) {
    if (!toolExists("systemd-analyze")) GTEST_SKIP() << "systemd-analyze is not installed";
    TempFolder temp;
    const std::string agent = makeAgent(temp.path() + "/My Apps/100% $HOME \xc3\x9c" "ber \xff");
    const auto texts = SystemdAgentService::unitTexts(agent);
    ASSERT_TRUE(files::writeAtomically(temp.path() + "/units/brimstell-agent.service", texts.service));
    ASSERT_TRUE(files::writeAtomically(temp.path() + "/units/brimstell-agent.timer", texts.timer));
    EXPECT_EQ(runTool({"systemd-analyze", "verify", "--man=no", temp.path() + "/units/brimstell-agent.service",
                       temp.path() + "/units/brimstell-agent.timer"}),
              0);
}

// A private bus, with no systemd behind it unless a test adds a FakeManager.
class PrivateBus {
public:
    explicit PrivateBus(const std::string& folder) : address_("unix:path=" + folder + "/bus") {
        const std::string config = folder + "/bus.conf";
        files::writeAtomically(config,
                               "<!DOCTYPE busconfig PUBLIC \"-//freedesktop//DTD D-Bus Bus Configuration 1.0//EN\"\n"
                               " \"http://www.freedesktop.org/standards/dbus/1.0/busconfig.dtd\">\n"
                               "<busconfig><type>session</type><listen>" +
                                   address_ +
                                   "</listen><auth>EXTERNAL</auth>"
                                   "<policy context=\"default\"><allow send_destination=\"*\" eavesdrop=\"true\"/>"
                                   "<allow eavesdrop=\"true\"/><allow own=\"*\"/>"
                                   "</policy></busconfig>\n");
        if (runTool({"dbus-daemon", "--config-file=" + config, "--nofork", "--nopidfile"}, &pid_) != 0) return;
        for (int i = 0; i < 500 && !ready_; ++i) {
            struct stat st{};
            ready_ = ::stat((folder + "/bus").c_str(), &st) == 0;
            if (!ready_) std::this_thread::sleep_for(std::chrono::milliseconds(10));
        }
    }
    ~PrivateBus() {
        if (pid_ > 0) {
            ::kill(pid_, SIGTERM);
            ::waitpid(pid_, nullptr, 0);
        }
    }
    PrivateBus(const PrivateBus&) = delete;
    PrivateBus& operator=(const PrivateBus&) = delete;
    bool ready() const { return ready_; }
    const std::string& address() const { return address_; }

private:
    std::string address_;
    pid_t pid_ = -1;
    bool ready_ = false;
};

// Answers the systemd manager's calls that registration makes, with the real signatures, and
// records them.
class FakeManager {
public:
    explicit FakeManager(const std::string& address) {
        sd_bus_new(&bus_);
        sd_bus_set_address(bus_, address.c_str());
        sd_bus_set_bus_client(bus_, 1);
        if (sd_bus_start(bus_) < 0 ||
            sd_bus_add_object_vtable(bus_, nullptr, "/org/freedesktop/systemd1", "org.freedesktop.systemd1.Manager",
                                     vtable, this) < 0 ||
            sd_bus_request_name(bus_, "org.freedesktop.systemd1", 0) < 0) {
            return;
        }
        ready_ = true;
        thread_ = std::thread([this] {
            while (!stop_) {
                const int r = sd_bus_process(bus_, nullptr);
                if (r < 0) break;
                if (r == 0) sd_bus_wait(bus_, 20'000);
            }
        });
    }
    ~FakeManager() {
        stop_ = true;
        if (thread_.joinable()) thread_.join();
        sd_bus_flush_close_unref(bus_);
    }
    FakeManager(const FakeManager&) = delete;
    FakeManager& operator=(const FakeManager&) = delete;

    bool ready() const { return ready_; }
    std::vector<std::string> takeCalls() {
        std::lock_guard lock(mutex_);
        return std::exchange(calls_, {});
    }
    void setState(std::string state) {
        std::lock_guard lock(mutex_);
        state_ = std::move(state);
    }
    void failing(std::string method) {
        std::lock_guard lock(mutex_);
        failing_ = std::move(method);
    }

private:
    static int handle(sd_bus_message* m, void* userdata, sd_bus_error* error) {
        auto* self = static_cast<FakeManager*>(userdata);
        const std::string method = sd_bus_message_get_member(m);
        std::string call = method;
        if (method == "EnableUnitFiles" || method == "DisableUnitFiles") {
            char** units = nullptr;
            sd_bus_message_read_strv(m, &units);
            for (char** u = units; u && *u; ++u) call += std::string(" ") + *u;
            for (char** u = units; u && *u; ++u) std::free(*u);
            std::free(units);
            int runtime = -1;
            int force = -1;
            if (method == "EnableUnitFiles") {
                sd_bus_message_read(m, "bb", &runtime, &force);
                call += " runtime=" + std::to_string(runtime) + " force=" + std::to_string(force);
            } else {
                sd_bus_message_read(m, "b", &runtime);
                call += " runtime=" + std::to_string(runtime);
            }
        } else if (method != "Reload") {
            const char* a = nullptr;
            const char* b = nullptr;
            if (method == "GetUnitFileState") {
                sd_bus_message_read(m, "s", &a);
            } else {
                sd_bus_message_read(m, "ss", &a, &b);
            }
            call += std::string(" ") + (a ? a : "?") + (b ? std::string(" ") + b : "");
        }
        std::string state;
        {
            std::lock_guard lock(self->mutex_);
            self->calls_.push_back(call);
            if (method == self->failing_) {
                return sd_bus_error_set(error, "org.freedesktop.systemd1.UnitMasked", "Unit file is masked.");
            }
            state = self->state_;
        }
        if (method == "EnableUnitFiles") return sd_bus_reply_method_return(m, "ba(sss)", 1, 0);
        if (method == "DisableUnitFiles") return sd_bus_reply_method_return(m, "a(sss)", 0);
        if (method == "GetUnitFileState") return sd_bus_reply_method_return(m, "s", state.c_str());
        if (method == "Reload") return sd_bus_reply_method_return(m, "");
        return sd_bus_reply_method_return(m, "o", "/org/freedesktop/systemd1/job/1");
    }
    static int version(sd_bus*, const char*, const char*, const char*, sd_bus_message* reply, void*,
                       sd_bus_error*) {
        return sd_bus_message_append(reply, "s", "252");
    }
    static const sd_bus_vtable vtable[];

    sd_bus* bus_ = nullptr;
    bool ready_ = false;
    std::atomic<bool> stop_{false};
    std::thread thread_;
    std::mutex mutex_;
    std::vector<std::string> calls_;
    std::string state_ = "disabled";
    std::string failing_;
};

const sd_bus_vtable FakeManager::vtable[] = {
    SD_BUS_VTABLE_START(0),
    SD_BUS_PROPERTY("Version", "s", FakeManager::version, 0, SD_BUS_VTABLE_PROPERTY_CONST),
    SD_BUS_METHOD("Reload", "", "", FakeManager::handle, 0),
    SD_BUS_METHOD("EnableUnitFiles", "asbb", "ba(sss)", FakeManager::handle, 0),
    SD_BUS_METHOD("DisableUnitFiles", "asb", "a(sss)", FakeManager::handle, 0),
    SD_BUS_METHOD("StartUnit", "ss", "o", FakeManager::handle, 0),
    SD_BUS_METHOD("StopUnit", "ss", "o", FakeManager::handle, 0),
    SD_BUS_METHOD("GetUnitFileState", "s", "s", FakeManager::handle, 0),
    SD_BUS_VTABLE_END,
};

TEST(SystemdAgentService, ABusWithoutSystemdIsNotFound) {
    if (!toolExists("dbus-daemon")) GTEST_SKIP() << "dbus-daemon is not installed";
    TempFolder temp;
    PrivateBus bus(temp.path());
    ASSERT_TRUE(bus.ready());
    auto service = std::make_shared<SystemdAgentService>(makeAgent(temp.path() + "/bin"));
    quorv::HostScope scope(testHost(temp, service, {{"DBUS_SESSION_BUS_ADDRESS", bus.address()}}));
    EXPECT_EQ(service->status(), ServiceStatus::notFound);
    std::string error;
    EXPECT_FALSE(service->registerService(error));
    EXPECT_EQ(error.rfind("The systemd user manager can't be reached: ", 0), 0u) << error;
    EXPECT_EQ(entriesOf(SystemdAgentService::unitFolder()), std::vector<std::string>{});
}

TEST(SystemdAgentService, RegistersAndUnregistersThroughTheUserManager) {
    if (!toolExists("dbus-daemon")) GTEST_SKIP() << "dbus-daemon is not installed";
    TempFolder temp;
    PrivateBus bus(temp.path());
    ASSERT_TRUE(bus.ready());
    FakeManager manager(bus.address());
    ASSERT_TRUE(manager.ready());
    const std::string agent = makeAgent(temp.path() + "/Brimstell Apps");
    auto service = std::make_shared<SystemdAgentService>(agent);
    // The bus is found through XDG_RUNTIME_DIR, the units go to XDG_CONFIG_HOME.
    quorv::HostScope scope(
        testHost(temp, service, {{"XDG_RUNTIME_DIR", temp.path()}, {"XDG_CONFIG_HOME", temp.path() + "/cfg"}}));
    const std::string folder = temp.path() + "/cfg/systemd/user";

    EXPECT_EQ(service->status(), ServiceStatus::notRegistered);
    EXPECT_EQ(manager.takeCalls(), std::vector<std::string>{});

    manager.setState("enabled");
    AgentService::apply();
    EXPECT_EQ(manager.takeCalls(), (std::vector<std::string>{
                                       "Reload",
                                       "EnableUnitFiles brimstell-agent.timer runtime=0 force=1",
                                       "StartUnit brimstell-agent.timer replace",
                                   }));
    EXPECT_EQ(entriesOf(folder), (std::vector<std::string>{"brimstell-agent.service", "brimstell-agent.timer"}));
    EXPECT_EQ(files::read(folder + "/brimstell-agent.timer"), SystemdAgentService::unitTexts(agent).timer);
    const auto serviceText = files::read(folder + "/brimstell-agent.service");
    ASSERT_TRUE(serviceText);
    EXPECT_NE(serviceText->find("\nExecStart=\"" + agent + "\"\n"), std::string::npos);

    const struct {
        const char* state;
        ServiceStatus status;
    } rows[] = {
        {"enabled", ServiceStatus::enabled},
        {"enabled-runtime", ServiceStatus::enabled},
        {"disabled", ServiceStatus::requiresApproval},
        {"masked", ServiceStatus::requiresApproval},
    };
    for (const auto& row : rows) {
        manager.setState(row.state);
        EXPECT_EQ(service->status(), row.status) << row.state;
        EXPECT_EQ(manager.takeCalls(), std::vector<std::string>{"GetUnitFileState brimstell-agent.timer"});
    }

    // Switched off by the user outside Brimstell: apply leaves it alone either way.
    manager.setState("disabled");
    AgentService::apply();
    ASSERT_TRUE(quorv::settings().set("backgroundChecks", false));
    AgentService::apply();
    EXPECT_EQ(manager.takeCalls(), (std::vector<std::string>{"GetUnitFileState brimstell-agent.timer",
                                                             "GetUnitFileState brimstell-agent.timer"}));

    manager.setState("enabled");
    AgentService::apply();
    EXPECT_EQ(manager.takeCalls(), (std::vector<std::string>{
                                       "GetUnitFileState brimstell-agent.timer",
                                       "StopUnit brimstell-agent.timer replace",
                                       "DisableUnitFiles brimstell-agent.timer runtime=0",
                                       "Reload",
                                   }));
    EXPECT_EQ(entriesOf(folder), std::vector<std::string>{});
    EXPECT_EQ(service->status(), ServiceStatus::notRegistered);
}

TEST(SystemdAgentService, AFailedRegistrationIsTakenBack) {
    if (!toolExists("dbus-daemon")) GTEST_SKIP() << "dbus-daemon is not installed";
    TempFolder temp;
    PrivateBus bus(temp.path());
    ASSERT_TRUE(bus.ready());
    FakeManager manager(bus.address());
    ASSERT_TRUE(manager.ready());
    auto service = std::make_shared<SystemdAgentService>(makeAgent(temp.path() + "/bin"));
    quorv::HostScope scope(testHost(temp, service, {{"DBUS_SESSION_BUS_ADDRESS", bus.address()}}));

    manager.failing("EnableUnitFiles");
    std::string error;
    EXPECT_FALSE(service->registerService(error));
    EXPECT_EQ(error, "EnableUnitFiles failed: Unit file is masked.");
    EXPECT_EQ(manager.takeCalls(), (std::vector<std::string>{
                                       "Reload",
                                       "EnableUnitFiles brimstell-agent.timer runtime=0 force=1",
                                       "StopUnit brimstell-agent.timer replace",
                                       "DisableUnitFiles brimstell-agent.timer runtime=0",
                                       "Reload",
                                   }));
    EXPECT_EQ(entriesOf(SystemdAgentService::unitFolder()), std::vector<std::string>{});
    EXPECT_EQ(service->status(), ServiceStatus::notRegistered);
}

#endif  // __APPLE__

}  // namespace
