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

#include "kit/files/FreedesktopTrash.hpp"
#include "support/TestSupport.hpp"
#include "support/TrashTestSupport.hpp"
#include "support/host/TrashBackend.hpp"

namespace {

using namespace testing_support;

constexpr double now = 1'790'000'000;  // 2026-09-21 19:43:20 in Kolkata

bool installed(const char* program) { return ::access(program, X_OK) == 0; }

// Runs a shell script with its arguments in the tools' environment.
RunResult shell(const LinuxTrashHost& env, const std::string& script, const std::vector<std::string>& args = {}) {
    std::vector<std::string> argv = {"-c", script, "sh"};
    argv.insert(argv.end(), args.begin(), args.end());
    return runProgram("/bin/sh", argv, env.toolEnvironment());
}

std::vector<std::string> sortedLines(const std::string& text) {
    std::vector<std::string> lines;
    std::istringstream in(text);
    for (std::string line; std::getline(in, line);) lines.push_back(line);
    std::sort(lines.begin(), lines.end());
    return lines;
}

class TrashInterop : public ::testing::Test {
protected:
    void SetUp() override {
        if (!installed("/usr/bin/trash-list") || !installed("/usr/bin/trash-put") || !installed("/usr/bin/trash-restore")) {
            GTEST_SKIP() << "trash-cli is not installed (Debian package trash-cli)";
        }
    }
    LinuxTrashHost env{now};
    quorv::HostScope scope{env.host};
    TimeZoneScope zone{kolkata};

    std::string item(const std::string& folder, const std::string& name, const std::string& content = "data") {
        makeFolders(env.base + "/" + folder);
        const std::string path = env.base + "/" + folder + "/" + name;
        writeBytes(path, content);
        return path;
    }
    std::string trash(const std::string& path) {
        std::string error;
        auto location = quorv::host().trash->moveToTrash(path, error);
        EXPECT_TRUE(location) << error;
        return location.value_or("");
    }
    std::map<std::string, quorv::TrashedItem> byOriginal() {
        std::map<std::string, quorv::TrashedItem> out;
        for (auto& i : quorv::host().trash->list()) out[i.originalPath.value_or("?")] = i;
        return out;
    }
};

TEST_F(TrashInterop, TrashListShowsWhatBrimstellTrashed) {
    const std::vector<std::string> names = {"plain.txt", "with space.txt", "tab\there", "line\nfeed", "100% sure",
                                            "Grüße.txt", "same", "same"};
    int n = 0;
    for (const auto& name : names) trash(item("d" + std::to_string(n++), name));
    const RunResult r = shell(env, "trash-list");
    ASSERT_EQ(r.status, 0);
    // One entry per item; a name with a line feed spans two lines, so compare entries as text.
    // trash-list also reads every mounted disk's Trash, where tests running beside this one may
    // have left items: only what lies in this test's folder counts.
    std::string rest = r.output;
    for (int i = 0; i < n; ++i) {
        const std::string original = env.base + "/d" + std::to_string(i) + "/" + names[static_cast<size_t>(i)];
        const std::string entry = "2026-09-21 19:43:20 " + original + "\n";
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
        const std::string location = trash(original);
        ASSERT_FALSE(exists(original));
        // trash-restore lists what was trashed from the folder and asks which one: the only one, 0.
        const RunResult r = shell(env, "printf '0\\n' | trash-restore \"$1\"", {env.base + "/" + folder});
        EXPECT_EQ(r.status, 0) << r.output;
        EXPECT_EQ(readText(original), "content of " + name) << r.output;
        EXPECT_FALSE(exists(location));
        EXPECT_FALSE(exists(env.trash + "/info/" + name + ".trashinfo"));
    }
    EXPECT_TRUE(quorv::host().trash->list().empty());
}

TEST_F(TrashInterop, BrimstellListsWhatTrashPutTrashed) {
    const std::string a1 = item("p1", "a.txt"), a2 = item("p2", "a.txt");
    const std::string odd = item("p3", "tab\tand\nline 100%");
    const double before = static_cast<double>(std::time(nullptr));
    const RunResult r = shell(env, "trash-put \"$1\" && trash-put \"$2\" && trash-put \"$3\"", {a1, a2, odd});
    const double after = static_cast<double>(std::time(nullptr));
    ASSERT_EQ(r.status, 0);
    const auto items = quorv::host().trash->list();
    ASSERT_EQ(items.size(), 3u);
    std::set<std::string> locations, originals;
    for (const auto& i : items) {
        locations.insert(i.location);
        originals.insert(i.originalPath.value_or("?"));
        // trash-put wrote the local time of Kolkata; read as any other zone it would be hours off.
        ASSERT_TRUE(i.dateAdded) << i.location;
        EXPECT_GE(*i.dateAdded, before - 1);
        EXPECT_LE(*i.dateAdded, after + 1);
    }
    EXPECT_EQ(locations, (std::set<std::string>{env.trash + "/files/a.txt", env.trash + "/files/a.txt_1",
                                                env.trash + "/files/tab\tand\nline 100%"}));
    EXPECT_EQ(originals, (std::set<std::string>{a1, a2, odd}));

    // And Brimstell erases them as trash-cli would.
    const std::vector<std::string> all(locations.begin(), locations.end());
    EXPECT_EQ(quorv::host().trash->erase(all).size(), 3u);
    const RunResult listed = shell(env, "trash-list");
    EXPECT_EQ(listed.output.find(env.base), std::string::npos) << listed.output;
}

class GioInterop : public TrashInterop {
protected:
    void SetUp() override {
        if (!installed("/usr/bin/gio")) GTEST_SKIP() << "gio is not installed (Debian package libglib2.0-bin)";
    }
};

TEST_F(GioInterop, BrimstellListsWhatGioTrashed) {
    const std::string a1 = item("g1", "rep.tar.gz"), a2 = item("g2", "rep.tar.gz");
    const std::string odd = item("g3", "tab\tand\nlf%.txt");
    const double before = static_cast<double>(std::time(nullptr));
    const RunResult r = shell(env, "gio trash \"$1\" \"$2\" \"$3\"", {a1, a2, odd});
    const double after = static_cast<double>(std::time(nullptr));
    ASSERT_EQ(r.status, 0);
    const auto items = byOriginal();
    ASSERT_EQ(items.size(), 3u);
    std::set<std::string> locations;
    for (const auto& i : quorv::host().trash->list()) {
        locations.insert(i.location);
        ASSERT_TRUE(i.dateAdded);
        EXPECT_GE(*i.dateAdded, before - 1);
        EXPECT_LE(*i.dateAdded, after + 1);
    }
    EXPECT_EQ(locations, (std::set<std::string>{env.trash + "/files/rep.tar.gz", env.trash + "/files/rep.2.tar.gz",
                                                env.trash + "/files/tab\tand\nlf%.txt"}));
    EXPECT_EQ(items.count(a1), 1u);
    EXPECT_EQ(items.count(a2), 1u);
    EXPECT_EQ(items.count(odd), 1u);
}

TEST_F(GioInterop, GioListsWhatBrimstellTrashed) {
    const std::string plain = item("l", "plain.txt"), spaced = item("l", "with space.txt");
    const std::string odd = item("l", "tab\tand\nlf%.txt");
    trash(plain);
    trash(spaced);
    trash(odd);
    // Listing the Trash needs gvfs's trash backend, which gio reaches over a session bus.
    if (!installed("/usr/bin/dbus-run-session")) GTEST_SKIP() << "no dbus-run-session (Debian package dbus-daemon)";
    const RunResult r = shell(env, "dbus-run-session -- gio trash --list 2>/dev/null");
    if (r.status != 0) {
        GTEST_SKIP() << "gio can't list the Trash here: it needs gvfs's trash backend (Debian package gvfs)";
    }
    std::vector<std::string> ours;  // gio lists other disks' Trashes too
    for (auto& line : sortedLines(r.output)) {
        if (line.find(env.base) != std::string::npos) ours.push_back(line);
    }
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
    EXPECT_EQ(trash(vol + "/sub/doc.txt"), vol + "/.Trash-0/files/doc.txt");

    RunResult r = shell(env, "trash-list");
    EXPECT_NE(r.output.find("2026-09-21 19:43:20 " + vol + "/sub/doc.txt\n"), std::string::npos) << r.output;

    r = shell(env, "trash-put \"$1\"", {vol + "/put.txt"});
    ASSERT_EQ(r.status, 0);
    const auto items = byOriginal();
    ASSERT_EQ(items.count(vol + "/put.txt"), 1u);
    EXPECT_EQ(items.at(vol + "/put.txt").location, vol + "/.Trash-0/files/put.txt");

    r = shell(env, "printf '0\\n' | trash-restore \"$1\"", {vol + "/sub"});
    EXPECT_EQ(readText(vol + "/sub/doc.txt"), "doc") << r.output;
    EXPECT_FALSE(exists(vol + "/.Trash-0/info/doc.txt.trashinfo"));
}

}  // namespace
