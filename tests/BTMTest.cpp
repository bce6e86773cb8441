// The background-task dump, launchctl's answers and signatures: read over the real outputs beside
// the checkout and over hostile ones of our own.

#include <gtest/gtest.h>

#include <filesystem>
#include <map>
#include <set>
#include <string>

#include "kit/insight/BTM.hpp"
#include "kit/insight/BackgroundItem.hpp"
#include "kit/insight/BackgroundItems.hpp"
#include "kit/insight/Signature.hpp"
#include "support/TestSupport.hpp"

namespace {

using brimstell::BackgroundItems;
using brimstell::BTM;
using brimstell::Signature;
using Kind = brimstell::Signature::Kind;

std::string realFixture(const std::string& relative) {
    return std::string(BRIMSTELL_SHARED_DIR) + "/fixtures/real/" + relative;
}

#define REQUIRE_REAL(path) \
    if (!std::filesystem::exists(path)) GTEST_SKIP() << "the real fixtures are not beside the checkout: " << (path)

TEST(BTM, ReadsTheRealDumps) {
    const auto dssw = realFixture("sfltool_dumpbtm/dssw_power_manager_legacy_agent_macos13.txt");
    REQUIRE_REAL(dssw);
    // "#X:" is a placeholder, not a record header: nothing opens, nothing is read.
    EXPECT_TRUE(BTM::parse(testing_support::readText(dssw)).empty());

    // Pasted without its header: with one put in front, the right-aligned fields read.
    const auto records = BTM::parse("Records for UID 501 : X\n #1:\n" + testing_support::readText(dssw));
    ASSERT_EQ(records.size(), 1u);
    EXPECT_EQ(records[0].uid, "501");
    EXPECT_EQ(records[0].type(), "legacy agent");
    EXPECT_EQ(records[0].field("Name"), "Power Manager");
    EXPECT_EQ(records[0].disposition(), (std::set<std::string>{"enabled", "allowed", "visible", "notified"}));

    const auto fleet = testing_support::readText(realFixture("sfltool_dumpbtm/fleet_article_developer_record_flattened.txt"));
    const auto dev = BTM::parse("#1:\n" + fleet);
    ASSERT_EQ(dev.size(), 1u);
    EXPECT_EQ(dev[0].uid, "");
    EXPECT_EQ(dev[0].field("URL"), std::nullopt) << "(null) reads as absent";
    EXPECT_EQ(dev[0].field("Flags"), "[  ] (0)");
    EXPECT_EQ(dev[0].field("#1"), "16.com.fleetdm.orbit");
    EXPECT_EQ(dev[0].disposition(), (std::set<std::string>{"disabled", "allowed", "visible", "notified"}));
}

TEST(BTM, HostileDumps) {
    const auto records = BTM::parse(
        "#1:\n Name: Early\n"                       // before any section: empty uid
        "Records for UID 501 : 0A\n"
        "Name: outside a record\n"
        "#2:\n Name: First\n Name: Second\n Disposition: ] enabled [\n Type: app\n"
        "#x2:\n Name: not a header\n"
        "#3:\n\tDisposition: [enabled] [disallowed]\n URL: \n Type: (null)\n"
        "Records for UID\n#4:\nName: Nobody's\n");
    ASSERT_EQ(records.size(), 4u);
    EXPECT_EQ(records[0].uid, "");
    EXPECT_EQ(records[0].field("Name"), "Early");
    EXPECT_EQ(records[1].uid, "501");
    EXPECT_EQ(records[1].field("Name"), "First") << "the first value of a key wins";
    EXPECT_EQ(records[1].field("#x2"), std::nullopt) << "#x2: has no value after ': '";
    EXPECT_TRUE(records[1].disposition().empty()) << "brackets reversed";
    EXPECT_EQ(records[2].disposition(), std::set<std::string>{"enabled"});
    EXPECT_EQ(records[2].field("URL"), std::nullopt);
    EXPECT_EQ(records[2].type(), "");
    EXPECT_EQ(records[3].uid, "501") << "a section line without a user id isn't one";
    EXPECT_TRUE(BTM::parse("").empty());
    EXPECT_TRUE(BTM::parse("#\n#:\n:\n").empty());
}

TEST(Launchctl, ReadsTheRealOutputs) {
    const auto list = realFixture("launchctl/glpi_launchctl_list_system.txt");
    REQUIRE_REAL(list);
    const auto running = BackgroundItems::runningInList(testing_support::readText(list));
    EXPECT_TRUE(running.count("com.apple.coreservicesd"));
    EXPECT_FALSE(running.count("com.apple.logd")) << "a '-' in place of a process id";
    EXPECT_FALSE(running.count("Label")) << "the header";
    EXPECT_FALSE(running.count("com.vmware.launchd.vmware"));

    const auto off = BackgroundItems::disabledIn(
        testing_support::readText(realFixture("launchctl/ninehills_print_disabled_user501_true_false.txt")));
    EXPECT_TRUE(off.count("5A4RE8SF68.com.tencent.xinWeChat.IPCHelper"));
    EXPECT_TRUE(off.count("com.apple.ScriptMenuApp"));
    EXPECT_FALSE(off.count("com.docker.helper"));
    EXPECT_FALSE(off.count("version.com.docker.helper"));
}

TEST(Launchctl, OwnSamples) {
    EXPECT_EQ(BackgroundItems::disabledIn("disabled services = {\n\t\"com.truecrypt.x\" => enabled\n"
                                          "\t\"com.a.b\" => disabled\n\t\"broken => true\n}\n"),
              std::set<std::string>{"com.a.b"});
    EXPECT_EQ(BackgroundItems::runningInList("12\t0\ta.b\n-\t0\tc.d\n 7\t0\te.f\n8\t0\tg\th\n9\t0\t\n"),
              std::set<std::string>{"a.b"});
    EXPECT_EQ(BackgroundItems::runningInPrintSystem(
                  "system = {\n\tservices = {\n\t\t  123      0 \tcom.x.y\n\t\t    0      - \tcom.idle\n"
                  "\t\t    -      0 \tcom.off\n\t\t 44  0  a  b\n\t}\n\t 77 0 com.after\n}\n"),
              std::set<std::string>{"com.x.y"});
}

// A probe that answers from a table.
struct TableProbe : brimstell::SignatureProbe {
    int status = 0;
    std::uint32_t bits = 0;
    std::optional<std::string> leaf;
    std::set<std::string> meets;
    int validity() override { return status; }
    std::uint32_t flags() override { return bits; }
    std::optional<std::string> leafSummary() override { return leaf; }
    bool satisfies(const std::string& r) override { return meets.count(r) > 0; }
};

TEST(Signature, ClassifiesAndSummarises) {
    const std::string apple = "anchor apple";
    const std::string store = "anchor apple generic and certificate leaf[field.1.2.840.113635.100.6.1.9] exists";
    const std::string devID =
        "anchor apple generic and certificate 1[field.1.2.840.113635.100.6.2.6] exists and "
        "certificate leaf[field.1.2.840.113635.100.6.1.13] exists";
    const std::string leaf = "Developer ID Application: Jane Roe (AB12CD34EF)";
    struct Case {
        int status;
        std::uint32_t flags;
        std::optional<std::string> leaf;
        std::set<std::string> meets;
        Kind kind;
        std::string summary;
    };
    const std::vector<Case> cases = {
        {-67062, 2, std::nullopt, {}, Kind::unsignedCode, "Not signed"},
        {-67061, 2, std::nullopt, {}, Kind::adhoc, "Not signed"},
        {-67061, 0, leaf, {apple}, Kind::broken, "Signature doesn't check out"},
        {0, 0, "Apple Software", {apple, store}, Kind::apple, "Apple"},
        {0, 0, "Apple Mac OS Application Signing", {store}, Kind::appStore, "Apple Mac OS Application Signing · App Store"},
        {0, 0, std::nullopt, {store}, Kind::appStore, "App Store · App Store"},
        {0, 0, leaf, {devID, "notarized"}, Kind::developerID, "Jane Roe · Notarised"},
        {0, 0, std::nullopt, {devID}, Kind::developerID, "Identified developer · Not notarised"},
        {0, 0, "Apple Development: Sam (Q)", {}, Kind::otherCert, "Signed by “Sam”, not a developer Apple has identified"},
        {0, 0, std::nullopt, {"notarized"}, Kind::otherCert, "Signed by “?”, not a developer Apple has identified"},
    };
    for (const auto& c : cases) {
        TableProbe probe;
        probe.status = c.status;
        probe.bits = c.flags;
        probe.leaf = c.leaf;
        probe.meets = c.meets;
        const auto s = Signature::classify(probe);
        EXPECT_EQ(s.kind, c.kind) << c.summary;
        EXPECT_EQ(s.summary(), c.summary);
    }
}

TEST(Signature, DeveloperFromLeafSummary) {
    const std::map<std::string, std::string> cases = {
        {"Developer ID Application: Jane Roe (AB12CD34EF)", "Jane Roe"},
        {"Developer ID Application: Acme (Europe) Ltd (AB12CD34EF)", "Acme (Europe) Ltd"},
        {"Apple Development: a: b", "a: b"},
        {"Plain Name", "Plain Name"},
        {"Odd(X)", "Odd(X)"},
        {"", ""},
    };
    for (const auto& [leaf, name] : cases) EXPECT_EQ(Signature::developerFrom(leaf), name) << leaf;
}

TEST(BackgroundItem, ShownNameAndTheWeek) {
    brimstell::BackgroundItem item;
    item.label = "com.example.updater";
    EXPECT_EQ(item.shownName(), "com.example.updater");
    item.program = "/Applications/Example Editor.app/Contents/Helpers/Up.app/Contents/MacOS/up";
    EXPECT_EQ(item.shownName(), "Example Editor");
    item.program = "Tool.app/Contents/MacOS/tool";
    EXPECT_EQ(item.shownName(), "Tool");
    item.program = "/opt/x.application/run";
    EXPECT_EQ(item.shownName(), "com.example.updater");

    const double now = 1'790'000'000;
    EXPECT_TRUE(brimstell::addedLately(now - (6 * 86400 + 23 * 3600), now));
    EXPECT_FALSE(brimstell::addedLately(now - 604'800, now)) << "exactly a week is not later";
    EXPECT_FALSE(brimstell::addedLately(now - 604'801, now));
    EXPECT_FALSE(brimstell::addedLately(std::nullopt, now));
}

TEST(BackgroundItem, LabelsAndCaptions) {
    testing_support::SandboxHost sandbox;  // a sandbox Mac: the Mac's own captions
    quorv::HostScope scope(sandbox.host);
    using S = brimstell::BackgroundItem::Scope;
    EXPECT_STREQ(brimstell::BackgroundItem::scopeLabel(S::user), "Your account");
    EXPECT_STREQ(brimstell::BackgroundItem::scopeLabel(S::allUsers), "All users");
    EXPECT_STREQ(brimstell::BackgroundItem::scopeLabel(S::system), "System");
    EXPECT_STREQ(brimstell::BackgroundItem::caption(S::user), "Launch Agents in your account");
    EXPECT_STREQ(brimstell::BackgroundItem::caption(S::allUsers), "Launch Agents for everyone on this Mac");
    EXPECT_STREQ(brimstell::BackgroundItem::caption(S::system), "Launch Daemons, run as the system");
}

}  // namespace
