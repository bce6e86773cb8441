#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <iterator>
#include <map>
#include <memory>
#include <optional>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

#include "kit/agent/AgentService.hpp"
#include "kit/agent/RecordedAgentService.hpp"
#include "kit/agent/SystemdAgentService.hpp"
#include "support/FakeManager.hpp"
#include "support/PrivateBus.hpp"
#include "support/TestSupport.hpp"
#include "support/host/Host.hpp"
#include "support/posix/Files.hpp"
#include "support/settings/PlistFileStore.hpp"

namespace {

using brimstell::AgentService;
using brimstell::RecordedAgentService;
using quorv::ServiceStatus;
using testing_support::TempDir;
namespace fs = std::filesystem;
namespace files = quorv::files;

class FakeRegistrar final : public quorv::ServiceRegistrar {
public:
    ServiceStatus current = ServiceStatus::notRegistered;
    int registers = 0, unregisters = 0;
    bool refuse = false, throws = false;

    ServiceStatus status() override { return current; }
    bool registerService(std::string& error) override { return answer(registers, error); }
    bool unregisterService(std::string& error) override { return answer(unregisters, error); }

private:
    bool answer(int& count, std::string& error) {
        ++count;
        if (throws) throw std::runtime_error("registrar broke");
        if (refuse) error = "refused";
        return !refuse;
    }
};

// A host with a settings file in a temp folder, which is also the home folder, and the given registrar.
std::shared_ptr<quorv::Host> testHost(const TempDir& temp, std::shared_ptr<quorv::ServiceRegistrar> registrar,
                                      std::map<std::string, std::string> env = {}) {
    env.emplace("HOME", temp.path());
    auto h = quorv::hostFromEnvironment(env);
    h->settings = std::make_shared<quorv::PlistFileStore>(temp / "settings.plist");
    h->agentService = std::move(registrar);
    return h;
}

// Registers only from "not registered" or "not found", unregisters only from "enabled". A registrar
// that refuses or throws changes nothing else: apply doesn't throw and the switch keeps its value.
TEST(AgentService, ApplyBringsTheRegistrationInLineWithTheSwitch) {
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
            for (const std::string registrar : {"working", "refusing", "throwing"}) {
                SCOPED_TRACE(std::string(row.name) + ", status " + std::to_string(s) + ", " + registrar);
                TempDir temp;
                auto fake = std::make_shared<FakeRegistrar>();
                fake->current = static_cast<ServiceStatus>(s);
                fake->refuse = registrar == "refusing";
                fake->throws = registrar == "throwing";
                quorv::HostScope scope(testHost(temp, fake));
                if (row.value) {
                    ASSERT_TRUE(quorv::settings().set("backgroundChecks", *row.value));
                }
                EXPECT_EQ(AgentService::isOn(), row.on);
                EXPECT_NO_THROW(AgentService::apply());
                EXPECT_EQ(fake->registers, row.actions[s] == 'R' ? 1 : 0);
                EXPECT_EQ(fake->unregisters, row.actions[s] == 'U' ? 1 : 0);
                EXPECT_EQ(quorv::settings().object("backgroundChecks"), row.value);
            }
        }
    }
}

TEST(AgentService, StatusTextsAndAHostWithoutARegistrar) {
    EXPECT_STREQ(AgentService::statusText(ServiceStatus::notRegistered), "not registered");
    EXPECT_STREQ(AgentService::statusText(ServiceStatus::enabled), "enabled");
    EXPECT_STREQ(AgentService::statusText(ServiceStatus::requiresApproval), "requires approval");
    EXPECT_STREQ(AgentService::statusText(ServiceStatus::notFound), "not found");
    // Without a registrar: not found, nothing to apply, nothing blocked.
    TempDir temp;
    quorv::HostScope scope(testHost(temp, nullptr));
    EXPECT_EQ(AgentService::status(), ServiceStatus::notFound);
    EXPECT_FALSE(AgentService::blockedInSettings());
    EXPECT_NO_THROW(AgentService::apply());
}

TEST(RecordedAgentService, KeepsTheStateInItsFile) {
    TempDir temp;
    const std::string file = temp / "private/var/db/com.quorv.brimstell/agent-service-state";
    RecordedAgentService service(file);
    std::string error;
    EXPECT_EQ(service.status(), ServiceStatus::notRegistered);
    EXPECT_TRUE(service.registerService(error));
    EXPECT_EQ(files::read(file), "1\n");
    EXPECT_TRUE(service.registerService(error));
    EXPECT_EQ(service.status(), ServiceStatus::enabled);
    EXPECT_TRUE(service.unregisterService(error));
    EXPECT_EQ(files::read(file), "0\n");

    // A test plays a pending approval: registering is refused and changes nothing.
    ASSERT_TRUE(files::writeAtomically(file, "2"));
    EXPECT_FALSE(service.registerService(error));
    EXPECT_FALSE(error.empty());
    EXPECT_EQ(service.status(), ServiceStatus::requiresApproval);

    ASSERT_TRUE(files::writeAtomically(file, "3\n"));
    EXPECT_EQ(service.status(), ServiceStatus::notFound);
    EXPECT_TRUE(service.registerService(error));
    EXPECT_EQ(service.status(), ServiceStatus::enabled);
    // No temporary files are left beside the state.
    EXPECT_EQ(std::distance(fs::directory_iterator(files::parentOf(file)), fs::directory_iterator()), 1);

    // White space around the digit is fine; anything else counts as not registered.
    ASSERT_TRUE(files::writeAtomically(file, " 2 \n"));
    EXPECT_EQ(service.status(), ServiceStatus::requiresApproval);
    for (const char* text : {"", "\n", "4", "12", "-1", "1 1", "x", "1x", "\xff"}) {
        ASSERT_TRUE(files::writeAtomically(file, text));
        EXPECT_EQ(service.status(), ServiceStatus::notRegistered) << text;
    }
    // A folder where the file should be: unreadable, and registering fails with a reason.
    fs::remove(file);
    fs::create_directory(file);
    EXPECT_EQ(service.status(), ServiceStatus::notRegistered);
    EXPECT_FALSE(service.registerService(error));
    EXPECT_EQ(error, "Could not write " + file + ".");
}

#ifndef __APPLE__

using brimstell::SystemdAgentService;
using testing_support::entriesOf;

std::string makeAgent(const std::string& folder) {
    const std::string agent = folder + "/brimstell-agent";
    EXPECT_TRUE(files::writeAtomically(agent, "#!/bin/sh\nexit 0\n", 0755));
    return agent;
}

TEST(SystemdAgentService, MapsTheUserManagersViewOntoTheFourStates) {
    const struct {
        bool reachable;
        bool present;
        const char* state;
        ServiceStatus expected;
    } rows[] = {
        {false, true, "enabled", ServiceStatus::notFound},     {false, false, "", ServiceStatus::notFound},
        {true, false, "", ServiceStatus::notRegistered},       {true, false, "enabled", ServiceStatus::notRegistered},
        {true, true, "enabled", ServiceStatus::enabled},       {true, true, "enabled-runtime", ServiceStatus::enabled},
        {true, true, "disabled", ServiceStatus::requiresApproval}, {true, true, "masked", ServiceStatus::requiresApproval},
        {true, true, "masked-runtime", ServiceStatus::requiresApproval}, {true, true, "static", ServiceStatus::notRegistered},
        {true, true, "linked", ServiceStatus::notRegistered},  {true, true, "bad", ServiceStatus::notRegistered},
        {true, true, "", ServiceStatus::notRegistered},        {true, true, "Enabled", ServiceStatus::notRegistered},
    };
    for (const auto& row : rows) {
        EXPECT_EQ(SystemdAgentService::mapState(row.reachable, row.present, row.state), row.expected)
            << row.reachable << " " << row.present << " " << row.state;
    }
}

TEST(SystemdAgentService, UnitTextsThatSystemdAccepts) {
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

    const auto analyze = testing_support::findTool("systemd-analyze");
    if (!analyze) GTEST_SKIP() << "systemd-analyze is not installed";
    TempDir temp;
    const auto texts = SystemdAgentService::unitTexts(makeAgent(temp / "My Apps/100% $HOME \xc3\x9c" "ber \xff"));
    ASSERT_TRUE(files::writeAtomically(temp / "units/brimstell-agent.service", texts.service));
    ASSERT_TRUE(files::writeAtomically(temp / "units/brimstell-agent.timer", texts.timer));
    const auto verify = testing_support::runProgram(
        *analyze, {"verify", "--man=no", temp / "units/brimstell-agent.service", temp / "units/brimstell-agent.timer"}, {});
    EXPECT_EQ(verify.status, 0) << verify.output;
}

TEST(SystemdAgentService, FindsItsFolderAndBusInTheHostsEnvironment) {
    TempDir temp;
    const struct {
        std::map<std::string, std::string> env;
        std::string folder;  // after the home folder when it starts with "~"
        std::optional<std::string> bus;
    } rows[] = {
        {{}, "~/.config/systemd/user", std::nullopt},
        {{{"XDG_CONFIG_HOME", "/srv/cfg/"}, {"XDG_RUNTIME_DIR", "/run/user/1000"}}, "/srv/cfg/systemd/user", "unix:path=/run/user/1000/bus"},
        {{{"XDG_CONFIG_HOME", "cfg"}, {"XDG_RUNTIME_DIR", "run/user"}}, "~/.config/systemd/user", std::nullopt},
        {{{"XDG_RUNTIME_DIR", "/run/my user"}}, "~/.config/systemd/user", "unix:path=/run/my%20user/bus"},
        {{{"DBUS_SESSION_BUS_ADDRESS", "unix:path=/tmp/b"}, {"XDG_RUNTIME_DIR", "/run/user/1000"}}, "~/.config/systemd/user", "unix:path=/tmp/b"},
        {{{"DBUS_SESSION_BUS_ADDRESS", ""}, {"XDG_RUNTIME_DIR", "/run/user/7"}}, "~/.config/systemd/user", "unix:path=/run/user/7/bus"},
    };
    for (const auto& row : rows) {
        quorv::HostScope scope(testHost(temp, nullptr, row.env));
        const std::string folder = row.folder[0] == '~' ? temp.path() + row.folder.substr(1) : row.folder;
        EXPECT_EQ(SystemdAgentService::unitFolder(), folder);
        EXPECT_EQ(SystemdAgentService::busAddress(), row.bus);
    }
}

using testing_support::FakeManager;

class SystemdOnPrivateBus : public testing_support::PrivateBusTest {};

// Whatever stands in the way, the agent counts as not found and registering leaves no unit files.
TEST_F(SystemdOnPrivateBus, UnreachableOrUnrunnableIsNotFoundAndWritesNothing) {
    const std::string agent = makeAgent(dir / "bin");
    const struct {
        const char* name;
        std::string agent;
        std::map<std::string, std::string> env;
        std::string error;  // how the reason starts
    } rows[] = {
        {"no user bus", agent, {}, "The systemd user manager can't be reached: there is no user bus."},
        {"a missing bus", agent, {{"DBUS_SESSION_BUS_ADDRESS", "unix:path=" + dir / "no-such-bus"}},
         "The systemd user manager can't be reached: "},
        {"a bus without systemd", agent, busEnvironment(), "The systemd user manager can't be reached: "},
        {"a missing agent", dir / "nowhere/brimstell-agent", busEnvironment(),
         "The agent executable is missing: " + dir / "nowhere/brimstell-agent."},
        {"a relative agent", "brimstell-agent", busEnvironment(), "The agent executable is missing: brimstell-agent."},
        {"a path systemd refuses", makeAgent(dir / "it's"), busEnvironment(),
         "systemd can't run the agent from a path with quotes, backslashes or control characters."},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.name);
        auto service = std::make_shared<SystemdAgentService>(row.agent);
        quorv::HostScope scope(testHost(dir, service, row.env));
        EXPECT_EQ(service->status(), ServiceStatus::notFound);
        std::string error;
        EXPECT_FALSE(service->registerService(error));
        EXPECT_EQ(error.rfind(row.error, 0), 0u) << error;
        EXPECT_FALSE(service->unregisterService(error));
        AgentService::apply();
        EXPECT_EQ(entriesOf(SystemdAgentService::unitFolder()), std::vector<std::string>{});
    }
}

// Without libsystemd (or with one that lacks a function) the user manager is out of reach: the
// agent counts as not found, registering says why and writes nothing, and the manager hears nothing.
TEST_F(SystemdOnPrivateBus, WithoutTheLibraryTheUserManagerCantBeReached) {
    FakeManager manager(bus->address());
    ASSERT_TRUE(manager.ready());
    auto service = std::make_shared<SystemdAgentService>(makeAgent(dir / "bin"));
    quorv::HostScope scope(testHost(dir, service, {{"XDG_RUNTIME_DIR", dir.path()}, {"XDG_CONFIG_HOME", dir / "cfg"}}));
    for (const std::string library : {"libbrimstell-absent-sd-bus.so.0", "libc.so.6"}) {
        SCOPED_TRACE(library);
        testing_support::SdBusLibraryNamed named(library);
        EXPECT_EQ(service->status(), ServiceStatus::notFound);
        std::string error;
        EXPECT_FALSE(service->registerService(error));
        EXPECT_EQ(error, "The systemd user manager can't be reached: " + library + " can't be loaded.");
        EXPECT_FALSE(service->unregisterService(error));
        EXPECT_FALSE(fs::exists(dir / "cfg/systemd/user/brimstell-agent.timer"));
        EXPECT_EQ(manager.takeCalls(), std::vector<std::string>{});
    }
    EXPECT_EQ(service->status(), ServiceStatus::notRegistered) << "the library again once it can be loaded";
}

TEST_F(SystemdOnPrivateBus, RegistersAndUnregistersThroughTheUserManager) {
    FakeManager manager(bus->address());
    ASSERT_TRUE(manager.ready());
    const std::string agent = makeAgent(dir / "Brimstell Apps");
    auto service = std::make_shared<SystemdAgentService>(agent);
    // The bus is found through XDG_RUNTIME_DIR, the units go to XDG_CONFIG_HOME.
    quorv::HostScope scope(testHost(dir, service, {{"XDG_RUNTIME_DIR", dir.path()}, {"XDG_CONFIG_HOME", dir / "cfg"}}));
    const std::string folder = dir / "cfg/systemd/user";

    EXPECT_EQ(service->status(), ServiceStatus::notRegistered);
    EXPECT_EQ(manager.takeCalls(), std::vector<std::string>{});

    // A registration the manager refuses is taken back.
    manager.failing("EnableUnitFiles");
    std::string error;
    EXPECT_FALSE(service->registerService(error));
    EXPECT_EQ(error, "EnableUnitFiles failed: Unit file is masked.");
    EXPECT_EQ(manager.takeCalls(), (std::vector<std::string>{
                                       "Reload",
                                       R"(EnableUnitFiles ["brimstell-agent.timer"] false true)",
                                       R"(StopUnit "brimstell-agent.timer" "replace")",
                                       R"(DisableUnitFiles ["brimstell-agent.timer"] false)",
                                       "Reload",
                                   }));
    EXPECT_EQ(entriesOf(folder), std::vector<std::string>{});
    EXPECT_EQ(service->status(), ServiceStatus::notRegistered);
    manager.takeCalls();
    manager.failing("");

    manager.setState("enabled");
    AgentService::apply();
    EXPECT_EQ(manager.takeCalls(), (std::vector<std::string>{
                                       "Reload",
                                       R"(EnableUnitFiles ["brimstell-agent.timer"] false true)",
                                       R"(StartUnit "brimstell-agent.timer" "replace")",
                                   }));
    EXPECT_EQ(entriesOf(folder), (std::vector<std::string>{"brimstell-agent.service", "brimstell-agent.timer"}));
    EXPECT_NE(files::read(folder + "/brimstell-agent.service").value_or("").find("\nExecStart=\"" + agent + "\"\n"),
              std::string::npos);
    EXPECT_EQ(service->status(), ServiceStatus::enabled);
    EXPECT_EQ(manager.takeCalls(), std::vector<std::string>{R"(GetUnitFileState "brimstell-agent.timer")"});

    // Switched off by the user outside Brimstell: apply leaves it alone either way.
    manager.setState("disabled");
    AgentService::apply();
    ASSERT_TRUE(quorv::settings().set("backgroundChecks", false));
    AgentService::apply();
    EXPECT_EQ(manager.takeCalls(), (std::vector<std::string>{R"(GetUnitFileState "brimstell-agent.timer")",
                                                             R"(GetUnitFileState "brimstell-agent.timer")"}));

    manager.setState("enabled");
    AgentService::apply();
    EXPECT_EQ(manager.takeCalls(), (std::vector<std::string>{
                                       R"(GetUnitFileState "brimstell-agent.timer")",
                                       R"(StopUnit "brimstell-agent.timer" "replace")",
                                       R"(DisableUnitFiles ["brimstell-agent.timer"] false)",
                                       "Reload",
                                   }));
    EXPECT_EQ(entriesOf(folder), std::vector<std::string>{});
    EXPECT_EQ(service->status(), ServiceStatus::notRegistered);
}

#endif  // __APPLE__

}  // namespace
