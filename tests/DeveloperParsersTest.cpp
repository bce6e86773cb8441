// What Homebrew, Docker and simctl print, read over the real outputs beside the checkout and over
// hostile text of our own; the name and identifier checks that stand before every tool.

#include <gtest/gtest.h>

#include <filesystem>

#include "kit/developer/Brew.hpp"
#include "kit/developer/Docker.hpp"
#include "kit/developer/SimRuntime.hpp"
#include "kit/developer/Simulators.hpp"
#include "kit/developer/ToolText.hpp"
#include "support/TestSupport.hpp"

namespace {

using namespace brimstell;

std::string real(const std::string& relative) { return std::string(BRIMSTELL_SHARED_DIR) + "/fixtures/real/" + relative; }

#define READ_REAL(var, relative)                                                                           \
    const std::string var##Path = real(relative);                                                          \
    if (!std::filesystem::exists(var##Path)) GTEST_SKIP() << "the real fixtures are not beside the checkout: " << var##Path; \
    const std::string var = testing_support::readText(var##Path)

TEST(DeveloperChecks, NamesAndIdentifiersBeforeAnyTool) {
    const struct {
        const char* name;
        bool ok;
    } names[] = {{"jq", true}, {"linux-headers@5.15", true}, {"homebrew/cask/firefox", true}, {"c++_1.x", true},
                 {"-rf", false}, {"--force", false}, {"a b", false}, {"", false}, {"a;b", false}, {"jq\n", false},
                 {"caf\xc3\xa9", false}, {"$(x)", false}};
    for (const auto& n : names) EXPECT_EQ(Brew::validName(n.name), n.ok) << n.name;
    const struct {
        const char* id;
        bool ok;
    } ids[] = {{"6F1C3E52-8B7A-4D2E-9C41-2A5B7D9E0F13", true}, {"6f1c3e52-8b7a-4d2e-9c41-2a5b7d9e0f13", true},
               {"6F1C3E52-8B7A-4D2E-9C41-2A5B7D9E0F1", false}, {"6F1C3E52-8B7A-4D2E-9C41-2A5B7D9E0F134", false},
               {"6F1C3E52-8B7A-4D2E-9C41-2A5B7D9E0F1G", false}, {"6F1C3E52-8B7A-4D2E-9C41 2A5B7D9E0F13", false},
               {"unavailable", false}, {"--set-path=/x/y/zz-aaaaaaaaaaaaaaaaaa", false}};
    for (const auto& i : ids) EXPECT_EQ(Simulators::validIdentifier(i.id), i.ok) << i.id;
}

TEST(DeveloperParsers, SizesAsToolsWriteThem) {
    const struct {
        const char* text;
        int base;
        std::optional<std::int64_t> bytes;
    } cases[] = {{"8.674GB", 1000, 8'674'000'000}, {"0B", 1000, 0}, {"9.323MB", 1000, 9'323'000}, {"1.2 kB", 1000, 1200},
                 {"41.9MB", 1024, 43'935'334}, {"2,401KB", 1024, 2'458'624}, {"12B", 1024, 12},
                 {"-2.5e+08 B", 1000, std::nullopt}, {"GB", 1000, std::nullopt}, {"12XB", 1000, std::nullopt},
                 {"", 1000, std::nullopt}, {".5GB", 1000, std::nullopt}, {"1.2.3MB", 1000, std::nullopt},
                 {"99999999999TB", 1000, std::nullopt}};
    for (const auto& c : cases) EXPECT_EQ(ToolText::parseSize(c.text, c.base), c.bytes) << c.text;
}

TEST(DeveloperParsers, HomebrewOverRealOutputs) {
    READ_REAL(info, "homebrew/brew_info_installed_v2_salt_trimmed.json");
    const auto packages = Brew::parseInfo(info);
    std::vector<std::string> ids;
    for (const auto& p : packages) ids.push_back(p.id() + " " + p.versions.front() + (p.onRequest ? " asked" : ""));
    EXPECT_EQ(ids, (std::vector<std::string>{"formula:jq 1.7.1 asked", "formula:neovim 0.10.0 asked",
                                             "cask:autofirma 1.8.2 asked", "cask:discord 0.0.293 asked"}));
    EXPECT_FALSE(packages[3].outdated) << "Homebrew says a self-updating cask is not outdated";
    EXPECT_EQ(packages[0].description, "Lightweight and flexible command-line JSON processor");

    READ_REAL(cleanup, "homebrew/brew_cleanup_dry_run_pr13716.txt");
    const auto items = Brew::parseCleanup(cleanup);
    ASSERT_EQ(items.size(), 1u);
    EXPECT_EQ(items[0].path, "/Users/user/Library/Caches/Homebrew/bootsnap");
    EXPECT_EQ(items[0].bytes, 43'935'334);

    READ_REAL(autoremove, "homebrew/brew_autoremove_dry_run_issue13822.txt");
    EXPECT_EQ(Brew::parseAutoremove(autoremove), (std::vector<std::string>{"gpatch", "linux-headers@5.15", "pkg-config"}));
}

TEST(DeveloperParsers, HomebrewHostileText) {
    for (const char* text : {"", "[]", "not json", R"({"formulae":5,"casks":{}})", R"({"formulae":[{"name":"-rf","installed":[{"version":"1"}]}]})",
                             R"({"formulae":[{"name":"jq","installed":[]}],"casks":[{"token":"a b","installed":"1"}]})"}) {
        EXPECT_TRUE(Brew::parseInfo(text).empty()) << text;
    }
    EXPECT_TRUE(Brew::parseInfo(std::string(100'000, '[') + std::string(100'000, ']')).empty());
    const auto items = Brew::parseCleanup(
        "Would remove: /opt/homebrew/Cellar/a (b)/1.0 (3 files, 1KB)\r\nWould remove: /no/size\nWould remove: (12MB)\n"
        "Would remove: /x (many)\n  Would remove: /indented (1KB)\n");
    ASSERT_EQ(items.size(), 1u);
    EXPECT_EQ(items[0].path, "/opt/homebrew/Cellar/a (b)/1.0");
    EXPECT_EQ(items[0].bytes, 1024);
    EXPECT_EQ(Brew::parseAutoremove("gone\n==> Would autoremove 2 unneeded formulae:\n m4 \nlibyaml\n\nafter-blank\n==> Done\nlater\n"),
              (std::vector<std::string>{"m4", "libyaml"}));
}

TEST(DeveloperParsers, DockerUsage) {
    READ_REAL(lines, "docker_system_df/checkmk_system_df_json_lines.jsonl");
    const auto rows = Docker::parseUsage(lines);
    ASSERT_EQ(rows.size(), 4u);
    EXPECT_EQ(rows[0].type, "Images");
    EXPECT_EQ(rows[0].totalCount, 15);
    EXPECT_EQ(rows[0].active, 2);
    EXPECT_EQ(rows[0].reclaimable, "8.674GB");
    EXPECT_EQ(rows[0].reclaimableBytes, 8'674'000'000);
    EXPECT_EQ(rows[1].sizeBytes, 1'226'000'000);
    EXPECT_EQ(rows[3].type, "Build Cache");
    EXPECT_EQ(rows[3].reclaimableBytes, 0);
    READ_REAL(table, "docker_system_df/moby_issue30975_negative_reclaimable_table.txt");
    EXPECT_TRUE(Docker::parseUsage(table).empty()) << "the table form is not what was asked for";
    const auto mixed = Docker::parseUsage(
        R"({"Type":"Images","TotalCount":"x","Active":"0","Size":"1B","Reclaimable":"0B"})"
        "\n{\"Active\":\"0\",\"Reclaimable\":\"-1GB (0%)\",\"Size\":\"0B\",\"TotalCount\":\"0\",\"Type\":\"Containers\"}\n[]\n\n"
        R"x({"Active":1,"Reclaimable":"1kB (5%)","Size":"20kB","TotalCount":3,"Type":"Local Volumes"})x");
    ASSERT_EQ(mixed.size(), 1u);
    EXPECT_EQ(mixed[0].reclaimableBytes, 1000);
}

TEST(DeveloperParsers, PruneTexts) {
    EXPECT_STREQ(Docker::pruneText(DockerKind::containers), "Removes stopped containers. Running ones stay.");
    EXPECT_STREQ(Docker::pruneText(DockerKind::images), "Removes images no container uses. They download again when needed.");
    EXPECT_STREQ(Docker::pruneText(DockerKind::buildCache), "Removes the build cache. The next builds take longer.");
    EXPECT_STREQ(Docker::pruneText(DockerKind::volumes),
                 "Removes volumes no container uses. Data in them (databases and the like) is gone for good.");
}

TEST(DeveloperParsers, SimulatorsOverRealOutputs) {
    READ_REAL(devices, "simctl_json/node-simctl_devices_with_unavailable_xcode10.json");
    const auto list = Simulators::parseDevices(devices);
    ASSERT_FALSE(list.empty());
    EXPECT_EQ(list.front().name, "iPhone 5s") << "devices come runtime by runtime, runtimes by their key";
    EXPECT_TRUE(std::any_of(list.begin(), list.end(), [](const SimDevice& d) { return !d.isAvailable; }));
    EXPECT_TRUE(std::all_of(list.begin(), list.end(), [](const SimDevice& d) { return Simulators::validIdentifier(d.udid); }));
    READ_REAL(legacy, "simctl_json/node-simctl_devices_name_keyed_legacy.json");
    const auto old = Simulators::parseDevices(legacy);
    ASSERT_FALSE(old.empty());
    EXPECT_EQ(old.front().runtime, "iOS 12.1");

    READ_REAL(runtimes, "simctl_json/fastlane_simctl_list_j_runtimes_xcode15.json");
    const auto r = SimRuntime::parse(runtimes);
    ASSERT_GE(r.size(), 6u);
    EXPECT_EQ(r[0].name(), "iOS 16.1");
    EXPECT_TRUE(std::none_of(r.begin(), r.end(), [](const SimRuntime& x) { return x.deletable; }));
}

TEST(DeveloperParsers, RuntimeListAndNames) {
    const auto r = SimRuntime::parse(R"({
      "2E6B1C0A-7D4F-4B8E-9A31-C5D7E9F0A2B4": {"deletable": true, "identifier": "2E6B1C0A-7D4F-4B8E-9A31-C5D7E9F0A2B4",
        "lastUsedAt": "2026-09-14T08:30:00Z", "platformIdentifier": "com.apple.platform.xrsimulator", "sizeBytes": 7340032000, "version": "1.0"},
      "bad": {"deletable": true, "identifier": "--all", "platformIdentifier": "com.apple.platform.watchsimulator", "version": "10.0"},
      "odd": {"platformIdentifier": "com.apple.platform.macosx", "version": "14.0"}, "list": []})");
    ASSERT_EQ(r.size(), 2u);
    EXPECT_EQ(r[0].name(), "visionOS 1.0");
    EXPECT_EQ(r[0].bytes, 7'340'032'000);
    EXPECT_EQ(r[0].lastUsedAt, 1'789'374'600);
    EXPECT_TRUE(r[0].deletable);
    EXPECT_FALSE(r[1].deletable) << "an identifier simctl must not see is never offered for deletion";
    const std::pair<const char*, const char*> platforms[] = {
        {"com.apple.platform.iphonesimulator", "iOS"}, {"com.apple.platform.watchsimulator", "watchOS"},
        {"com.apple.platform.appletvsimulator", "tvOS"}, {"com.apple.platform.xrsimulator", "visionOS"},
        {"com.apple.platform.macosx", ""}, {"iphonesimulator", ""}};
    for (const auto& [id, name] : platforms) EXPECT_EQ(SimRuntime::platformName(id), name) << id;
    EXPECT_EQ(Simulators::runtimeName("com.apple.CoreSimulator.SimRuntime.iOS-17-0-1"), "iOS 17.0.1");
    EXPECT_EQ(Simulators::runtimeName("com.apple.CoreSimulator.SimRuntime.xrOS-1-0"), "xrOS 1.0");
    EXPECT_EQ(Simulators::runtimeName("tvOS 12.1"), "tvOS 12.1");
}

}  // namespace
