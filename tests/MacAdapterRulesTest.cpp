// What the macOS adapters decide, tested here where there is no Mac: the Trash's sentences and
// rules, the helper's signing requirement, which settings keys the defaults system can hold.

#include <gtest/gtest.h>

#include <string>

#include "kit/files/MacTrashRules.hpp"
#include "shared/helper/HelperInfo.hpp"
#include "support/settings/SettingsStore.hpp"

namespace {

using namespace brimstell;
using macTrash::ErrorDomain;

TEST(MacTrashRules, SentenceForEachReportedError) {
    struct Case {
        ErrorDomain domain;
        long code;
        std::string sentence;
    };
    const Case cases[] = {
        {ErrorDomain::none, 0, "It couldn't be moved to the Trash."},
        {ErrorDomain::posix, 2, "It no longer exists."},                           // ENOENT
        {ErrorDomain::posix, 13, "You don't have permission to move it."},         // EACCES
        {ErrorDomain::posix, 18, "It is on another disk whose Trash can't be used."},  // EXDEV
        {ErrorDomain::posix, 5, "It couldn't be moved to the Trash."},             // EIO
        {ErrorDomain::cocoa, 4, "It no longer exists."},
        {ErrorDomain::cocoa, 260, "It no longer exists."},
        {ErrorDomain::cocoa, 257, "You don't have permission to move it."},
        {ErrorDomain::cocoa, 513, "You don't have permission to move it."},
        {ErrorDomain::cocoa, 3328, "It is on another disk whose Trash can't be used."},
        {ErrorDomain::cocoa, 512, "It couldn't be moved to the Trash."},
        // Another domain's code 4 is not "no such file".
        {ErrorDomain::other, 4, "It couldn't be moved to the Trash."},
    };
    for (const auto& c : cases) {
        EXPECT_EQ(macTrash::sentence(c.domain, c.code), c.sentence) << static_cast<int>(c.domain) << " " << c.code;
    }
}

TEST(MacTrashRules, OnlyAFullPathToANamedItemIsHandedOver) {
    struct Case {
        std::string path;
        bool refused;
    };
    const Case cases[] = {
        {"/Users/a/file", false}, {"/Users/a/folder/", false}, {"/Users/a/.hidden", false},
        {"", true},   {"/", true},  {"//", true}, {"relative/file", true},
        {"/Users/a/.", true}, {"/Users/a/..", true}, {"/Users/a/../", true},
    };
    for (const auto& c : cases) {
        const char* why = macTrash::refusal(c.path);
        EXPECT_EQ(why != nullptr, c.refused) << c.path;
        if (why) {
            EXPECT_STREQ(why, "It couldn't be moved to the Trash.");
        }
    }
}

TEST(MacTrashRules, InTheTrashMeansDirectlyInOneOfTheUsersTrashes) {
    const std::string home = "/Users/a";
    struct Case {
        std::string location;
        bool inTrash;
    };
    const Case cases[] = {
        {"/Users/a/.Trash/file", true},
        {"/Users/a/.Trash/folder/", true},
        {"/Users/a/.Trash/folder/inner", false},  // inside an item, not an item
        {"/Users/a/.Trash", false},
        {"/Users/b/.Trash/file", false},
        {"/Volumes/Disk/.Trashes/501/file", true},
        {"/Volumes/Disk/.Trashes/502/file", false},  // another user's
        {"/Volumes/Disk/Trashes/501/file", false},
        {"/Users/a/Documents/file", false},
    };
    for (const auto& c : cases) EXPECT_EQ(macTrash::isInTrash(c.location, home, 501), c.inTrash) << c.location;
}

TEST(MacTrashRules, FindersFilesAreNotItems) {
    EXPECT_TRUE(macTrash::isBookkeeping(".DS_Store"));
    EXPECT_TRUE(macTrash::isBookkeeping(".localized"));
    EXPECT_FALSE(macTrash::isBookkeeping(".DS_Store 2"));
    EXPECT_FALSE(macTrash::isBookkeeping("DS_Store"));
}

TEST(HelperSigning, RequirementNamesTheLabelAndTheTeamAndNothingElse) {
    EXPECT_EQ(HelperInfo::clientRequirement("AB12CD34EF"),
              "anchor apple generic and identifier \"com.quorv.brimstell.helper\" and certificate "
              "leaf[subject.OU] = \"AB12CD34EF\"");
    // A team that would write into the requirement is met by no helper.
    const std::string bad[] = {"", "AB\" or anchor trusted", "A B", "AB12\nCD", std::string(33, 'A')};
    for (const auto& team : bad) {
        EXPECT_EQ(HelperInfo::clientRequirement(team), "never") << team;
    }
}

TEST(SettingsKeys, OnlyKeysEveryPlatformCanHoldAreStorable) {
    EXPECT_TRUE(quorv::isStorableKey("autoClean.enabled"));
    EXPECT_TRUE(quorv::isStorableKey("réglage"));
    EXPECT_FALSE(quorv::isStorableKey(""));
    EXPECT_FALSE(quorv::isStorableKey(std::string("a\0b", 3)));
    EXPECT_FALSE(quorv::isStorableKey("bad\xff"));
    EXPECT_FALSE(quorv::isStorableKey("\xc0\xaf"));  // an overlong "/"
}

}  // namespace
