// What the App Store and Homebrew answer, read into updates: the real answers as published and
// the shapes that must be skipped.

#include <gtest/gtest.h>

#include <filesystem>
#include <string>

#include "kit/updates/UpdateAnswers.hpp"
#include "support/TestSupport.hpp"

using brimstell::AppBundle;
using brimstell::AppUpdate;
using brimstell::UpdateAnswers;

namespace {

std::string real(const std::string& relative) { return std::string(BRIMSTELL_SHARED_DIR) + "/fixtures/real/" + relative; }

AppBundle app(const std::string& version) {
    AppBundle a;
    a.url = "/Applications/Slack.app";
    a.name = "Slack";
    a.bundleID = "com.tinyspeck.slackmacgap";
    a.version = version;
    a.fromAppStore = true;
    return a;
}

}  // namespace

TEST(UpdateAnswers, RealAppStoreAnswers) {
    if (!std::filesystem::is_directory(real("appstore_lookup"))) GTEST_SKIP() << "the real fixtures are not beside the checkout";
    const auto slack = UpdateAnswers::storeRelease(testing_support::readText(real("appstore_lookup/mas_slack_lookup.json")));
    ASSERT_TRUE(slack);
    EXPECT_EQ(slack->version, "3.3.3");
    ASSERT_TRUE(slack->trackId);
    const auto update = UpdateAnswers::storeUpdate(app("3.2"), *slack);
    ASSERT_TRUE(update);
    EXPECT_EQ(update->storeURL, "macappstore://apps.apple.com/app/id" + std::to_string(*slack->trackId));
    EXPECT_EQ(update->installed, "3.2");
    EXPECT_EQ(update->available, "3.3.3");
    EXPECT_EQ(update->id(), "App Store|/Applications/Slack.app");
    EXPECT_FALSE(UpdateAnswers::storeUpdate(app("3.3.3"), *slack));
    EXPECT_FALSE(UpdateAnswers::storeUpdate(app("4"), *slack));

    const auto bbedit = UpdateAnswers::storeRelease(testing_support::readText(real("appstore_lookup/mas_bbedit_search.json")));
    ASSERT_TRUE(bbedit);
    EXPECT_EQ(bbedit->version, "13.1.3");
    // An empty "results" and a bare result without the wrapper are not answers.
    EXPECT_FALSE(UpdateAnswers::storeRelease(testing_support::readText(real("appstore_lookup/mas_nonexistent_empty.json"))));
    EXPECT_FALSE(UpdateAnswers::storeRelease(testing_support::readText(real("appstore_lookup/mas_things_bare_result.json"))));
}

TEST(UpdateAnswers, AppStoreAnswerShapes) {
    const std::pair<const char*, const char*> cases[] = {
        {R"({"results":[{"version":"2.0","trackId":123}]})", "2.0|123"},
        {R"({"results":[{"version":"2.0"}]})", "2.0|-"},
        {R"({"results":[{"version":"2.0","trackId":"123"}]})", "2.0|-"},
        {R"({"results":[{"version":2}]})", "none"},
        {R"({"results":[]})", "none"},
        {R"({"results":{}})", "none"},
        {R"([{"version":"2.0"}])", "none"},
        {R"({"results":[{"version":"2.0")", "none"},
        {"", "none"},
    };
    for (const auto& [body, expected] : cases) {
        const auto r = UpdateAnswers::storeRelease(body);
        const std::string got = r ? r->version + "|" + (r->trackId ? std::to_string(*r->trackId) : "-") : "none";
        EXPECT_EQ(got, expected) << body;
    }
    EXPECT_FALSE(UpdateAnswers::storeRelease(std::string(100000, '[') + std::string(100000, ']')));
}

TEST(UpdateAnswers, RealHomebrewOutputs) {
    if (!std::filesystem::is_directory(real("homebrew"))) GTEST_SKIP() << "the real fixtures are not beside the checkout";
    const auto formula = UpdateAnswers::parseBrew(testing_support::readText(real("homebrew/brew_outdated_v2_homebrew_spec.json")));
    ASSERT_EQ(formula.size(), 1u);  // the formula is not a cask
    EXPECT_EQ(formula[0].name, "local-caffeine");
    EXPECT_EQ(formula[0].cask, "local-caffeine");
    EXPECT_EQ(formula[0].installed, "1.2.2");
    EXPECT_EQ(formula[0].available, "1.2.3");
    EXPECT_EQ(formula[0].source, AppUpdate::Source::homebrew);
    EXPECT_EQ(formula[0].id(), "Homebrew|local-caffeine");
    // 2021's output gave installed_versions as one text: such entries are skipped.
    EXPECT_TRUE(UpdateAnswers::parseBrew(testing_support::readText(real("homebrew/brew_outdated_v2_salt_2021_cask_string.json"))).empty());
    const auto greedy = UpdateAnswers::parseBrew(testing_support::readText(real("homebrew/brew_outdated_cask_greedy_v2_salt_empty_formulae.json")));
    ASSERT_EQ(greedy.size(), 2u);
    EXPECT_EQ(greedy[1].name + " " + greedy[1].installed + " " + greedy[1].available, "bbedit 15.0.1 15.1");
}

TEST(UpdateAnswers, HomebrewEntriesMissingAnythingAreSkipped) {
    const auto updates = UpdateAnswers::parseBrew(R"({"casks":[
        {"name":"a","current_version":"2","installed_versions":["1","0.9"]},
        {"name":"b","current_version":"2","installed_versions":[]},
        {"name":"c","current_version":"2"},
        {"name":"d","installed_versions":["1"]},
        {"current_version":"2","installed_versions":["1"]},
        {"name":"e","current_version":2,"installed_versions":["1"]},
        {"name":"f","current_version":"2","installed_versions":[1]},
        "g"]})");
    ASSERT_EQ(updates.size(), 1u);
    EXPECT_EQ(updates[0].installed, "1");
    EXPECT_TRUE(UpdateAnswers::parseBrew("Error: not JSON").empty());
    EXPECT_TRUE(UpdateAnswers::parseBrew(R"({"formulae":[]})").empty());
}

TEST(AppUpdate, IdentityAndLabels) {
    AppUpdate u;
    u.name = "Name";
    EXPECT_EQ(u.id(), "Sparkle|Name");
    u.source = AppUpdate::Source::homebrew;
    u.cask = "firefox";
    EXPECT_EQ(u.id(), "Homebrew|firefox");
    u.app = app("1");
    EXPECT_EQ(u.id(), "Homebrew|/Applications/Slack.app");
    EXPECT_EQ(AppUpdate::label(AppUpdate::Source::appStore), "App Store");
    EXPECT_EQ(AppUpdate::label(AppUpdate::Source::sparkle), "Sparkle");
}
