// The freedesktop.org Trash against the tools people use on it: what Brimstell trashes is listed
// and put back by trash-cli and listed by gio; what trash-put and gio trash trashed is listed by
// Brimstell with the right original place and date. Every tool runs with HOME and XDG_DATA_HOME in
// a temporary folder and a time zone with a half-hour offset, so a date read or written in the
// wrong zone shows.

#include <gtest/gtest.h>

#include <unistd.h>

#include <algorithm>
#include <ctime>
#include <map>
#include <set>
#include <sstream>
#include <string>
#include <vector>

#include "support/TestSupport.hpp"
#include "support/TrashTestSupport.hpp"

namespace {

using namespace testing_support;

bool installed(const char* program) { return ::access(program, X_OK) == 0; }

class TrashInterop : public LinuxTrashTest {
protected:
    void SetUp() override {
        for (const char* tool : {"/usr/bin/trash-list", "/usr/bin/trash-put", "/usr/bin/trash-restore"}) {
            if (!installed(tool)) GTEST_SKIP() << "trash-cli is not installed (Debian package trash-cli)";
        }
    }
    // Runs a shell script with its arguments in the tools' environment.
    RunResult shell(const std::string& script, const std::vector<std::string>& args = {}) const {
        std::vector<std::string> argv = {"-c", script, "sh"};
        argv.insert(argv.end(), args.begin(), args.end());
        return runProgram("/bin/sh", argv, env.toolEnvironment());
    }
    // Runs a tool's script on the paths; Brimstell then lists them at these locations, trashed
    // while it ran. The tool wrote Kolkata's local time: read as any other zone it would be hours off.
    void expectListedAfter(const std::string& script, const std::vector<std::string>& paths,
                           const std::set<std::string>& locations) const {
        const double before = static_cast<double>(std::time(nullptr));
        const RunResult r = shell(script, paths);
        const double after = static_cast<double>(std::time(nullptr));
        ASSERT_EQ(r.status, 0) << r.output;
        std::set<std::string> where, originals;
        for (const auto& i : listed()) {
            where.insert(i.location);
            originals.insert(i.originalPath.value_or("?"));
            ASSERT_TRUE(i.dateAdded) << i.location;
            EXPECT_GE(*i.dateAdded, before - 1);
            EXPECT_LE(*i.dateAdded, after + 1);
        }
        EXPECT_EQ(where, locations);
        EXPECT_EQ(originals, std::set<std::string>(paths.begin(), paths.end()));
    }
};

TEST_F(TrashInterop, TrashListShowsWhatBrimstellTrashed) {
    const std::vector<std::string> names = {"plain.txt", "with space.txt", "tab\there", "line\nfeed", "100% sure",
                                            "Grüße.txt", "same", "same"};
    for (std::size_t i = 0; i < names.size(); ++i) trash(item("d" + std::to_string(i), names[i]));
    const RunResult r = shell("trash-list");
    ASSERT_EQ(r.status, 0);
    // A name with a line feed spans two lines, so find each entry as text. trash-list reads every
    // mounted disk's Trash, where tests beside this one may have left items: only ours count.
    std::string rest = r.output;
    for (std::size_t i = 0; i < names.size(); ++i) {
        const std::string entry = "2026-09-21 19:43:20 " + env.base + "/d" + std::to_string(i) + "/" + names[i] + "\n";
        const auto at = rest.find(entry);
        ASSERT_NE(at, std::string::npos) << entry << "\nin\n" << r.output;
        rest.erase(at, entry.size());
    }
    EXPECT_EQ(rest.find(env.base), std::string::npos) << rest;
}

TEST_F(TrashInterop, TrashRestorePutsBackWhatBrimstellTrashed) {
    for (const std::string name : {"hello world.txt", "tab\tand 100%.txt", "Grüße"}) {
        const std::string folder = "r-" + std::to_string(name.size());
        const std::string original = item(folder, name, "content of " + name);
        const std::string location = trash(original).value_or("");
        ASSERT_FALSE(exists(original));
        // trash-restore lists what was trashed from the folder and asks which one: the only one, 0.
        const RunResult r = shell("printf '0\\n' | trash-restore \"$1\"", {env.base + "/" + folder});
        EXPECT_EQ(r.status, 0) << r.output;
        EXPECT_EQ(readText(original), "content of " + name) << r.output;
        EXPECT_FALSE(exists(location));
        EXPECT_FALSE(exists(env.trash + "/info/" + name + ".trashinfo"));
    }
    EXPECT_TRUE(listed().empty());
}

TEST_F(TrashInterop, BrimstellListsAndErasesWhatTrashPutTrashed) {
    const std::set<std::string> locations = {env.trash + "/files/a.txt", env.trash + "/files/a.txt_1",
                                             env.trash + "/files/tab\tand\nline 100%"};
    expectListedAfter("trash-put \"$1\" && trash-put \"$2\" && trash-put \"$3\"",
                      {item("p1", "a.txt"), item("p2", "a.txt"), item("p3", "tab\tand\nline 100%")}, locations);
    EXPECT_EQ(quorv::host().trash->erase({locations.begin(), locations.end()}).size(), 3u);
    const RunResult after = shell("trash-list");
    EXPECT_EQ(after.output.find(env.base), std::string::npos) << after.output;
}

class GioInterop : public TrashInterop {
protected:
    void SetUp() override {
        if (!installed("/usr/bin/gio")) GTEST_SKIP() << "gio is not installed (Debian package libglib2.0-bin)";
    }
};

TEST_F(GioInterop, BrimstellListsWhatGioTrashed) {
    expectListedAfter("gio trash \"$1\" \"$2\" \"$3\"",
                      {item("g1", "rep.tar.gz"), item("g2", "rep.tar.gz"), item("g3", "tab\tand\nlf%.txt")},
                      {env.trash + "/files/rep.tar.gz", env.trash + "/files/rep.2.tar.gz",
                       env.trash + "/files/tab\tand\nlf%.txt"});
}

TEST_F(GioInterop, GioListsWhatBrimstellTrashed) {
    const std::string plain = item("l", "plain.txt"), spaced = item("l", "with space.txt");
    for (const auto& p : {plain, spaced, item("l", "tab\tand\nlf%.txt")}) trash(p);
    // Listing the Trash needs gvfs's trash backend, which gio reaches over a session bus.
    if (!installed("/usr/bin/dbus-run-session")) GTEST_SKIP() << "no dbus-run-session (Debian package dbus-daemon)";
    const RunResult r = shell("dbus-run-session -- gio trash --list 2>/dev/null");
    if (r.status != 0) {
        GTEST_SKIP() << "gio can't list the Trash here: it needs gvfs's trash backend (Debian package gvfs)";
    }
    std::vector<std::string> ours;  // gio lists other disks' Trashes too
    std::istringstream in(r.output);
    for (std::string line; std::getline(in, line);) {
        if (line.find(env.base) != std::string::npos) ours.push_back(line);
    }
    std::sort(ours.begin(), ours.end());
    EXPECT_EQ(ours,
              (std::vector<std::string>{"trash:///plain.txt\t" + plain,
                                        "trash:///tab%09and%0Alf%25.txt\t" + env.base + "/l/tab\\x09and\\x0alf%.txt",
                                        "trash:///with%20space.txt\t" + spaced}));
}

TEST_F(TrashInterop, AnotherDisksTrashIsSharedToo) {
    const std::string vol = env.base + "/vol";
    TmpfsMount mount(vol);
    if (!mount.mounted()) GTEST_SKIP() << "mounting a tmpfs is not allowed here";
    env.mounts({"/vol"}, "tmpfs");
    makeFolders(vol + "/sub");
    writeBytes(vol + "/sub/doc.txt", "doc");
    writeBytes(vol + "/put.txt", "put");
    EXPECT_EQ(trash(vol + "/sub/doc.txt"), vol + env.ownTrash + "/files/doc.txt");

    RunResult r = shell("trash-list");
    EXPECT_NE(r.output.find("2026-09-21 19:43:20 " + vol + "/sub/doc.txt\n"), std::string::npos) << r.output;

    r = shell("trash-put \"$1\"", {vol + "/put.txt"});
    ASSERT_EQ(r.status, 0);
    std::map<std::string, std::optional<std::string>> originals;
    for (const auto& i : listed()) originals[i.location] = i.originalPath;
    EXPECT_EQ(originals, (std::map<std::string, std::optional<std::string>>{
                             {vol + env.ownTrash + "/files/doc.txt", vol + "/sub/doc.txt"},
                             {vol + env.ownTrash + "/files/put.txt", vol + "/put.txt"}}));

    r = shell("printf '0\\n' | trash-restore \"$1\"", {vol + "/sub"});
    EXPECT_EQ(readText(vol + "/sub/doc.txt"), "doc") << r.output;
    EXPECT_FALSE(exists(vol + env.ownTrash + "/info/doc.txt.trashinfo"));
}

}  // namespace
