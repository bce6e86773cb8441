// A .trashinfo claimed through a temporary text: it never replaces one already there, leaves no
// temporary name behind, and is given to the Trash's owner when root writes it.

#include <gtest/gtest.h>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <filesystem>
#include <string>
#include <vector>

#include "shared/trash/TrashInfoClaim.hpp"
#include "support/TestSupport.hpp"
#include "support/TrashTestSupport.hpp"
#include "support/posix/UniqueFd.hpp"

namespace {

using brimstell::TrashInfoClaim;
using testing_support::readText;

std::vector<std::string> namesIn(const std::string& folder) {
    std::vector<std::string> names;
    for (const auto& e : std::filesystem::directory_iterator(folder)) names.push_back(e.path().filename().string());
    std::sort(names.begin(), names.end());
    return names;
}

TEST(TrashInfoClaim, ClaimsWholeNeverReplacesAndLeavesNoTemporaryName) {
    testing_support::TempDir dir;
    const std::string info = dir.path() + "/info";
    testing_support::makeFolders(info);
    testing_support::writeBytes(info + "/taken.trashinfo", "theirs");
    const quorv::UniqueFd infoFd(::open(info.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    ASSERT_TRUE(infoFd);
    const std::string text = "[Trash Info]\nPath=/a%0Ab\nDeletionDate=2026-11-23T10:00:00\n";
    {
        auto claim = TrashInfoClaim::prepare(infoFd.get(), text, std::nullopt, true);
        ASSERT_TRUE(claim);
        EXPECT_EQ(claim->claim("taken.trashinfo"), EEXIST);
        EXPECT_EQ(claim->claim("free.trashinfo"), 0);
        // The same text may claim a second name after the item's move failed under the first.
        EXPECT_EQ(claim->claim("second.trashinfo"), 0);
    }
    EXPECT_EQ(namesIn(info), (std::vector<std::string>{"free.trashinfo", "second.trashinfo", "taken.trashinfo"}));
    EXPECT_EQ(readText(info + "/taken.trashinfo"), "theirs");
    EXPECT_EQ(readText(info + "/free.trashinfo"), text);
    EXPECT_EQ(readText(info + "/second.trashinfo"), text);
}

TEST(TrashInfoClaim, RootGivesTheTextToTheTrashOwner) {
    if (::geteuid() != 0) GTEST_SKIP() << "giving a file to another account needs root";
    testing_support::TempDir dir;
    const quorv::UniqueFd infoFd(::open(dir.path().c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    const TrashInfoClaim::Owner other{::geteuid() + 4321, ::getegid() + 4321};
    auto claim = TrashInfoClaim::prepare(infoFd.get(), "x", other);
    ASSERT_TRUE(claim);
    ASSERT_EQ(claim->claim("x.trashinfo"), 0);
    struct stat st{};
    ASSERT_EQ(::stat((dir.path() + "/x.trashinfo").c_str(), &st), 0);
    EXPECT_EQ(st.st_uid, other.uid);
    EXPECT_EQ(st.st_gid, other.gid);
    EXPECT_EQ(st.st_mode & 07777, 0600u);
}

}  // namespace
