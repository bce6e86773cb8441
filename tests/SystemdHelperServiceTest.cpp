// The root helper's registration with the systemd system manager: the units it writes, the
// helpers it refuses to have root run, and its calls to a stand-in manager on a private bus.

#ifndef __APPLE__

#include <sys/stat.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include <filesystem>
#include <sstream>

#include "kit/files/SystemdHelperService.hpp"
#include "support/FakeManager.hpp"
#include "support/PrivateBus.hpp"
#include "support/TestSupport.hpp"
#include "support/posix/Files.hpp"
#include "support/posix/RootControlled.hpp"

namespace {

using brimstell::SystemdHelperService;
using quorv::ServiceStatus;
using testing_support::entriesOf;
using testing_support::TempDir;
namespace fs = std::filesystem;
namespace files = quorv::files;

std::vector<std::string> withoutComments(const std::string& text) {
    std::vector<std::string> lines;
    std::istringstream in(text);
    for (std::string line; std::getline(in, line);) {
        if (!line.empty() && line[0] != '#') lines.push_back(line);
    }
    return lines;
}

TEST(SystemdHelperService, WritesTheUnitsThatShipWithIt) {
    const auto texts = SystemdHelperService::unitTexts("/usr/local/bin/brimstell-helper");
    const std::string shipped = std::string(BRIMSTELL_SOURCE_DIR) + "/helper/systemd/";
    EXPECT_EQ(withoutComments(texts.service), withoutComments(testing_support::readText(shipped + "brimstell-helper.service")));
    EXPECT_EQ(withoutComments(texts.socket), withoutComments(testing_support::readText(shipped + "brimstell-helper.socket")));
    EXPECT_NE(texts.socket.find("\nListenStream=/run/brimstell/helper.sock\nSocketMode=0666\n"), std::string::npos);
    EXPECT_NE(SystemdHelperService::unitTexts("/opt/My Apps/brimstell-helper").service.find(
                  "\nExecStart=\"/opt/My Apps/brimstell-helper\"\n"),
              std::string::npos);

    const auto analyze = testing_support::findTool("systemd-analyze");
    if (!analyze) GTEST_SKIP() << "systemd-analyze is not installed";
    TempDir temp;
    const auto real = SystemdHelperService::unitTexts(BRIMSTELL_HELPER_EXE);
    ASSERT_TRUE(files::writeAtomically(temp / "brimstell-helper.service", real.service));
    ASSERT_TRUE(files::writeAtomically(temp / "brimstell-helper.socket", real.socket));
    const auto verify = testing_support::runProgram(
        *analyze, {"verify", "--man=no", temp / "brimstell-helper.socket", temp / "brimstell-helper.service"}, {});
    EXPECT_EQ(verify.status, 0) << verify.output;
}

// Root runs the helper: a file that anyone else could change, or change the folders of, is never
// registered.
TEST(SystemdHelperService, RefusesAHelperOthersCouldChange) {
    TempDir temp;
    const std::string units = temp / "units";
    fs::create_directories(units);
    const std::string exe = testing_support::readText(BRIMSTELL_HELPER_EXE);
    auto install = [&](const std::string& path, mode_t fileMode, mode_t folderMode) {
        fs::create_directories(fs::path(path).parent_path());
        EXPECT_TRUE(files::writeAtomically(path, exe, fileMode));
        ::chmod(path.c_str(), fileMode);
        ::chmod(fs::path(path).parent_path().c_str(), folderMode);
        return path;
    };
    const auto notRootOnly = [&](const std::string& name) {
        return "The helper must be an executable that only root can change, in folders only root can change: " +
               temp / name + ".";
    };
    const struct {
        const char* name;
        std::string helper;
        std::string error;
    } rows[] = {
        {"missing", temp / "nowhere/brimstell-helper", "The helper executable is missing: " + temp / "nowhere/brimstell-helper."},
        {"relative", "brimstell-helper", "The helper executable is missing: brimstell-helper."},
        {"in a folder anyone may write", install(temp / "open/brimstell-helper", 0755, 0777),
         notRootOnly("open/brimstell-helper")},
        {"writable by others", install(temp / "loose/brimstell-helper", 0757, 0755), notRootOnly("loose/brimstell-helper")},
        {"not executable", install(temp / "plain/brimstell-helper", 0644, 0755), notRootOnly("plain/brimstell-helper")},
        {"quoted", install(temp / "it's/brimstell-helper", 0755, 0755),
         "systemd can't run the helper from a path with quotes, backslashes or control characters."},
    };
    fs::create_directory_symlink(temp / "open", temp / "link");
    quorv::HostScope scope(quorv::hostFromEnvironment({{"DBUS_SYSTEM_BUS_ADDRESS", "unix:path=" + temp / "no-bus"}}));
    for (const auto& row : rows) {
        SCOPED_TRACE(row.name);
        SystemdHelperService service(row.helper, units);
        EXPECT_EQ(service.status(), ServiceStatus::notFound);
        std::string error;
        EXPECT_FALSE(service.registerService(error));
        EXPECT_EQ(error, row.error);
        EXPECT_EQ(entriesOf(units), std::vector<std::string>{});
    }
    // Through a link: refused even when the file at its end would do.
    EXPECT_FALSE(quorv::rootControlled(temp / "link/brimstell-helper"));
}

class SystemdHelperOnPrivateBus : public testing_support::PrivateBusTest {};

TEST_F(SystemdHelperOnPrivateBus, RegistersAndUnregistersThroughTheSystemManager) {
    const auto helper = quorv::rootControlled(BRIMSTELL_HELPER_EXE);
    if (!helper) GTEST_SKIP() << "the built helper can be changed by others than root (a build that isn't root's)";
    testing_support::FakeManager manager(bus->address());
    ASSERT_TRUE(manager.ready());
    const std::string units = dir / "system";
    fs::create_directories(units);
    quorv::HostScope scope(quorv::hostFromEnvironment({{"DBUS_SYSTEM_BUS_ADDRESS", bus->address()}}));
    SystemdHelperService service(BRIMSTELL_HELPER_EXE, units);

    EXPECT_EQ(service.status(), ServiceStatus::notRegistered);
    EXPECT_EQ(manager.takeCalls(), std::vector<std::string>{});

    std::string error;
    ASSERT_TRUE(service.registerService(error)) << error;
    EXPECT_EQ(manager.takeCalls(), (std::vector<std::string>{
                                       "Reload",
                                       R"(EnableUnitFiles ["brimstell-helper.socket"] false true)",
                                       R"(StartUnit "brimstell-helper.socket" "replace")",
                                   }));
    EXPECT_EQ(entriesOf(units), (std::vector<std::string>{"brimstell-helper.service", "brimstell-helper.socket"}));
    EXPECT_NE(testing_support::readText(units + "/brimstell-helper.service")
                  .find("\nExecStart=" + std::string(BRIMSTELL_HELPER_EXE) + "\n"),
              std::string::npos);

    // The socket's state is the helper's (the mapping itself is the agent's, tested there).
    manager.setState("enabled");
    EXPECT_EQ(service.status(), ServiceStatus::enabled);
    manager.setState("masked");
    EXPECT_EQ(service.status(), ServiceStatus::requiresApproval);
    EXPECT_EQ(manager.takeCalls(), (std::vector<std::string>{R"(GetUnitFileState "brimstell-helper.socket")",
                                                             R"(GetUnitFileState "brimstell-helper.socket")"}));

    ASSERT_TRUE(service.unregisterService(error)) << error;
    EXPECT_EQ(manager.takeCalls(), (std::vector<std::string>{
                                       R"(StopUnit "brimstell-helper.socket" "replace")",
                                       R"(StopUnit "brimstell-helper.service" "replace")",
                                       R"(DisableUnitFiles ["brimstell-helper.socket"] false)",
                                       "Reload",
                                   }));
    EXPECT_EQ(entriesOf(units), std::vector<std::string>{});

    // A manager that refuses to enable: nothing stays behind.
    manager.failing("EnableUnitFiles");
    EXPECT_FALSE(service.registerService(error));
    EXPECT_EQ(error, "EnableUnitFiles failed: Unit file is masked.");
    EXPECT_EQ(entriesOf(units), std::vector<std::string>{});
}

// Without libsystemd the system manager counts as out of reach, with a reason that names the library,
// and the unit files stay as they are.
TEST_F(SystemdHelperOnPrivateBus, WithoutTheLibraryTheManagerCantBeReached) {
    testing_support::FakeManager manager(bus->address());
    ASSERT_TRUE(manager.ready());
    const std::string units = dir / "system";
    fs::create_directories(units);
    ASSERT_TRUE(quorv::files::writeAtomically(units + "/brimstell-helper.socket", "kept\n"));
    quorv::HostScope scope(quorv::hostFromEnvironment({{"DBUS_SYSTEM_BUS_ADDRESS", bus->address()}}));
    SystemdHelperService service(BRIMSTELL_HELPER_EXE, units);
    testing_support::SdBusLibraryNamed missing("libbrimstell-absent-sd-bus.so.0");
    std::string error;
    EXPECT_FALSE(service.unregisterService(error));
    EXPECT_EQ(error, "The systemd system manager can't be reached: libbrimstell-absent-sd-bus.so.0 can't be loaded.");
    EXPECT_EQ(entriesOf(units), std::vector<std::string>{"brimstell-helper.socket"});
    EXPECT_EQ(manager.takeCalls(), std::vector<std::string>{});
}

}  // namespace

#endif  // __APPLE__
