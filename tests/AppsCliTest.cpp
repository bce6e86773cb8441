// The apps, leftovers and versions commands, run as built against a sandbox Mac.

#include <gtest/gtest.h>

#include <filesystem>

#include <nlohmann/json.hpp>

#include "support/TestSupport.hpp"

namespace {

namespace fs = std::filesystem;

struct AppsCli : testing_support::CliMac {
    AppsCli() {
        mac.addSampleApps();
        env["BRIMSTELL_NOW"] = "1790000000";
    }
};

TEST(AppsCli, ListsTheAppsAndWhereTheirUpdatesComeFrom) {
    AppsCli s;
    auto r = s.run({"apps"});
    EXPECT_EQ(r.status, 0) << r.errors;
    EXPECT_EQ(r.output,
              "Name            Version      Build   Updates\n"
              "Disk Inspector  1.0b3        103     App Store\n"
              "Example         2.4.1        241     feed https://updates.example.com/editor/appcast.xml\n"
              "Notebook        5.1          5104    App Store\n"
              "Sketchpad       0.9          9       none\n"
              "Spotify         1.2.31.1205  120500  feed https://download.example.com/spotify/appcast.xml\n"
              "5 apps\n");

    r = s.run({"apps", "--apple", "--json"});
    const auto apps = nlohmann::json::parse(r.output);
    ASSERT_EQ(apps.size(), 6u);
    EXPECT_EQ(apps[3]["bundleId"], "com.apple.Safari");
    EXPECT_EQ(apps[2]["updates"], "appStore");
}

TEST(AppsCli, LeftoversListedCleanedAndRestorable) {
    AppsCli s;
    auto r = s.run({"leftovers", "--json"});
    ASSERT_EQ(r.status, 0) << r.errors;
    auto j = nlohmann::json::parse(r.output);
    ASSERT_EQ(j["groups"].size(), 1u);
    EXPECT_EQ(j["groups"][0]["name"], "Photostudio");
    EXPECT_EQ(j["groups"][0]["items"].size(), 4u);
    EXPECT_GT(j["totalBytes"].get<std::int64_t>(), 11'500'000);

    r = s.run({"leftovers", "clean"});
    EXPECT_EQ(r.status, 2) << "no terminal to ask on, no --yes";
    EXPECT_TRUE(fs::exists(s.mac.path("~/Library/Application Support/com.example.photostudio")));

    r = s.run({"leftovers", "clean", "--yes"});
    EXPECT_EQ(r.status, 0) << r.errors;
    EXPECT_NE(r.output.find("They stay restorable from Cleaning History until the Trash is emptied.\n"), std::string::npos);
    EXPECT_TRUE(r.output.ends_with("Moved 11.5 MB to the Trash\n")) << r.output;
    EXPECT_FALSE(fs::exists(s.mac.path("~/Library/Application Support/com.example.photostudio")));
    EXPECT_TRUE(fs::exists(s.mac.path("~/Library/Preferences/com.example.editor.plist"))) << "an installed app's";

    EXPECT_EQ(s.run({"leftovers"}).output, "No removed app left anything in your Library.\n");
    r = s.run({"history", "--json"});
    j = nlohmann::json::parse(r.output);
    ASSERT_EQ(j.size(), 1u);
    EXPECT_EQ(j[0]["source"], "Leftovers");
    EXPECT_EQ(j[0]["entries"].size(), 4u);
}

TEST(AppsCli, VersionsCompare) {
    AppsCli s;
    const struct {
        std::vector<std::string> args;
        std::string input;
        int status;
        std::string output;
    } cases[] = {
        {{"2.10", "2.9"}, "", 0, "newer\n"},
        {{"2.0", "2.0.0"}, "", 0, "same\n"},
        {{"3.0-beta2", "3.0"}, "", 0, "older\n"},
        {{"-"}, "1.0\t1.0.0\n3.0b2\t3.0b10\r\nno tab\n1.0.1\t1.0b\na\tb\tc\n\t1\n", 1,
         "same\nolder\ninvalid\nnewer\ninvalid\nolder\n"},
        {{"-"}, "", 0, ""},
        {{"2.0"}, "", 2, ""},
        {{"1", "2", "3"}, "", 2, ""},
    };
    for (const auto& c : cases) {
        std::vector<std::string> args = {"versions", "compare"};
        args.insert(args.end(), c.args.begin(), c.args.end());
        const auto r = s.run(args, c.input);
        EXPECT_EQ(r.status, c.status) << c.input << r.errors;
        EXPECT_EQ(r.output, c.output) << c.input;
    }
    const auto r = s.run({"versions", "compare", "--json", "1.0RC1", "1.0rc1"});
    EXPECT_EQ(nlohmann::json::parse(r.output)["order"], "same");
}

}  // namespace
