// The developer page against a sandbox Mac whose brew, docker, xcrun and xcode-select log every
// command line: what loads, what each operation runs (and what it never runs), and the lines shown.

#include <gtest/gtest.h>

#include "kit/developer/Brew.hpp"
#include "kit/developer/DeveloperModel.hpp"
#include "kit/developer/Docker.hpp"
#include "kit/sandbox/SandboxDeveloper.hpp"
#include "support/TestSupport.hpp"

namespace {

using namespace brimstell;
using Tools = SandboxDeveloperTools;
using Lines = std::vector<std::string>;

struct DevMac {
    explicit DevMac(const Tools& tools = {}) {
        addDeveloperTools(sb.mac, tools);
        scope = std::make_unique<quorv::HostScope>(sb.host);
    }
    Lines log() const { return testing_support::linesOf(sb.mac.path("/private/var/log/tools.log")); }
    // The command lines run since the log was last taken.
    Lines since() {
        auto all = log();
        Lines fresh(all.begin() + static_cast<std::ptrdiff_t>(std::min(seen, all.size())), all.end());
        seen = all.size();
        return fresh;
    }
    testing_support::SandboxHost sb;
    std::unique_ptr<quorv::HostScope> scope;
    std::size_t seen = 0;
};

constexpr const char* brew = "/opt/homebrew/bin/brew";
constexpr const char* docker = "/usr/local/bin/docker";

TEST(DeveloperModel, LoadsEverySection) {
    DevMac m;
    DeveloperModel model;
    model.load();
    Lines shown;
    for (const auto& p : model.brew.packages) shown.push_back(p.id() + " " + std::to_string(p.bytes / 100'000) + " " + p.available);
    EXPECT_EQ(shown, (Lines{"formula:neovim 34 0.10.1", "cask:firefox 20 121.0", "cask:discord 11 ", "formula:jq 6 "}));
    EXPECT_EQ(DeveloperModel::dependenciesLine(model.brew.dependencies.size()), "Installed as dependencies · 2");
    EXPECT_EQ(DeveloperModel::oldVersionsLine(model.brew.preview.bytes()), "Old versions and downloads · 41.4 MB");
    EXPECT_EQ(DeveloperModel::unusedDependenciesLine(model.brew.preview.unusedDependencies.size()),
              "2 dependencies nothing needs any more:");
    ASSERT_EQ(model.docker.usage.size(), 4u);
    EXPECT_TRUE(model.docker.running);
    EXPECT_EQ(model.xcode.simulators.size(), 4u);
    EXPECT_EQ(DeveloperModel::goneSimulatorsLine(model.xcode.unavailable().size(), 1'214'000'000),
              "2 simulators whose runtime is gone · 1.21 GB");
    EXPECT_EQ(model.xcode.runtimes.size(), 3u);
    EXPECT_EQ(model.cleanAllBytes(), 1'214'000'000LL + 1'224'000'000 + 2'310'000'000 + 41'418'752);
    EXPECT_EQ(testing_support::readText(m.sb.mac.path("/private/var/log/brew.env")),
              "1 1 1 PATH=/opt/homebrew/bin:/usr/local/bin:/usr/bin:/bin:/usr/sbin:/sbin\n");
}

TEST(DeveloperModel, HostileNamesAndIdentifiersNeverReachATool) {
    DevMac m;
    DeveloperModel model;
    for (const char* name : {"-rf", "--force", "a b", "cask:-x", "formula:jq --debug", "", "cask:"}) {
        EXPECT_FALSE(model.upgrade(name)) << name;
        EXPECT_FALSE(model.uninstall(name)) << name;
    }
    EXPECT_EQ(model.message, "\"cask:\" isn't a package name");
    for (const char* id : {"6F1C3E52-8B7A-4D2E-9C41-2A5B7D9E0F1", "../../../../tmp/x-aaaaaaaaaaaaaaaaaaaaaaaa", "-h", "unavailable"}) {
        EXPECT_FALSE(model.deleteSimulator(id)) << id;
        EXPECT_FALSE(model.deleteRuntime(id)) << id;
    }
    EXPECT_EQ(model.message, "\"unavailable\" isn't a simulator or runtime identifier");
    EXPECT_EQ(m.log(), Lines{});
}

TEST(DeveloperModel, CleanAllOrderAndWhatItNeverTouches) {
    DevMac m;
    DeveloperModel model;
    model.load();
    m.since();
    EXPECT_TRUE(model.cleanAll());
    EXPECT_EQ(model.message, "Cleaned · about 4.79 GB");
    const auto ran = m.since();
    const Lines cleaning(ran.begin(), ran.begin() + 5);
    EXPECT_EQ(cleaning, (Lines{"/usr/bin/xcrun simctl delete unavailable", std::string(docker) + " container prune -f",
                               std::string(docker) + " builder prune -a -f", std::string(brew) + " cleanup",
                               std::string(brew) + " autoremove"}));
    for (const auto& line : m.log()) {
        EXPECT_EQ(line.find("image prune"), std::string::npos) << line;
        EXPECT_EQ(line.find("volume"), std::string::npos) << line;
    }
    EXPECT_EQ(model.cleanAllBytes(), 0) << "the listing after shows what is gone";
    EXPECT_TRUE(model.cleanAll());
    EXPECT_EQ(model.message, "Nothing safe to clean in one go");
    EXPECT_EQ(m.since(), Lines{});
}

TEST(DeveloperModel, DockerInstalledButNotRunning) {
    DevMac m({.docker = Tools::DockerState::stopped});
    DeveloperModel model;
    model.load();
    EXPECT_TRUE(model.docker.installed);
    EXPECT_FALSE(model.docker.running);
    EXPECT_EQ(model.docker.message, "Docker isn't running. Start it to see what it keeps.");
    EXPECT_FALSE(model.brew.packages.empty()) << "the other sections still load";
    m.since();
    EXPECT_TRUE(model.cleanAll());
    const auto ran = m.since();
    EXPECT_EQ(Lines(ran.begin(), ran.begin() + 3), (Lines{"/usr/bin/xcrun simctl delete unavailable",
                                                          std::string(brew) + " cleanup", std::string(brew) + " autoremove"}));
    EXPECT_FALSE(model.prune(DockerKind::containers));
    EXPECT_EQ(model.message, "That didn't work");
}

TEST(DeveloperModel, MissingToolsAndNothingToClean) {
    DevMac m({.brew = false, .docker = Tools::DockerState::absent, .xcode = false});
    DeveloperModel model;
    model.load();
    EXPECT_EQ(model.brew.message, "Homebrew isn't installed");
    EXPECT_EQ(model.docker.message, "Docker isn't installed");
    EXPECT_EQ(model.xcode.message, "Xcode isn't installed");
    EXPECT_TRUE(model.cleanAll());
    EXPECT_EQ(model.message, "Nothing safe to clean in one go");
    EXPECT_EQ(m.log(), Lines{});
}

TEST(DeveloperModel, EachOperationsCommandAndResultLine) {
    DevMac m;
    DeveloperModel model;
    model.load();
    m.since();
    const struct {
        std::function<bool()> run;
        const char* command;
        const char* line;
    } cases[] = {
        {[&] { return model.upgrade("neovim"); }, "/opt/homebrew/bin/brew upgrade neovim", "neovim updated"},
        {[&] { return model.upgrade("firefox"); }, "/opt/homebrew/bin/brew upgrade --cask firefox", "firefox updated"},
        {[&] { return model.upgrade("cask:discord"); }, "/opt/homebrew/bin/brew upgrade --cask discord", "discord updated"},
        {[&] { return model.uninstall("formula:jq"); }, "/opt/homebrew/bin/brew uninstall jq", "jq uninstalled"},
        {[&] { return model.prune(DockerKind::images); }, "/usr/local/bin/docker image prune -a -f", "Images cleared"},
        {[&] { return model.prune(DockerKind::volumes); }, "/usr/local/bin/docker volume prune -a -f", "Local Volumes cleared"},
        {[&] { return model.deleteSimulator("6F1C3E52-8B7A-4D2E-9C41-2A5B7D9E0F13"); },
         "/usr/bin/xcrun simctl delete 6F1C3E52-8B7A-4D2E-9C41-2A5B7D9E0F13", "iPhone 15 deleted"},
        {[&] { return model.deleteRuntime("9C8D7E6F-5A4B-4C3D-8E2F-1A0B9C8D7E6F"); },
         "/usr/bin/xcrun simctl runtime delete 9C8D7E6F-5A4B-4C3D-8E2F-1A0B9C8D7E6F", "watchOS 10.0 deleted"},
    };
    for (const auto& c : cases) {
        EXPECT_TRUE(c.run()) << c.command;
        EXPECT_EQ(model.message, c.line);
        const auto ran = m.since();
        ASSERT_FALSE(ran.empty());
        EXPECT_EQ(ran.front(), c.command);
    }
}

TEST(DeveloperModel, LinuxPlacesComeAfterTheMacOnes) {
    DevMac m({.brew = false, .docker = Tools::DockerState::absent, .xcode = false});
    m.sb.mac.addFakeTool("/home/linuxbrew/.linuxbrew/bin/brew", "exit 0");
    m.sb.mac.addFakeTool("/usr/bin/docker", "exit 0");
    EXPECT_EQ(Brew::location(), std::nullopt) << "a Mac has no such places";
    EXPECT_EQ(Docker::location(), std::nullopt);
    m.sb.host->platform = quorv::Platform::linux;
    EXPECT_EQ(Brew::location(), m.sb.mac.path("/home/linuxbrew/.linuxbrew/bin/brew"));
    EXPECT_EQ(Docker::location(), m.sb.mac.path("/usr/bin/docker"));
    m.sb.mac.addFakeTool("~/.orbstack/bin/docker", "exit 0");
    EXPECT_EQ(Docker::location(), m.sb.mac.path("~/.orbstack/bin/docker"));
}

}  // namespace
